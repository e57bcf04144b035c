#include "cli/ProgressMeter.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace depattr::cli {

namespace {
constexpr std::size_t barWidth = 40;
// Reading the clock for every node would cost more than a simple analyzer does.
constexpr std::size_t nodesBetweenClockReads = 256;
}  // namespace

ProgressMeter::ProgressMeter(std::size_t nodeCount, std::ostream& out, Clock::duration delay,
                             Clock::duration interval)
    : total_(nodeCount), out_(out), start_(Clock::now()), delay_(delay), interval_(interval),
      nextDraw_(start_ + delay) {}

std::vector<std::shared_ptr<dependency::attribute::Attribute>> ProgressMeter::analyze(
    std::shared_ptr<dependency::graph::Node> const&, std::shared_ptr<dependency::graph::Graph const> const&) const {
    ++done_;
    if (done_ % nodesBetweenClockReads == 0 || done_ == total_) {
        if (auto const now = Clock::now(); now >= nextDraw_) {
            nextDraw_ = now + interval_;
            draw();
        }
    }
    return {};
}

void ProgressMeter::draw() const {
    // A graph may yield a node more than once; the bar never runs past full.
    std::size_t const done = std::min(done_, total_);
    std::size_t const filled = total_ == 0 ? barWidth : done * barWidth / total_;
    unsigned const percent = total_ == 0 ? 100U : static_cast<unsigned>(done * 100 / total_);
    out_ << fmt::format("\r[{:#<{}}{:<{}}] {:>3}% {}/{} nodes", "", filled, "", barWidth - filled, percent, done,
                        total_)
         << std::flush;
    drawn_ = true;
}

void ProgressMeter::finish() {
    if (drawn_) {
        out_ << "\r\x1b[2K" << std::flush;
        drawn_ = false;
    }
}

}  // namespace depattr::cli
