#include "platform/services/ImmutableGraph.hpp"
#include "platform/services/NullStreamBuffer.hpp"
#include "platform/services/Shareable.hpp"

#include <algorithm>
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

// The process-wide copy of each host class name. A program has a handful of
// class names and makes objects of them all the time: the ones interned so far
// sit in a short array that is searched without a lock; only a name met for
// the first time takes the lock, and names past the array's length live in a
// set under the lock.
class ClassNames {
public:
    std::string const* intern(std::string const& name) {
        std::size_t const known = count_.load(std::memory_order_acquire);
        for (std::size_t i = 0; i < known; ++i) {
            if (*recent_[i] == name) {
                return recent_[i];
            }
        }
        std::lock_guard const lock(mutex_);
        auto const* interned = &*all_.insert(name).first;  // set elements never move
        std::size_t const now = count_.load(std::memory_order_relaxed);
        if (now < recent_.size() &&
            std::find(recent_.begin(), recent_.begin() + now, interned) == recent_.begin() + now) {
            recent_[now] = interned;
            count_.store(now + 1, std::memory_order_release);
        }
        return interned;
    }

private:
    std::array<std::string const*, 16> recent_{};
    std::atomic<std::size_t> count_{0};
    std::mutex mutex_;
    std::unordered_set<std::string> all_;
};

ClassNames& classNames() {
    // Never destroyed: objects may be released during static destruction.
    static auto* const names = new ClassNames;
    return *names;
}

}  // namespace

Shareable::Shareable(std::string const& hostClassName) : hostClassName_(classNames().intern(hostClassName)) {}

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
