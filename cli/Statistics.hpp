#pragma once
// --statistics: how many findings of each finding ID a report shows.

#include "cli/Report.hpp"

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

namespace depattr::cli {

struct FindingCount {
    std::string id;  // the finding ID as the report shows it, control characters escaped
    std::size_t count = 0;
};

// The reported findings (not those the baseline hides) counted per finding
// ID, most frequent first, equal counts by ID.
std::vector<FindingCount> findingCounts(Report const& report);

// One line per finding ID: its count, right-aligned, and the ID.
void writeStatistics(std::ostream& out, Report const& report);

}  // namespace depattr::cli
