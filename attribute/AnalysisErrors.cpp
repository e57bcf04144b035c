#include "attribute/AnalysisErrors.hpp"

#include <utility>

namespace QORVEX::dependency::analysis {

AnalysisError::AnalysisError(std::u16string path)
    : BaseMsgID(analysisCatalog, "AnalysisError", {resource_core::MessageArgument(std::move(path))}) {}

AnalysisParsingError::AnalysisParsingError() : BaseMsgID(analysisCatalog, "AnalysisParsingError") {}

void throwAnalysisError(std::u16string const& path) {
    throwAnalysisException(AnalysisError(path));
}

void throwAnalysisParsingError() {
    throwAnalysisException(AnalysisParsingError());
}

}  // namespace QORVEX::dependency::analysis
