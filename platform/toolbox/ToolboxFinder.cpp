#include "platform/toolbox/ToolboxFinder.hpp"

#include "platform/toolbox/detail/DescriptorReader.hpp"
#include "platform/toolbox/detail/PathText.hpp"

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

// Whole-component prefix test on normalized paths without trailing separators
// (except for the file-system root itself).
bool folderContains(std::u16string const& folder, std::u16string const& path) {
    if (folder.empty() || path.size() < folder.size() || path.compare(0, folder.size(), folder) != 0) {
        return false;
    }
    return path.size() == folder.size() || folder.back() == u'/' || path[folder.size()] == u'/';
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
    if (path.empty()) {
        return found;
    }
    std::u16string const normalizedPath = detail::normalizedAbsolute(path);
    std::vector<std::size_t> matches;
    for (std::size_t i = 0; i < products_.size(); ++i) {
        if (folderContains(normalizedVerDirs_[i], normalizedPath)) {
            matches.push_back(i);
        }
    }
    // Innermost first: a longer containing folder lies inside a shorter one.
    std::stable_sort(matches.begin(), matches.end(), [this](std::size_t a, std::size_t b) {
        return normalizedVerDirs_[a].size() > normalizedVerDirs_[b].size();
    });
    found.reserve(matches.size());
    for (std::size_t index : matches) {
        found.push_back(products_[index]);
    }
    return found;
}

}  // namespace dependency::toolbox
