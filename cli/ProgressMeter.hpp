#pragma once
// A progress bar for long runs: first while the graph file is read (by bytes),
// then while it is analysed, node by node (the analysis session's observer
// moves it on).

#include <chrono>
#include <cstddef>
#include <ostream>
#include <string>

namespace depattr::cli {

class ProgressMeter {
public:
    using Clock = std::chrono::steady_clock;

    // Draws on `out` once the analysis has run for `delay`, so that short runs
    // show nothing, and then at most every `interval`.
    ProgressMeter(std::size_t nodeCount, std::ostream& out, Clock::duration delay = std::chrono::milliseconds(500),
                  Clock::duration interval = std::chrono::milliseconds(100));

    // While the graph file is read: `done` of `total` bytes.
    void loading(std::size_t done, std::size_t total);
    // While a scanned folder's code is read and parsed: `done` of `total` files.
    void scanning(std::size_t done, std::size_t total);
    // The analysis starts: the bar counts nodes from here.
    void startAnalysis(std::size_t nodeCount);

    // One more node is being analysed.
    void advance();

    // Erases the bar, if one was drawn, so that the report starts on a clean line.
    void finish();

private:
    void draw() const;
    void drawBar(std::size_t done, std::size_t total, std::string const& label) const;

    std::size_t total_;
    std::ostream& out_;
    Clock::time_point start_;
    Clock::duration interval_;
    std::size_t done_ = 0;
    Clock::time_point nextDraw_;
    mutable bool drawn_ = false;
    bool loading_ = false;
};

}  // namespace depattr::cli
