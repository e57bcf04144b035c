#pragma once
// The base of every native object that can be shown to the host language.

#include <atomic>
#include <memory>
#include <string>
#include <string_view>

namespace dependency::services {

// How a native object is shared with the host: every object of this library is
// reference-counted and shared by handle, never copied into the host.
enum class SharingType : int {
    SharedHandle = 1,
};

// A process-wide copy of a name that lives until the process ends: the same
// text always gives the same string. Host class names are kept this way, so
// that objects made by the thousand copy no text.
std::string const& internName(std::string_view name);

// A name that internName has given, taken as it stands by Shareable: classes
// whose objects are made by the thousand intern their name once.
struct InternedName {
    std::string const& text;
};

class Shareable : public std::enable_shared_from_this<Shareable> {
public:
    explicit Shareable(std::string_view hostClassName);
    explicit Shareable(InternedName hostClassName) noexcept : hostClassName_(&hostClassName.text) {}
    virtual ~Shareable();

    Shareable(Shareable const&) = delete;
    Shareable& operator=(Shareable const&) = delete;

    virtual SharingType getSharingType() const;
    virtual std::string const& getFullyQualifiedQcosTypeName() const;

    // A further owner of this object, viewed as T. Requires that a
    // std::shared_ptr already owns the object (throws std::bad_weak_ptr otherwise).
    template <class T>
    std::shared_ptr<T> sharedAs() {
        return std::dynamic_pointer_cast<T>(shared_from_this());
    }
    template <class T>
    std::shared_ptr<T const> sharedAs() const {
        return std::dynamic_pointer_cast<T const>(shared_from_this());
    }

    // Host object registry: the host runtime publishes an object when it hands
    // it to host code; the destructor withdraws a published object again.
    void markPublished() noexcept;
    bool isPublished() const noexcept { return published_.load(std::memory_order_acquire); }

private:
    std::string const* hostClassName_;  // interned
    std::atomic<bool> published_{false};
};

// Called with every published object that is destroyed. The host runtime
// installs it; by default nothing is registered and nothing is called.
using WithdrawHook = void (*)(Shareable const*) noexcept;
void setWithdrawHook(WithdrawHook hook) noexcept;

}  // namespace dependency::services
