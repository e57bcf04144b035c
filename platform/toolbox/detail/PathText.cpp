#include "platform/toolbox/detail/PathText.hpp"

#include <boost/locale/encoding_utf.hpp>

namespace dependency::toolbox::detail {

std::filesystem::path toPath(std::u16string const& text) {
    return std::filesystem::path(boost::locale::conv::utf_to_utf<char>(text));
}

std::u16string toText(std::filesystem::path const& path) {
    return boost::locale::conv::utf_to_utf<char16_t>(path.native());
}

std::filesystem::path normalizedAbsolute(std::filesystem::path const& path) {
    std::filesystem::path normal =
        path.is_absolute() ? path.lexically_normal() : std::filesystem::absolute(path).lexically_normal();
    if (!normal.has_filename() && normal.has_relative_path()) {
        normal = normal.parent_path();  // "/a/b/" -> "/a/b"
    }
    return normal;
}

std::u16string normalizedAbsolute(std::u16string const& path) {
    return toText(normalizedAbsolute(toPath(path)));
}

}  // namespace dependency::toolbox::detail
