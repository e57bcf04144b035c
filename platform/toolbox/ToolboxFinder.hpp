#pragma once
// The product catalogue of an installation: which add-on products exist, which
// of them are installed, and where.
//
// An installation root holds one JSON descriptor per product in
// <root>/products/*.json (format in docs/installation-root.md). The
// process-wide finder reads the root named by DEPATTR_INSTALL_ROOT, or the one
// given to setInstallRoot; without either the catalogue is empty.

#include "platform/foundation/SourceText.hpp"
#include "platform/toolbox/ProductInfo.hpp"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

namespace dependency::toolbox {

// A product descriptor (or the installation root itself) that cannot be read.
// what() reads "<file>:<line>:<column>: <reason>"; line and column are 1-based,
// and both are 0 when the error has no position in the file.
class ToolboxCatalogError : public foundation::source::FileError {
public:
    using FileError::FileError;
};

// An immutable catalogue; every query may run on any number of threads at once.
class ToolboxFinder {
public:
    using ProductList = std::vector<std::shared_ptr<ProductInfo>>;

    // A catalogue of exactly these products, in this order (the finder's order).
    explicit ToolboxFinder(ProductList products);

    // Reads every descriptor of the installation root, in file-name order.
    // Throws ToolboxCatalogError naming the file (and position) of the first bad
    // descriptor, or naming the root when it is not a folder. A root without a
    // products/ folder is an empty catalogue.
    static std::shared_ptr<ToolboxFinder> fromInstallRoot(std::filesystem::path const& root);

    // The process-wide finder. On first use (and after setInstance(nullptr)) it
    // is read from DEPATTR_INSTALL_ROOT, or is empty when that is unset or
    // empty; a bad root makes this call throw ToolboxCatalogError, and the next
    // call tries again. Callers keep the returned catalogue even if another is
    // installed later.
    static std::shared_ptr<ToolboxFinder> getInstance();
    // Reads `root` and makes it the process-wide catalogue; an empty path
    // installs an empty catalogue. On failure the previous catalogue stays.
    static void setInstallRoot(std::filesystem::path const& root);
    // Installs a ready catalogue (embedding, tests); null goes back to the
    // environment on the next getInstance.
    static void setInstance(std::shared_ptr<ToolboxFinder> finder);

    // Every product, installed or not, that answers to `locator` (exact match),
    // in the finder's order; empty for an unknown locator.
    ProductList findProductsByLocator(std::u16string const& locator) const;
    // The installed products whose version folder is `path` or contains it,
    // innermost version folder first, then in the finder's order. `path` is a
    // native-form path; a relative one is taken against the current folder, an
    // empty one or one with a NUL character lies in no product. Containment is
    // by whole path components: /a/bc is not inside /a/b.
    ProductList findProductsContainingPath(std::u16string const& path) const;

    ProductList const& getProducts() const noexcept { return products_; }

private:
    ProductList products_;
    std::vector<std::u16string> normalizedVerDirs_;  // parallel to products_; empty when not installed
    // Installed products by a hash of their normalised version folder, in
    // finder order: a path is matched by hashing its prefixes as it is read.
    std::unordered_map<std::uint64_t, std::vector<std::size_t>> productsByFolderHash_;
    // Whether some installed version folder is as long as the index: only
    // prefixes of such a length are looked up. Empty when none is installed.
    std::vector<bool> folderLengths_;
    // The installed folders' beginnings as long as the shortest of them, sorted;
    // empty when the root folder is installed or none is.
    std::vector<std::u16string> folderBeginnings_;
    std::unordered_map<std::u16string, std::vector<std::size_t>> productsByLocator_;  // indexes in finder order
};

}  // namespace dependency::toolbox
