#pragma once

#include <cstdint>
#include <string_view>

namespace dependency::attribute {

// How grave a finding is. The numeric order is the severity order: thresholds
// keep everything numerically at or above them.
enum class Severity : std::int32_t {
    Information = 0,
    Warning = 1,
    Problem = 2,
};

// "Information", "Warning" or "Problem"; empty for a value outside the enumeration.
std::string_view toString(Severity severity) noexcept;

}  // namespace dependency::attribute
