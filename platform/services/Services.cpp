#include "platform/services/ImmutableGraph.hpp"
#include "platform/services/NullStreamBuffer.hpp"
#include "platform/services/Shareable.hpp"

namespace dependency::services {

namespace {

std::atomic<WithdrawHook> withdrawHook{nullptr};

// Overflow is the only operation a discarding buffer needs: with no put area,
// every character reaches it and is dropped.
class NullStreamBuffer final : public std::basic_streambuf<char16_t> {
protected:
    int_type overflow(int_type ch) override { return traits_type::not_eof(ch); }
    std::streamsize xsputn(char_type const*, std::streamsize count) override { return count; }
};

}  // namespace

Shareable::Shareable(std::string const& hostClassName) : hostClassName_(hostClassName) {}

Shareable::~Shareable() {
    if (isPublished()) {
        if (auto const hook = withdrawHook.load(std::memory_order_acquire)) {
            hook(this);
        }
    }
}

SharingType Shareable::getSharingType() const {
    return SharingType::SharedHandle;
}

std::string const& Shareable::getFullyQualifiedQcosTypeName() const {
    return hostClassName_;
}

void Shareable::markPublished() noexcept {
    published_.store(true, std::memory_order_release);
}

void setWithdrawHook(WithdrawHook hook) noexcept {
    withdrawHook.store(hook, std::memory_order_release);
}

ImmutableGraph::ImmutableGraph(std::shared_ptr<dependency::graph::Graph const> graph)
    : Shareable("dependencies.internal.graph.Graph"), graph_(std::move(graph)) {}

ImmutableGraph::~ImmutableGraph() = default;

std::shared_ptr<std::basic_streambuf<char16_t>> createNullStreamBuffer() {
    return std::make_shared<NullStreamBuffer>();
}

}  // namespace dependency::services
