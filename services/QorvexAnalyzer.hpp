#pragma once
// An analyzer written in the host language: the adapter that lets the driver
// call a host object's "analyze" method like any native analyzer. Host code
// runs on the VM's command thread only, so every call is handed to the VM's
// command distributor and the caller blocks until the host code has finished.

#include "attribute/AttributeAnalyzer.hpp"
#include "platform/host/HostClasses.hpp"
#include "platform/host/Qcos.hpp"

#include <memory>
#include <mutex>
#include <vector>

namespace dependency::attribute {

class QorvexAnalyzer : public AttributeAnalyzer {
public:
    // Keeps one more reference to the host analyzer object.
    explicit QorvexAnalyzer(qcos::COSInterfacePtr const& analyzerObject);
    ~QorvexAnalyzer() override;

    // Calls analyzerObject.analyze(node, graph) on the command thread of the
    // current VM, with all host output discarded, and returns the attributes
    // of the returned array in element order. Host errors come back as the
    // host error (context "AttributeAnalyzer.analyze"); without a command
    // distributor the call fails with cmddistributor::RuntimeException
    // (status 2) "No CmdDistributor available" and runs nothing.
    std::vector<std::shared_ptr<Attribute>> analyze(
        std::shared_ptr<dependency::graph::Node> const& node,
        std::shared_ptr<dependency::graph::Graph const> const& graph) const override;

    qcos::COSInterfacePtr const& getAnalyzerObject() const noexcept { return analyzerObject_; }

private:
    // The graph object of the graph last analysed, which keeps the node
    // objects it handed out: the same objects for the same nodes on every call.
    struct GraphObjects {
        std::mutex mutex;
        std::shared_ptr<dependency::graph::Graph const> graph;
        qcos::COSInterfacePtr object;
        std::shared_ptr<services::NodeObjects> nodes;
    };

    qcos::COSInterfacePtr analyzerObject_;
    std::shared_ptr<GraphObjects> graphObjects_;
};

}  // namespace dependency::attribute
