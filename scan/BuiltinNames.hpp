#pragma once
// The host's built-in function names: calls to them make no graph node. The
// list is data (resources/host-builtins.txt, one name a line, '#' comments),
// built into the library; depattr.toml's `known-functions` adds names.

#include "platform/foundation/ViewHash.hpp"

#include <functional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace depattr::scan {

class BuiltinNames {
public:
    // The shipped list.
    static BuiltinNames const& shipped();
    // The names of a list in the shipped list's form: one name a line,
    // blanks around it ignored, '#' and what follows it on the line a comment.
    static BuiltinNames parse(std::string_view text);
    // The shipped list plus `extra` names (UTF-8).
    BuiltinNames withExtra(std::vector<std::string> const& extra) const;

    bool contains(std::u16string_view name) const;
    std::size_t size() const noexcept { return names_.size(); }

private:
    // Looked up by view, without making a string per lookup.
    std::unordered_set<std::u16string, foundation::U16ViewHash, std::equal_to<>> names_;
};

}  // namespace depattr::scan
