#include "cli/FindingSources.hpp"

#include "cli/HostAnalyzers.hpp"
#include "cli/Report.hpp"
#include "platform/host/HostError.hpp"

#include <algorithm>

namespace depattr::cli {

namespace {

using dependency::attribute::Attribute;
using dependency::attribute::AttributeAnalyzer;

class TrackedAnalyzer final : public AttributeAnalyzer {
public:
    TrackedAnalyzer(NamedAnalyzer inner, std::shared_ptr<FindingSources> sources)
        : inner_(std::move(inner)), sources_(std::move(sources)) {}

    std::vector<std::shared_ptr<Attribute>> analyze(
        std::shared_ptr<dependency::graph::Node> const& node,
        std::shared_ptr<dependency::graph::Graph const> const& graph) const override {
        std::vector<std::shared_ptr<Attribute>> findings;
        try {
            findings = inner_.analyzer->analyze(node, graph);
        } catch (AnalyzerFailure const&) {
            throw;
        } catch (qcos::HostError const& error) {
            if (isInterruption(error)) {
                throw;
            }
            // Host code failed: say where, and through which calls.
            throw AnalyzerFailure(std::string(inner_.name), node, describe(error));
        } catch (std::exception const& error) {
            throw AnalyzerFailure(std::string(inner_.name), node, escapeControls(error.what()));
        }
        for (auto const& finding : findings) {
            sources_->record(finding, inner_.name);
        }
        return findings;
    }

private:
    NamedAnalyzer inner_;
    std::shared_ptr<FindingSources> sources_;
};

}  // namespace

std::vector<std::shared_ptr<AttributeAnalyzer>> FindingSources::track(std::vector<NamedAnalyzer> const& analyzers) {
    std::vector<std::shared_ptr<AttributeAnalyzer>> tracked;
    tracked.reserve(analyzers.size());
    for (auto const& analyzer : analyzers) {
        tracked.push_back(std::make_shared<TrackedAnalyzer>(analyzer, shared_from_this()));
    }
    return tracked;
}

std::string_view FindingSources::analyzerOf(std::shared_ptr<Attribute const> const& attribute) const {
    auto const byAddress = [](Source const& a, Source const& b) { return a.attribute.get() < b.attribute.get(); };
    if (sorted_ != sources_.size()) {
        std::stable_sort(sources_.begin(), sources_.end(), byAddress);  // the first record of each stays first
        sources_.erase(std::unique(sources_.begin(), sources_.end(),
                                   [](Source const& a, Source const& b) { return a.attribute == b.attribute; }),
                       sources_.end());
        sources_.shrink_to_fit();
        sorted_ = sources_.size();
    }
    auto const found = std::lower_bound(sources_.begin(), sources_.end(), Source{attribute, {}}, byAddress);
    return found != sources_.end() && found->attribute == attribute ? found->analyzer : std::string_view{};
}

void FindingSources::record(std::shared_ptr<Attribute const> attribute, std::string_view analyzer) {
    sources_.push_back({std::move(attribute), analyzer});  // sorted in at the next query
}

}  // namespace depattr::cli
