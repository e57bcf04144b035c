// Reports every package that a node uses from an installed product but that the
// analysed product's package definition does not declare.
#include "attribute/analyzers/Analyzers.hpp"
#include "attribute/analyzers/Description.hpp"
#include "attribute/analyzers/Messages.hpp"
#include "platform/fl/FileSystem.hpp"
#include "platform/fl/MessageCatalog.hpp"
#include "platform/packages/PackageDescriptor.hpp"
#include "platform/storage/Vfs.hpp"
#include "platform/toolbox/ToolboxFinder.hpp"

#include <boost/lexical_cast.hpp>
#include <boost/uuid/uuid.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <algorithm>
#include <array>

namespace dependency::attribute {

namespace {

constexpr std::array<FindingDescription, 1> missingPackageDependencyKinds{{
    {"Missing", false, "MissingPackageDependency", "MissingPackageDependencyProblem", Severity::Warning},
}};

using dependency::graph::Node;
using dependency::toolbox::ToolboxFinder;

// Kind of the products whose package definition lists their declared dependencies.
constexpr int packagedProductKind = 3;
// A package node's location holds its unique ID at this index.
constexpr std::size_t packageIdIndex = 3;

struct PackageReference {
    std::u16string name;
    boost::uuids::uuid uniqueId;

    friend bool operator==(PackageReference const&, PackageReference const&) = default;
};

// Made on the first call of analyze; a failed message lookup leaves it unmade so
// that the next call tries again.
std::shared_ptr<AttributeIdentity> const& missingPackageDependencyIdentity() {
    static auto const identity = makeIdentity(missingPackageDependencyKinds[0]);
    return identity;
}

// A path with a NUL character names no file (the system would read it only up
// to the NUL): like an empty one, it lies in no product. A path in native form
// already (the usual case, asked about for every node) is taken as it stands;
// another is made in `storage`.
std::u16string const& nativeForm(std::u16string const& path, std::u16string& storage) {
    if (fl::filesystem::detail::is_native_form(path)) {
        return path;
    }
    if (path.empty() || path.find(u'\0') != std::u16string::npos) {
        storage.clear();
    } else {
        storage = fl::filesystem::detail::make_native_form(path, true);
    }
    return storage;
}

// The packages that `node` uses from installed products, in dependency order,
// duplicates kept. Packages outside every installed product are not checked.
std::vector<PackageReference> usedPackages(Node const& node, dependency::graph::Graph const& graph,
                                           ToolboxFinder const& finder) {
    std::vector<PackageReference> used;
    for (auto const& edge : graph.getDownstreamDependencies(node)) {
        // The edge knows its node's type: only packages are reached.
        if (!(edge->getDownstreamType() == dependency::graph::Type::PACKAGE())) {
            continue;
        }
        auto const package = edge->getDownstreamNode();
        std::u16string storage;
        if (finder.findProductsContainingPath(nativeForm(package->getPath(), storage)).empty()) {
            continue;
        }
        // Checked access and a strict conversion: a short location or an ID that
        // is not a UUID fails the whole call instead of being guessed at.
        std::u16string const& idText = package->getLocation().at(packageIdIndex);
        auto const uniqueId = boost::lexical_cast<boost::uuids::uuid>(fl::i18n::ustring_to_utf8(idText));
        used.push_back(PackageReference{package->getName(), uniqueId});
    }
    return used;
}

class MissingPackageDependencyAnalyzer final : public AttributeAnalyzer {
public:
    ~MissingPackageDependencyAnalyzer() override = default;

    std::vector<std::shared_ptr<Attribute>> analyze(
        std::shared_ptr<Node> const& node,
        std::shared_ptr<dependency::graph::Graph const> const& graph) const override {
        auto const& identity = missingPackageDependencyIdentity();
        auto const finder = ToolboxFinder::getInstance();
        std::vector<PackageReference> const used = usedPackages(*node, *graph, *finder);
        if (declared_.empty()) {
            readDeclaredDependencies(*node, *finder);
        }
        std::vector<std::shared_ptr<Attribute>> findings;
        for (auto const& package : used) {
            if (std::find(declared_.begin(), declared_.end(), package) == declared_.end()) {
                findings.push_back(std::make_shared<Attribute>(identity, nullptr));
            }
        }
        return findings;
    }

private:
    // The first product of the analysed node, when it is of the packaged kind,
    // declares the dependencies. Once read, the list serves every later node of
    // the analysis, whatever product that node lies in; an empty one is read again.
    void readDeclaredDependencies(Node const& node, ToolboxFinder const& finder) const {
        std::u16string storage;
        auto const products = finder.findProductsContainingPath(nativeForm(node.getPath(), storage));
        if (products.empty() || products.front()->getKind() != packagedProductKind) {
            return;
        }
        namespace vfs = foundation::storage::vfs;
        std::u16string const root = fl::filesystem::detail::make_native_form(products.front()->getVerDir(), true);
        vfs::Folder const folder(vfs::toAbsoluteIRI(u"file", root), vfs::GetStorageSystemReference());
        vfs::File const definition(folder, foundation::packages::PackageDefRelativeToRoot);
        // Taking the descriptor from a failed result throws the reason, naming the file.
        auto const result = foundation::packages::GetPackageDescriptorFactory().create(definition, 0);
        for (auto const& range : result->GetDependencyRanges()) {
            declared_.push_back(PackageReference{range.GetName(), range.GetUniqueId()});
        }
    }

    // Filled at most once, without a lock: one analyzer serves one thread at a time.
    mutable std::vector<PackageReference> declared_;
};

}  // namespace

std::shared_ptr<AttributeAnalyzer> createMissingPackageDependencyAnalyzer() {
    return std::make_shared<MissingPackageDependencyAnalyzer>();
}

DEPATTR_DESCRIBE_ANALYZER(MissingPackageDependency, "missing-package-dependency", "AnalyzerMissingPackageDependency",
                          missingPackageDependencyKinds)

}  // namespace dependency::attribute
