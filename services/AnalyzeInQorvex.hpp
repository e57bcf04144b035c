#pragma once
// The host's road into an analysis: analyzeInQorvex(graph) runs every analyzer
// of the host-language registry over the graph, analyzeInQorvex(graph,
// analyzers) exactly the given ones, in element order. The result is a host
// object of class "dependencies.internal.attribute.GraphAttributes".

#include "platform/host/Array.hpp"

namespace dependency::services {

// A gateway with plain output slots: the caller owns the array stored in
// plhs[0], which is set even when no output was asked for. Argument counts
// are checked first: more than 1 output, more than 2 inputs, fewer than 1
// input. C linkage, so that the host finds it by its plain name.
extern "C" void analyzeInQorvex(int nlhs, qxArray* plhs[], int nrhs, qxArray const* prhs[]);

}  // namespace dependency::services
