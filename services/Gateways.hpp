#pragma once
// Gateways: the functions the host calls by name. Each takes the number of
// outputs asked for, the output slots (owning: resetting a slot releases the
// array it held), the number of inputs and the read-only inputs, and checks
// its argument counts before doing anything else.
//
// The analyzer gateways, one per built-in analyzer, take no inputs and return a new built-in
// analyzer as a "dependencies.internal.attribute.AttributeAnalyzer" object in
// output slot 1 (set even when no output was asked for).
//
// createAttribute(identity) and createAttribute(identity, fix) make a finding
// for analyzers written in the host language: input 1 an AttributeIdentity
// object, optional input 2 a function handle that applyFix runs (on the VM's
// command thread, with no inputs and no outputs); output 1 an Attribute object.

#include "platform/host/Array.hpp"

#include "attribute/analyzers/Registry.hpp"

// create<Stem>Analyzer for every built-in analyzer (createMissingFileAnalyzer, ...).
#define DEPATTR_DECLARE_ANALYZER_GATEWAY(Stem) \
    void create##Stem##Analyzer(int nlhs, qxArrayPtr plhs[], int nrhs, qxArray const* prhs[]);
DEPATTR_BUILT_IN_ANALYZERS(DEPATTR_DECLARE_ANALYZER_GATEWAY)
#undef DEPATTR_DECLARE_ANALYZER_GATEWAY

void createAttribute(int nlhs, qxArrayPtr plhs[], int nrhs, qxArray const* prhs[]);
