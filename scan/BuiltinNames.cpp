#include "scan/BuiltinNames.hpp"

#include "platform/fl/MessageCatalog.hpp"

namespace depattr::scan {

namespace detail {
// The text of resources/host-builtins.txt, built into the library.
std::string_view shippedBuiltinNamesText();
}  // namespace detail

namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

}  // namespace

BuiltinNames BuiltinNames::parse(std::string_view text) {
    BuiltinNames names;
    while (!text.empty()) {
        std::size_t const end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        line = line.substr(0, line.find('#'));
        while (!line.empty() && isBlank(line.front())) {
            line.remove_prefix(1);
        }
        while (!line.empty() && isBlank(line.back())) {
            line.remove_suffix(1);
        }
        if (!line.empty()) {
            // Names are ASCII identifiers (dotted for package functions).
            names.names_.emplace(line.begin(), line.end());
        }
    }
    return names;
}

BuiltinNames const& BuiltinNames::shipped() {
    static BuiltinNames const names = parse(detail::shippedBuiltinNamesText());
    return names;
}

BuiltinNames BuiltinNames::withExtra(std::vector<std::string> const& extra) const {
    BuiltinNames result = *this;
    for (auto const& name : extra) {
        result.names_.insert(fl::i18n::to_ustring(name));
    }
    return result;
}

bool BuiltinNames::contains(std::u16string_view name) const {
    return names_.find(name) != names_.end();
}

}  // namespace depattr::scan
