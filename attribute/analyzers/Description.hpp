#pragma once
// What a built-in analyzer says about itself: the names it goes by, the kinds
// of finding it can report, and how to make one. Each analyzer's file defines
// its description with DEPATTR_DESCRIBE_ANALYZER and builds its identities from
// the finding descriptions there, so the texts that tools list and the
// findings the analyzer reports cannot drift apart.

#include "attribute/AttributeAnalyzer.hpp"
#include "attribute/AttributeIdentity.hpp"
#include "platform/foundation/BaseMsgID.hpp"

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace dependency::attribute {

// One kind of finding. Its Name is the text of `messageKey` in the catalog
// "QORVEX:dependency:attribute"; `name` is a stable name of the kind that
// tools use (the program's texts and docs/findings.md are keyed by it).
struct FindingDescription {
    std::string_view id;     // the finding's ID, e.g. "Missing"
    bool idIsPrefix;         // the ID goes on with more text ("MissingProduct" + base code)
    std::string_view name;   // e.g. "MissingFile"
    char const* messageKey;  // e.g. "MissingFileProblem"
    Severity severity;

    // Whether `id` is an ID of this kind.
    bool matches(std::u16string_view id) const noexcept;
    bool matches(std::string_view id) const noexcept;
};

struct AnalyzerDescription {
    std::string_view name;            // the program's name, e.g. "missing-file"
    std::string_view gateway;         // the host's gateway, e.g. "createMissingFileAnalyzer"
    std::string_view descriptionKey;  // its one-line description in the program's catalog
    std::span<FindingDescription const> findings;
    std::shared_ptr<AttributeAnalyzer> (*create)();
};

// A new identity of the kind: its ID followed by `idSuffix` (for a prefix
// ID), its Name the kind's text with `args` for the global locale now.
// Throws fl::i18n::MessageNotFound when no catalog has the key.
std::shared_ptr<AttributeIdentity> makeIdentity(FindingDescription const& kind,
                                                std::vector<resource_core::MessageArgument> args = {},
                                                std::u16string_view idSuffix = {});

}  // namespace dependency::attribute

// Defines `dependency::attribute::<Stem>Description()` for the analyzer made by
// create<Stem>Analyzer, whose host gateway has the same name. Use it in the
// analyzer's file, inside namespace dependency::attribute.
#define DEPATTR_DESCRIBE_ANALYZER(Stem, programName, descriptionKey, findings)                                         \
    AnalyzerDescription const& Stem##Description() {                                                                   \
        static AnalyzerDescription const description{programName, "create" #Stem "Analyzer", descriptionKey, findings, \
                                                     &create##Stem##Analyzer};                                         \
        return description;                                                                                            \
    }
