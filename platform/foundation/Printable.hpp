#pragma once
// Text from outside (node IDs, file names, messages of host code) made safe to
// print on a terminal, and the error type whose text is already so.

#include <stdexcept>
#include <string>
#include <string_view>

namespace foundation::printable {

// `text` with control characters written as escapes (\n, \r, \t, \x1b; a
// backslash doubled), so that it can neither move the cursor nor ring.
std::string escapeControls(std::string_view text);
// The same without a copy where nothing needs an escape: `text` itself, else
// the escaped text made in `storage`, which the view returned then shows.
std::string_view escapeControls(std::string_view text, std::string& storage);

// Adds `text` to `out`: runs of characters that `plain` accepts (nearly all
// of any text) are copied whole, and each other one is written by
// `escape(out, c)`. The escapes of terminals and of JSON are made with it.
template <class Plain, class Escape>
void appendEscaped(std::string& out, std::string_view text, Plain plain, Escape escape) {
    for (std::size_t i = 0; i < text.size();) {
        std::size_t run = i;
        while (run < text.size() && plain(text[run])) {
            ++run;
        }
        out.append(text.data() + i, run - i);
        if (run == text.size()) {
            break;
        }
        escape(out, text[run]);
        i = run + 1;
    }
}

// An error whose text is ready to print: control characters that came from
// outside are escaped already, and its line breaks are meant (an error of host
// code with the calls that led to it, one per line).
class EscapedError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace foundation::printable
