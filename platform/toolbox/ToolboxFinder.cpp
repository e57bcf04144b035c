#include "platform/toolbox/ToolboxFinder.hpp"

#include "platform/fl/FileSystem.hpp"
#include "platform/toolbox/detail/DescriptorReader.hpp"
#include "platform/toolbox/detail/PathText.hpp"

#include <boost/container/small_vector.hpp>

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <system_error>
#include <utility>

namespace dependency::toolbox {

ProductInfo::ProductInfo(std::u16string name, std::u16string baseCode, int kind, bool installed, std::u16string verDir,
                         std::vector<std::u16string> locators)
    : name_(std::move(name)),
      baseCode_(std::move(baseCode)),
      kind_(kind),
      installed_(installed),
      verDir_(std::move(verDir)),
      locators_(std::move(locators)) {}

namespace {

// The hash of a path prefix, extended one code unit at a time, so that every
// prefix of a path is hashed in one pass over it.
constexpr std::uint64_t hashStart = 0xcbf29ce484222325ull;
constexpr std::uint64_t extendHash(std::uint64_t hash, char16_t unit) noexcept {
    return (hash ^ unit) * 0x100000001b3ull;
}

std::uint64_t hashOfPath(std::u16string const& path) noexcept {
    std::uint64_t hash = hashStart;
    for (char16_t const unit : path) {
        hash = extendHash(hash, unit);
    }
    return hash;
}

// What a path is to the finder: it holds a NUL character (and so names no
// file), or it is absolute and already what normalising it would make (in
// native form, which has no empty or "." component, no separator at the end
// but for the root and no surrogate code unit, and with no ".." component
// either), or neither.
enum class PathShape { HasNul, Normal, NotNormal };

bool hasParentComponent(std::u16string_view path) noexcept {
    for (auto at = path.find(u"/.."); at != std::u16string_view::npos; at = path.find(u"/..", at + 1)) {
        if (at + 3 == path.size() || path[at + 3] == u'/') {
            return true;
        }
    }
    return false;
}

PathShape shapeOf(std::u16string const& path) noexcept {
    if (fl::filesystem::detail::is_plain_absolute(path)) {
        return PathShape::Normal;  // the usual path, told in one pass
    }
    if (fl::filesystem::detail::is_native_form(path) && !hasParentComponent(path)) {
        return PathShape::Normal;
    }
    return path.find(u'\0') == std::u16string::npos ? PathShape::NotNormal : PathShape::HasNul;
}

std::mutex instanceMutex;
std::shared_ptr<ToolboxFinder> instance;  // guarded by instanceMutex

std::shared_ptr<ToolboxFinder> loadFromEnvironment() {
    char const* root = std::getenv("DEPATTR_INSTALL_ROOT");
    if (root == nullptr || *root == '\0') {
        return std::make_shared<ToolboxFinder>(ToolboxFinder::ProductList{});
    }
    return ToolboxFinder::fromInstallRoot(root);
}

}  // namespace

ToolboxFinder::ToolboxFinder(ProductList products) : products_(std::move(products)) {
    normalizedVerDirs_.reserve(products_.size());
    for (auto const& product : products_) {
        bool const usable = product && product->isInstalled() && !product->getVerDir().empty();
        normalizedVerDirs_.push_back(usable ? detail::normalizedAbsolute(product->getVerDir()) : std::u16string());
        if (auto const& folder = normalizedVerDirs_.back(); !folder.empty()) {
            productsByFolderHash_[hashOfPath(folder)].push_back(normalizedVerDirs_.size() - 1);
            if (folderLengths_.size() <= folder.size()) {
                folderLengths_.resize(folder.size() + 1);
            }
            folderLengths_[folder.size()] = true;
        }
    }
    // The beginnings, as long as the shortest folder, that a path inside any
    // installed product must have. The root folder begins every path: with it
    // installed there is nothing to tell apart.
    std::size_t shortest = folderLengths_.size();
    for (std::size_t length = 1; length < folderLengths_.size(); ++length) {
        if (folderLengths_[length]) {
            shortest = length;
            break;
        }
    }
    if (shortest > 1 && shortest < folderLengths_.size()) {
        for (auto const& folder : normalizedVerDirs_) {
            if (!folder.empty()) {
                folderBeginnings_.push_back(folder.substr(0, shortest));
            }
        }
        std::sort(folderBeginnings_.begin(), folderBeginnings_.end());
        folderBeginnings_.erase(std::unique(folderBeginnings_.begin(), folderBeginnings_.end()),
                                folderBeginnings_.end());
    }
    for (std::size_t i = 0; i < products_.size(); ++i) {
        if (!products_[i]) {
            continue;
        }
        auto const& locators = products_[i]->getLocators();
        for (std::size_t j = 0; j < locators.size(); ++j) {
            // A descriptor listing one locator twice still answers with the product once.
            if (std::find(locators.begin(), locators.begin() + j, locators[j]) == locators.begin() + j) {
                productsByLocator_[locators[j]].push_back(i);
            }
        }
    }
}

std::shared_ptr<ToolboxFinder> ToolboxFinder::fromInstallRoot(std::filesystem::path const& root) {
    std::error_code error;
    if (!std::filesystem::is_directory(root, error)) {
        throw ToolboxCatalogError(root.string(), 0, 0, "installation root is not a folder");
    }
    std::filesystem::path const productsFolder = root / "products";
    if (!std::filesystem::exists(productsFolder, error)) {
        return std::make_shared<ToolboxFinder>(ProductList{});
    }

    std::vector<std::filesystem::path> descriptorFiles;
    try {
        for (auto const& entry : std::filesystem::directory_iterator(productsFolder)) {
            // Every .json entry is a descriptor: one that is a folder, a link to
            // nothing or unreadable is reported by the reader, not skipped.
            if (entry.path().extension() == ".json") {
                descriptorFiles.push_back(entry.path());
            }
        }
    } catch (std::filesystem::filesystem_error const& failure) {
        throw ToolboxCatalogError(productsFolder.string(), 0, 0, failure.code().message());
    }
    std::sort(descriptorFiles.begin(), descriptorFiles.end());

    std::filesystem::path const absoluteRoot = std::filesystem::absolute(root).lexically_normal();
    ProductList products;
    products.reserve(descriptorFiles.size());
    for (auto const& file : descriptorFiles) {
        products.push_back(detail::readProductDescriptor(file, absoluteRoot));
    }
    return std::make_shared<ToolboxFinder>(std::move(products));
}

std::shared_ptr<ToolboxFinder> ToolboxFinder::getInstance() {
    std::lock_guard<std::mutex> lock(instanceMutex);
    if (!instance) {
        instance = loadFromEnvironment();
    }
    return instance;
}

void ToolboxFinder::setInstallRoot(std::filesystem::path const& root) {
    auto finder = root.empty() ? std::make_shared<ToolboxFinder>(ProductList{}) : fromInstallRoot(root);
    setInstance(std::move(finder));
}

void ToolboxFinder::setInstance(std::shared_ptr<ToolboxFinder> finder) {
    std::lock_guard<std::mutex> lock(instanceMutex);
    // The previous catalogue leaves with `finder`, after the lock is released.
    instance.swap(finder);
}

ToolboxFinder::ProductList ToolboxFinder::findProductsByLocator(std::u16string const& locator) const {
    ProductList found;
    auto const entry = productsByLocator_.find(locator);
    if (entry != productsByLocator_.end()) {
        found.reserve(entry->second.size());
        for (std::size_t index : entry->second) {
            found.push_back(products_[index]);
        }
    }
    return found;
}

ToolboxFinder::ProductList ToolboxFinder::findProductsContainingPath(std::u16string const& path) const {
    ProductList found;
    if (path.empty() || folderLengths_.empty()) {
        return found;
    }
    // A path with a NUL character names no file: it is in no product's
    // folder. A path that is normal already (the usual case) is taken as it is.
    PathShape const shape = shapeOf(path);
    if (shape == PathShape::HasNul) {
        return found;
    }
    std::u16string normalizedPath;
    if (shape == PathShape::NotNormal) {
        normalizedPath = detail::normalizedAbsolute(path);
    }
    std::u16string const& normal = normalizedPath.empty() ? path : normalizedPath;
    // Most paths of a graph lie outside every product: a path that does not
    // begin as some installed folder does lies in none, and is told so after
    // one comparison of its beginning.
    if (!folderBeginnings_.empty()) {
        std::size_t const length = folderBeginnings_.front().size();
        if (normal.size() < length ||
            !std::binary_search(folderBeginnings_.begin(), folderBeginnings_.end(),
                                std::u16string_view(normal).substr(0, length),
                                [](std::u16string_view a, std::u16string_view b) { return a < b; })) {
            return found;
        }
    }
    // The folders that may contain the path are the path itself and its
    // prefixes that end before a separator (and the root, "/", whole). Each
    // prefix's hash comes from the one before it; a hash that names products
    // is confirmed by comparing the text. Longer prefixes are inner folders.
    // Only a prefix as long as some installed version folder can be one, so
    // the path is read no further than the longest of them.
    struct Prefix {
        std::size_t end;
        std::uint64_t hash;
    };
    boost::container::small_vector<Prefix, 8> prefixes;
    std::size_t const readUpTo = std::min(normal.size(), folderLengths_.size() - 1);
    std::uint64_t hash = hashStart;
    for (std::size_t i = 0; i < normal.size() && i <= readUpTo; ++i) {
        if (normal[i] == u'/') {
            std::size_t const end = i == 0 ? 1 : i;
            if (folderLengths_[end]) {
                prefixes.push_back({end, i == 0 ? extendHash(hash, u'/') : hash});
            }
        }
        if (i < readUpTo) {
            hash = extendHash(hash, normal[i]);
        }
    }
    if (normal.size() > 1 && normal.size() == readUpTo && folderLengths_[normal.size()]) {
        prefixes.push_back({normal.size(), hash});
    }
    for (auto prefix = prefixes.rbegin(); prefix != prefixes.rend(); ++prefix) {
        auto const entry = productsByFolderHash_.find(prefix->hash);
        if (entry == productsByFolderHash_.end()) {
            continue;
        }
        for (std::size_t const index : entry->second) {
            auto const& folder = normalizedVerDirs_[index];
            if (folder.size() == prefix->end && normal.compare(0, folder.size(), folder) == 0) {
                found.push_back(products_[index]);
            }
        }
    }
    return found;
}

}  // namespace dependency::toolbox
