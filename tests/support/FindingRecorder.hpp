#pragma once
// An analysis observer that records each finding under its analyzer, as the program does.

#include "cli/FindingSources.hpp"
#include "services/AnalysisSession.hpp"

#include <memory>
#include <string_view>
#include <vector>

namespace depattr_test {

class FindingRecorder final : public dependency::services::AnalysisObserver {
public:
    explicit FindingRecorder(depattr::cli::FindingSources& sources) : sources_(sources) {}
    void reported(std::string_view analyzer,
                  std::vector<std::shared_ptr<dependency::attribute::Attribute>> const& findings) override {
        for (auto const& finding : findings) {
            sources_.record(finding, analyzer);
        }
    }

private:
    depattr::cli::FindingSources& sources_;
};

}  // namespace depattr_test
