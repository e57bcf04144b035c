// Reports derived files that are older than a file they are derived from.
#include "attribute/analyzers/Analyzers.hpp"
#include "attribute/analyzers/Description.hpp"
#include "attribute/analyzers/FilePresence.hpp"
#include "attribute/analyzers/Messages.hpp"

#include "platform/fl/FileSystem.hpp"

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <array>
#include <cstdint>
#include <limits>

namespace dependency::attribute {

namespace {

constexpr std::array<FindingDescription, 1> derivedFileKinds{{
    {"OutOfDate", false, "DerivedFileOutOfDate", "DerivedFileProblem", Severity::Warning},
}};

std::shared_ptr<AttributeIdentity> const& outOfDateIdentity() {
    static auto const identity = makeIdentity(derivedFileKinds[0]);
    return identity;
}

// A time as one signed tick count in which the special values sort as in
// Boost's own representation: -infinity lowest, then every real time, then
// not-a-date-time, then +infinity. A file whose time could not be read thus
// counts as newer than any real time, with no special case in the comparison.
std::int64_t ticksOf(boost::posix_time::ptime const& time) {
    constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
    if (time.is_not_a_date_time()) {
        return largest - 1;
    }
    if (time.is_pos_infinity()) {
        return largest;
    }
    if (time.is_neg_infinity()) {
        return std::numeric_limits<std::int64_t>::min();
    }
    static boost::posix_time::ptime const origin(boost::gregorian::date(1400, 1, 1));
    return (time - origin).ticks();
}

// Modification time of the node's file; not-a-date-time when it cannot be read.
boost::posix_time::ptime modificationTime(dependency::graph::Node const& node) noexcept {
    try {
        return fl::filesystem::status_express_light(node.getLocation().at(0)).last_modified;
    } catch (...) {
        return {};
    }
}

class DerivedFileAnalyzer final : public AttributeAnalyzer {
public:
    ~DerivedFileAnalyzer() override = default;

    std::vector<std::shared_ptr<Attribute>> analyze(
        std::shared_ptr<dependency::graph::Node> const& node,
        std::shared_ptr<dependency::graph::Graph const> const& graph) const override {
        auto const& identity = outOfDateIdentity();
        if (!node->isFile() || !detail::isPresentFile(*node)) {
            return {};
        }
        std::vector<std::shared_ptr<Attribute>> findings;
        for (auto const& dependency : graph->getDownstreamDependencies(*node)) {
            if (!(dependency->getRelationship() == dependency::graph::Type::DERIVED())) {
                continue;
            }
            auto const source = dependency->getDownstreamNode();
            if (!source->isFile() || !detail::isPresentFile(*source)) {
                continue;
            }
            std::int64_t const sourceTime = ticksOf(modificationTime(*source));
            std::int64_t const derivedTime = ticksOf(modificationTime(*node));
            // One finding per newer source: callers count them. Equal times are up to date.
            if (derivedTime < sourceTime) {
                findings.push_back(std::make_shared<Attribute>(identity, nullptr));
            }
        }
        return findings;
    }
};

}  // namespace

std::shared_ptr<AttributeAnalyzer> createDerivedFileAnalyzer() {
    return std::make_shared<DerivedFileAnalyzer>();
}

DEPATTR_DESCRIBE_ANALYZER(DerivedFile, "derived-file", "AnalyzerDerivedFile", derivedFileKinds)

}  // namespace dependency::attribute
