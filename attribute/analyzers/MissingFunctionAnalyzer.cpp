// Reports function nodes whose function is not defined in the code file the node points at.
#include "attribute/AnalysisErrors.hpp"
#include "attribute/analyzers/Analyzers.hpp"
#include "attribute/analyzers/Description.hpp"
#include "attribute/analyzers/Messages.hpp"
#include "platform/codeanalysis/CodeAnalysis.hpp"
#include "platform/fl/FileSystem.hpp"

#include <algorithm>
#include <array>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace dependency::attribute {

namespace missing_function {

using ca::astapi::Node;
using ca::astapi::NodeKind;
namespace slot = ca::astapi::slot;

// Searches a syntax tree for the names it defines. The walk is depth first and always runs to the end, so a tree
// it cannot handle (a kind outside the numbering, an input argument without a name) throws whatever it found; the
// caller counts every name of it as missing. Iterative, so that no tree is too deep for it.
class DefinitionSearch {
public:
    DefinitionSearch(std::u16string_view ownerName, std::ostream& diagnostics)
        : ownerName_(ownerName), diagnostics_(diagnostics) {}

    // Every name defined in the tree under root.
    std::unordered_set<std::u16string> run(Node const& root) {
        pending_.push_back(&root);
        while (!pending_.empty()) {
            auto const* node = pending_.back();
            pending_.pop_back();
            visit(*node);
        }
        return std::move(names_);
    }

private:
    static Node const& requiredChild(Node const& node, ca::astapi::SingleSlot slot) {
        auto const* child = node.child(slot);
        if (child == nullptr) {
            throw std::logic_error("syntax tree node without its required child " + std::to_string(slot.number));
        }
        return *child;
    }

    // The visit order is the order in which children are taken from the stack, so each node's children are
    // pushed last first.
    class Visits {
    public:
        explicit Visits(std::vector<Node const*>& stack) : stack_(stack), mark_(stack.size()) {}
        void child(Node const* node) { append(node); }
        void list(std::span<Node const* const> nodes) {
            for (auto const* node : nodes) {
                append(node);
            }
        }
        ~Visits() { std::reverse(stack_.begin() + static_cast<std::ptrdiff_t>(mark_), stack_.end()); }
        Visits(Visits const&) = delete;
        Visits& operator=(Visits const&) = delete;

    private:
        void append(Node const* node) {
            if (node != nullptr) {
                stack_.push_back(node);
            }
        }
        std::vector<Node const*>& stack_;
        std::size_t mark_;
    };

    // Functions and methods share these slots.
    void visitDefinitionChildren(Node const& definition, Node const& name) {
        using Function = slot::FunctionDefinition;
        Visits visits(pending_);
        visits.child(&name);
        visits.list(definition.list(Function::inputs));
        visits.list(definition.list(Function::outputs));
        visits.list(definition.list(Function::body));
        visits.list(definition.list(Function::nestedFunctions));
    }

    void found(std::u16string_view candidate) { names_.emplace(candidate); }

    static bool isStaticMethod(Node const& method) {
        using AttributeQueries = lf::astapi::NodeCustomization<lf::astapi::Attribute<ca::astapi::CA>>;
        for (auto const* attribute :
             lf::astapi::NodeCustomization<lf::astapi::Method<ca::astapi::CA>>::getAttributes(method)) {
            if (AttributeQueries::getName(*attribute) == u"Static" &&
                AttributeQueries::getOperand(*attribute) == nullptr &&
                AttributeQueries::isAttributeWithGivenLogicalValue(*attribute, true)) {
                return true;
            }
        }
        return false;
    }

    void visit(Node const& node) {
        auto const code = static_cast<int>(node.kind());
        if (code == 0 || code > ca::astapi::lastNodeKind) {
            diagnostics_ << "Unhandled node kind \"" << node.kind() << "\" encountered in AstDispatcher.";
            throw std::logic_error("Unhandled node kind encountered in AstDispatcher");
        }
        if (ca::astapi::isLeaf(node.kind())) {
            return;
        }
        switch (node.kind()) {
        case NodeKind::FunctionDefinition: {
            auto const& name = requiredChild(node, slot::FunctionDefinition::name);
            found(name.identifier().getString());
            visitDefinitionChildren(node, name);
            return;
        }
        case NodeKind::MethodDefinition: {
            auto const& name = requiredChild(node, slot::MethodDefinition::name);
            auto const methodName = name.identifier().getString();
            if (isStaticMethod(node)) {
                std::u16string qualified(ownerName_);
                qualified += u'.';
                qualified += methodName;
                found(qualified);
            } else {
                found(methodName);
            }
            visitDefinitionChildren(node, name);
            return;
        }
        case NodeKind::ClassDefinition: {
            using Class = slot::ClassDefinition;
            auto const& name = requiredChild(node, Class::name);
            found(name.identifier().getString());
            Visits visits(pending_);
            visits.list(node.list(Class::attributes));
            visits.child(&name);
            visits.list(node.list(Class::superclasses));
            visits.list(node.list(Class::blocks));
            return;
        }
        case NodeKind::InputArgument: {
            using Argument = slot::InputArgument;
            auto const* argument = node.child(Argument::identifier) != nullptr ? node.child(Argument::identifier)
                                                                               : node.child(Argument::ignored);
            if (argument == nullptr) {
                throw std::logic_error("InputArgument has neither an Identifier nor an Ignored");
            }
            pending_.push_back(argument);
            return;
        }
        default: {
            Visits visits(pending_);
            visits.list(node.children());
            return;
        }
        }
    }

    std::u16string_view ownerName_;
    std::ostream& diagnostics_;
    std::unordered_set<std::u16string> names_;
    std::vector<Node const*> pending_;
};

// Every name whose definition the search finds in the tree under root; throws std::logic_error for a tree the
// search cannot handle, after writing a diagnostic for an unknown node kind.
std::unordered_set<std::u16string> definedNames(Node const& root, std::u16string_view ownerName,
                                                std::ostream& diagnostics) {
    return DefinitionSearch(ownerName, diagnostics).run(root);
}

// Whether the tree under root lacks a definition of soughtName, as definedNames finds them. Used by the tests.
bool lacksDefinition(Node const& root, std::u16string_view soughtName, std::u16string_view ownerName,
                     std::ostream& diagnostics) {
    return !definedNames(root, ownerName, diagnostics).contains(std::u16string(soughtName));
}

}  // namespace missing_function

namespace {

constexpr std::array<FindingDescription, 1> missingFunctionKinds{{
    {"Missing", false, "MissingFunction", "MissingFunctionProblem", Severity::Warning},
}};

std::shared_ptr<AttributeIdentity> const& missingFunctionIdentity() {
    static auto const identity = makeIdentity(missingFunctionKinds[0]);
    return identity;
}

// "pkg/f" names f in its file, "a/b/f" names b/f: only the part before the first "/" is dropped.
std::u16string soughtNameOf(graph::Node const& node) {
    auto const& name = node.getLocation().at(1);
    auto const slash = name.find(u'/');
    return slash == std::u16string::npos ? name : name.substr(slash + 1);
}

// Diagnostics of the search go nowhere: a library that wrote to the process's streams would disturb its callers'
// output, and the finding already says that the function counts as missing.
class DiscardingStream : public std::ostream {
public:
    DiscardingStream() : std::ostream(nullptr) {}
};

class MissingFunctionAnalyzer final : public AttributeAnalyzer {
public:
    ~MissingFunctionAnalyzer() override = default;

    std::vector<std::shared_ptr<Attribute>> analyze(
        std::shared_ptr<dependency::graph::Node> const& node,
        std::shared_ptr<dependency::graph::Graph const> const& /*graph*/) const override {
        auto const& identity = missingFunctionIdentity();
        std::vector<std::shared_ptr<Attribute>> findings;
        if (!(node->getType() == graph::Type::FUNCTION())) {
            return findings;
        }
        auto const soughtName = soughtNameOf(*node);
        bool missing = true;
        try {
            missing = isMissing(*node, soughtName);
        } catch (...) {
            // Every failure to look means the function cannot be shown to be there.
        }
        if (missing) {
            findings.push_back(std::make_shared<Attribute>(identity, nullptr));
        }
        return findings;
    }

private:
    bool isMissing(graph::Node const& node, std::u16string const& soughtName) const {
        if (!node.isResolved() || !fl::filesystem::shared_exists(node.getLocation().at(0))) {
            return true;
        }
        auto const& path = node.getPath();
        std::shared_ptr<ca::AnalysisResult const> result;
        try {
            auto analyzer = ca::createSingleFileAnalyzer();
            result = analyzer->analyze(path);
        } catch (...) {
            QORVEX::dependency::analysis::throwAnalysisError(path);
        }
        if (result->hasErrors()) {
            QORVEX::dependency::analysis::throwAnalysisParsingError();
        }
        return !defines(result, soughtName);
    }

    // A file defines many functions, and the graph has a node for each: the tree of one analysis result is
    // searched once for all the names it defines. A result stands for one content of its file for as long as it
    // lives, so its names hold while it does; they are kept by the result's identity without keeping it alive.
    struct KnownTree {
        std::weak_ptr<ca::AnalysisResult const> result;
        std::optional<std::unordered_set<std::u16string>> names;  // none: the search cannot handle the tree
    };
    static constexpr std::size_t maxKnownTrees = 1024;

    bool defines(std::shared_ptr<ca::AnalysisResult const> const& result, std::u16string const& name) const {
        std::lock_guard const lock(knownMutex_);
        auto known = knownTrees_.find(result.get());
        bool const current = known != knownTrees_.end() && !known->second.result.owner_before(result) &&
                             !result.owner_before(known->second.result);
        if (!current) {
            KnownTree tree{result, std::nullopt};
            try {
                DiscardingStream diagnostics;
                tree.names = missing_function::definedNames(result->getRootNode(), result->getOwnerName(), diagnostics);
            } catch (std::logic_error const&) {
                // A tree the search cannot handle defines nothing it can show.
            }
            if (knownTrees_.size() >= maxKnownTrees) {
                knownTrees_.clear();
            }
            known = knownTrees_.insert_or_assign(result.get(), std::move(tree)).first;
        }
        return known->second.names && known->second.names->contains(name);
    }

    mutable std::mutex knownMutex_;
    mutable std::unordered_map<ca::AnalysisResult const*, KnownTree> knownTrees_;
};

}  // namespace

std::shared_ptr<AttributeAnalyzer> createMissingFunctionAnalyzer() {
    return std::make_shared<MissingFunctionAnalyzer>();
}

DEPATTR_DESCRIBE_ANALYZER(MissingFunction, "missing-function", "AnalyzerMissingFunction", missingFunctionKinds)

}  // namespace dependency::attribute
