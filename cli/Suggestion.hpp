#pragma once
// "Did you mean ...?": the known name closest to a misspelt one.

#include <string>
#include <string_view>
#include <vector>

namespace depattr::cli {

// The edit distance of two texts: insertions, deletions, substitutions and
// swaps of two neighbouring characters each count one.
std::size_t editDistance(std::string_view a, std::string_view b);

// The known name closest to `given` when it is close enough to be a slip of
// the keyboard (at most one edit for names up to four characters, two up to
// eight, three beyond), else empty. Of equally close names the first known
// is taken.
std::string closestName(std::string_view given, std::vector<std::string> const& known);

}  // namespace depattr::cli
