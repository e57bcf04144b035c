// Reports for every file node whether the file is present on disk.
#include "attribute/analyzers/Analyzers.hpp"
#include "attribute/analyzers/Description.hpp"
#include "attribute/analyzers/FilePresence.hpp"

#include <array>

namespace dependency::attribute {

namespace {

constexpr std::array<FindingDescription, 2> missingFileKinds{{
    {"Exists", false, "FileExists", "FileExistsAttribute", Severity::Information},
    {"Missing", false, "MissingFile", "MissingFileProblem", Severity::Warning},
}};

// Process-wide identities, made on first use; a failed lookup leaves them
// unmade so that the next call tries again.
std::shared_ptr<AttributeIdentity> const& presentFileIdentity() {
    static auto const identity = makeIdentity(missingFileKinds[0]);
    return identity;
}

std::shared_ptr<AttributeIdentity> const& missingFileIdentity() {
    static auto const identity = makeIdentity(missingFileKinds[1]);
    return identity;
}

class MissingFileAnalyzer final : public AttributeAnalyzer {
public:
    ~MissingFileAnalyzer() override = default;

    std::vector<std::shared_ptr<Attribute>> analyze(
        std::shared_ptr<dependency::graph::Node> const& node,
        std::shared_ptr<dependency::graph::Graph const> const& /*graph*/) const override {
        auto const& present = presentFileIdentity();
        auto const& missing = missingFileIdentity();
        if (!node->isFile()) {
            return {};
        }
        // Presence is reported too, as Information, so every file node gets exactly one finding.
        std::vector<std::shared_ptr<Attribute>> findings;
        findings.push_back(std::make_shared<Attribute>(detail::isPresentFile(*node) ? present : missing, nullptr));
        return findings;
    }
};

}  // namespace

std::shared_ptr<AttributeAnalyzer> createMissingFileAnalyzer() {
    return std::make_shared<MissingFileAnalyzer>();
}

DEPATTR_DESCRIBE_ANALYZER(MissingFile, "missing-file", "AnalyzerMissingFile", missingFileKinds)

}  // namespace dependency::attribute
