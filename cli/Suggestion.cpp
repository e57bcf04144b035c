#include "cli/Suggestion.hpp"

#include <algorithm>

namespace depattr::cli {

std::size_t editDistance(std::string_view a, std::string_view b) {
    // Three rows of the table suffice: a swap looks two rows back.
    std::vector<std::size_t> before(b.size() + 1);
    std::vector<std::size_t> previous(b.size() + 1);
    std::vector<std::size_t> current(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) {
        previous[j] = j;
    }
    for (std::size_t i = 1; i <= a.size(); ++i) {
        current[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            std::size_t const substitution = previous[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            current[j] = std::min({previous[j] + 1, current[j - 1] + 1, substitution});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                current[j] = std::min(current[j], before[j - 2] + 1);
            }
        }
        std::swap(before, previous);
        std::swap(previous, current);
    }
    return previous[b.size()];
}

std::string closestName(std::string_view given, std::vector<std::string> const& known) {
    std::size_t const length = given.size();
    std::size_t const allowed = length <= 4 ? 1 : length <= 8 ? 2 : 3;
    std::string best;
    std::size_t bestDistance = allowed + 1;
    for (auto const& name : known) {
        auto const distance = editDistance(given, name);
        if (distance > 0 && distance < bestDistance) {
            best = name;
            bestDistance = distance;
        }
    }
    return best;
}

}  // namespace depattr::cli
