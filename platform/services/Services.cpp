#include "platform/foundation/ViewHash.hpp"
#include "platform/services/ImmutableGraph.hpp"
#include "platform/services/NullStreamBuffer.hpp"
#include "platform/services/Shareable.hpp"

#include <array>
#include <mutex>
#include <unordered_set>

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

std::string const& internName(std::string_view name) {
    // The same few names come again and again: each thread keeps the last ones
    // it asked for and takes no lock for them.
    thread_local std::array<std::string const*, 32> recent{};
    thread_local std::size_t next = 0;
    for (auto const* known : recent) {
        if (known != nullptr && *known == name) {
            return *known;
        }
    }
    struct Pool {
        std::mutex mutex;
        // Nodes never move, so references stay valid; looked up by view, so a
        // name already known costs no allocation.
        std::unordered_set<std::string, foundation::ViewHash, std::equal_to<>> names;
    };
    static auto* pool = new Pool;  // never destroyed: objects may be made while static destructors run
    std::string const* interned = nullptr;
    {
        std::lock_guard lock(pool->mutex);
        auto found = pool->names.find(name);
        if (found == pool->names.end()) {
            found = pool->names.emplace(name).first;
        }
        interned = &*found;
    }
    recent[next] = interned;
    next = (next + 1) % recent.size();
    return *interned;
}

Shareable::Shareable(std::string_view hostClassName) : hostClassName_(&internName(hostClassName)) {}

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
    return *hostClassName_;
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
