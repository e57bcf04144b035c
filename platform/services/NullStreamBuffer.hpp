#pragma once

#include <memory>
#include <streambuf>

namespace dependency::services {

// A UTF-16 stream buffer that accepts and discards all output.
std::shared_ptr<std::basic_streambuf<char16_t>> createNullStreamBuffer();

}  // namespace dependency::services
