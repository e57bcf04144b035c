#include "cli/ProgressMeter.hpp"

#include "cli/Texts.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace depattr::cli {

namespace {
constexpr std::size_t barWidth = 40;
// Reading the clock for every node would cost more than a simple analyzer does.
constexpr std::size_t nodesBetweenClockReads = 256;
}  // namespace

ProgressMeter::ProgressMeter(std::size_t nodeCount, std::ostream& out, Clock::duration delay, Clock::duration interval)
    : total_(nodeCount), out_(out), start_(Clock::now()), interval_(interval), nextDraw_(start_ + delay) {}

void ProgressMeter::advance() {
    ++done_;
    if (done_ % nodesBetweenClockReads == 0 || done_ == total_) {
        if (auto const now = Clock::now(); now >= nextDraw_) {
            nextDraw_ = now + interval_;
            draw();
        }
    }
}

void ProgressMeter::loading(std::size_t done, std::size_t total) {
    loading_ = true;
    if (auto const now = Clock::now(); now >= nextDraw_) {
        nextDraw_ = now + interval_;
        drawBar(std::min(done, total), total, text("ProgressLoading"));
    }
}

void ProgressMeter::scanning(std::size_t done, std::size_t total) {
    loading_ = true;
    if (auto const now = Clock::now(); now >= nextDraw_) {
        nextDraw_ = now + interval_;
        drawBar(std::min(done, total), total,
                text("ProgressScanning", {static_cast<long>(std::min(done, total)), static_cast<long>(total)}));
    }
}

void ProgressMeter::startAnalysis(std::size_t nodeCount) {
    loading_ = false;
    total_ = nodeCount;
    done_ = 0;
}

void ProgressMeter::draw() const {
    // A graph may yield a node more than once; the bar never runs past full.
    std::size_t const done = std::min(done_, total_);
    drawBar(done, total_, text("ProgressNodes", {static_cast<long>(done), static_cast<long>(total_)}));
}

void ProgressMeter::drawBar(std::size_t done, std::size_t total, std::string const& label) const {
    std::size_t const filled = total == 0 ? barWidth : done * barWidth / total;
    unsigned const percent = total == 0 ? 100U : static_cast<unsigned>(done * 100 / total);
    // The label is padded so that a shorter one wipes out what a longer one left.
    out_ << fmt::format("\r[{:#<{}}{:<{}}] {:>3}% {:<24}", "", filled, "", barWidth - filled, percent, label)
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
