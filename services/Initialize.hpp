#pragma once
// The library's entry points, called by the host when it loads and unloads
// the library "depattr".

extern "C" {

// Registers the host classes AttributeAnalyzer, AttributeIdentity, Attribute,
// GraphAttributes and Severity in the host namespace
// "dependencies.internal.attribute", once per process however often it is called.
void QLInitialize_depattr();

// Does nothing: the classes stay registered for the life of the process.
void QLTerminate_depattr();

// The gateways the host may call by name: the eight analyzer gateways,
// analyzeInQorvex and createAttribute, as a null-terminated list. Every other
// function of the library, or of a library it links to, stays out of reach
// of host code.
char const* const* QLGateways_depattr();
}
