#pragma once
// Factories of the built-in analyzers. Each call makes a new analyzer.

#include "attribute/AttributeAnalyzer.hpp"

#include <memory>

namespace dependency::attribute {

std::shared_ptr<AttributeAnalyzer> createMissingFileAnalyzer();
std::shared_ptr<AttributeAnalyzer> createDerivedFileAnalyzer();
std::shared_ptr<AttributeAnalyzer> createMissingFunctionAnalyzer();
std::shared_ptr<AttributeAnalyzer> createMissingProductAnalyzer();
std::shared_ptr<AttributeAnalyzer> createMissingPackageDependencyAnalyzer();
std::shared_ptr<AttributeAnalyzer> createInvalidFormatAnalyzer();
std::shared_ptr<AttributeAnalyzer> createMissingProjectReferenceAnalyzer();
std::shared_ptr<AttributeAnalyzer> createCircularProjectReferenceAnalyzer();

}  // namespace dependency::attribute
