#pragma once
// A progress bar for long runs: first while the graph file is read (by bytes),
// then while it is analysed. For the analysis it takes part as one more
// analyzer that finds nothing: the driver calls it once per node, which is all
// it needs to count, and the findings stay exactly what the real analyzers give.

#include "attribute/AttributeAnalyzer.hpp"

#include <chrono>
#include <cstddef>
#include <ostream>
#include <string>

namespace depattr::cli {

class ProgressMeter final : public dependency::attribute::AttributeAnalyzer {
public:
    using Clock = std::chrono::steady_clock;

    // Draws on `out` once the analysis has run for `delay`, so that short runs
    // show nothing, and then at most every `interval`.
    ProgressMeter(std::size_t nodeCount, std::ostream& out, Clock::duration delay = std::chrono::milliseconds(500),
                  Clock::duration interval = std::chrono::milliseconds(100));

    // While the graph file is read: `done` of `total` bytes.
    void loading(std::size_t done, std::size_t total);
    // The analysis starts: the bar counts nodes from here.
    void startAnalysis(std::size_t nodeCount);

    std::vector<std::shared_ptr<dependency::attribute::Attribute>> analyze(
        std::shared_ptr<dependency::graph::Node> const& node,
        std::shared_ptr<dependency::graph::Graph const> const& graph) const override;

    // Erases the bar, if one was drawn, so that the report starts on a clean line.
    void finish();

private:
    void draw() const;
    void drawBar(std::size_t done, std::size_t total, std::string const& label) const;

    std::size_t total_;
    std::ostream& out_;
    Clock::time_point start_;
    Clock::duration interval_;
    mutable std::size_t done_ = 0;
    mutable Clock::time_point nextDraw_;
    mutable bool drawn_ = false;
    bool loading_ = false;
};

}  // namespace depattr::cli
