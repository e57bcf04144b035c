#include "cli/FindingSources.hpp"

#include <algorithm>

namespace depattr::cli {

using dependency::attribute::Attribute;

std::string_view FindingSources::analyzerOf(std::shared_ptr<Attribute const> const& attribute) const {
    auto const byAddress = [](Source const& a, Source const& b) { return a.attribute.get() < b.attribute.get(); };
    if (sorted_ != sources_.size()) {
        std::stable_sort(sources_.begin(), sources_.end(), byAddress);  // the first record of each stays first
        sources_.erase(std::unique(sources_.begin(), sources_.end(),
                                   [](Source const& a, Source const& b) { return a.attribute == b.attribute; }),
                       sources_.end());
        sorted_ = sources_.size();
    }
    auto const found = std::lower_bound(sources_.begin(), sources_.end(), Source{attribute, {}}, byAddress);
    return found != sources_.end() && found->attribute == attribute ? found->analyzer : std::string_view{};
}

void FindingSources::record(std::shared_ptr<Attribute const> attribute, std::string_view analyzer) {
    sources_.push_back({std::move(attribute), analyzer});  // sorted in at the next query
}

}  // namespace depattr::cli
