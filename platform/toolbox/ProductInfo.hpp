#pragma once
// One entry of the product catalogue of an installation.

#include <string>
#include <vector>

namespace dependency::toolbox {

// An add-on product as its catalogue descriptor describes it. Immutable.
class ProductInfo {
public:
    // `verDir` is the product's version folder in native form (absolute), or
    // empty for a product that has none (one that is not installed).
    ProductInfo(std::u16string name, std::u16string baseCode, int kind, bool installed, std::u16string verDir,
                std::vector<std::u16string> locators);

    std::u16string const& getName() const noexcept { return name_; }
    std::u16string const& getBaseCode() const noexcept { return baseCode_; }
    int getKind() const noexcept { return kind_; }
    bool isInstalled() const noexcept { return installed_; }
    std::u16string const& getVerDir() const noexcept { return verDir_; }
    // The locator strings that name this product, as listed in its descriptor.
    std::vector<std::u16string> const& getLocators() const noexcept { return locators_; }

private:
    std::u16string name_;
    std::u16string baseCode_;
    int kind_;
    bool installed_;
    std::u16string verDir_;
    std::vector<std::u16string> locators_;
};

}  // namespace dependency::toolbox
