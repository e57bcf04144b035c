#include "attribute/AnalysisErrors.hpp"

namespace QORVEX::dependency::analysis {

AnalysisParsingError::AnalysisParsingError() : BaseMsgID(analysisCatalog, "AnalysisParsingError") {}

void throwAnalysisError(std::u16string const& path) {
    throwAnalysisException(AnalysisError(path));
}

void throwAnalysisParsingError() {
    throwAnalysisException(AnalysisParsingError());
}

}  // namespace QORVEX::dependency::analysis
