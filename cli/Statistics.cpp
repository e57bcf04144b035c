#include "cli/Statistics.hpp"

#include <algorithm>
#include <unordered_map>

namespace depattr::cli {

std::vector<FindingCount> findingCounts(Report const& report) {
    // Counted by the identity's ID text first (findings share identity
    // objects), then merged by the ID it spells.
    std::unordered_map<std::u16string const*, std::size_t> byIdentity;
    for (auto const& entry : report.nodes) {
        for (auto const& finding : entry.findings) {
            if (!finding.suppressed) {
                ++byIdentity[&finding.attribute->getID()];
            }
        }
    }
    std::unordered_map<std::u16string, std::size_t> byId;
    for (auto const& [id, count] : byIdentity) {
        byId[*id] += count;
    }
    std::vector<FindingCount> counts;
    counts.reserve(byId.size());
    for (auto const& [id, count] : byId) {
        counts.push_back({escapeControls(toUtf8(id)), count});
    }
    std::sort(counts.begin(), counts.end(), [](FindingCount const& a, FindingCount const& b) {
        return a.count != b.count ? a.count > b.count : a.id < b.id;
    });
    return counts;
}

void writeStatistics(std::ostream& out, Report const& report) {
    auto const counts = findingCounts(report);
    std::size_t width = 1;
    for (auto const& entry : counts) {
        width = std::max(width, std::to_string(entry.count).size());
    }
    for (auto const& entry : counts) {
        auto const number = std::to_string(entry.count);
        out << std::string(width - number.size(), ' ') << number << "  " << entry.id << '\n';
    }
}

}  // namespace depattr::cli
