#pragma once
// The built-in analyzers: the one list of them. Everything else that needs the
// list (the program's catalogue and `depattr analyzers`, the host gateways,
// docs/findings.md, checked by a test) takes it from here.
//
// Adding an analyzer: write its file (the class, its factory declared in
// Analyzers.hpp, and DEPATTR_DESCRIBE_ANALYZER), then add its stem to
// DEPATTR_BUILT_IN_ANALYZERS below.

#include "attribute/analyzers/Analyzers.hpp"
#include "attribute/analyzers/Description.hpp"

#include <span>
#include <string_view>

// Each built-in analyzer by its stem (create<Stem>Analyzer, <Stem>Description),
// in the order they run by default.
#define DEPATTR_BUILT_IN_ANALYZERS(X) \
    X(MissingFile)                    \
    X(DerivedFile)                    \
    X(MissingFunction)                \
    X(MissingProduct)                 \
    X(MissingPackageDependency)       \
    X(InvalidFormat)                  \
    X(MissingProjectReference)        \
    X(CircularProjectReference)

namespace dependency::attribute {

#define DEPATTR_DECLARE_DESCRIPTION(Stem) AnalyzerDescription const& Stem##Description();
DEPATTR_BUILT_IN_ANALYZERS(DEPATTR_DECLARE_DESCRIPTION)
#undef DEPATTR_DECLARE_DESCRIPTION

// Every built-in analyzer's description, in the order they run by default.
std::span<AnalyzerDescription const* const> builtInAnalyzers();

// The description of a program name ("missing-file"), or null.
AnalyzerDescription const* findBuiltInAnalyzer(std::string_view name);

}  // namespace dependency::attribute
