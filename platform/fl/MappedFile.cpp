// MappedFile: a regular file's content mapped into memory, guarded against
// the file shrinking while it is read.

#include "platform/fl/FileSystem.hpp"

#include "platform/fl/MessageCatalog.hpp"

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <mutex>

namespace fl::filesystem {

namespace {

// Touching a page of a file mapping past the file's end raises SIGBUS, which
// would end the process. The handler below looks the faulting address up
// among the mappings it guards and puts a page of zeros in its place, so the
// read goes on and the mapping's owner learns of it afterwards. It reads the
// table without locks, as a signal handler must: a slot is in use while its
// `end` is above its `begin`.
struct GuardSlot {
    std::atomic<std::uintptr_t> begin{0};
    std::atomic<std::uintptr_t> end{0};
    std::atomic<bool> cut{false};
    std::atomic<bool> taken{false};
};

constexpr int guardSlots = 32;
GuardSlot guarded[guardSlots];
std::uintptr_t pageBytes = 4096;  // read once before the handler is installed
struct sigaction previousBusAction {};
std::once_flag handlerInstalled;

void onBusError(int signal, siginfo_t* info, void* context) {
    auto const address = reinterpret_cast<std::uintptr_t>(info->si_addr);
    for (auto& slot : guarded) {
        if (address >= slot.begin.load(std::memory_order_acquire) &&
            address < slot.end.load(std::memory_order_acquire)) {
            void* const page = reinterpret_cast<void*>(address & ~(pageBytes - 1));
            if (::mmap(page, pageBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) !=
                MAP_FAILED) {
                slot.cut.store(true, std::memory_order_release);
                return;
            }
        }
    }
    // Not a guarded mapping: the fault is what it would have been without us.
    if ((previousBusAction.sa_flags & SA_SIGINFO) != 0 && previousBusAction.sa_sigaction != nullptr) {
        previousBusAction.sa_sigaction(signal, info, context);
        return;
    }
    if ((previousBusAction.sa_flags & SA_SIGINFO) == 0 && previousBusAction.sa_handler != SIG_DFL &&
        previousBusAction.sa_handler != SIG_IGN) {
        previousBusAction.sa_handler(signal);
        return;
    }
    // The faulting access runs again and ends the process as it would have.
    ::signal(signal, SIG_DFL);
}

void installHandler() {
    std::call_once(handlerInstalled, [] {
        pageBytes = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
        struct sigaction action {};
        action.sa_sigaction = onBusError;
        action.sa_flags = SA_SIGINFO | SA_ONSTACK;
        sigemptyset(&action.sa_mask);
        ::sigaction(SIGBUS, &action, &previousBusAction);
    });
}

int takeSlot(std::uintptr_t begin, std::uintptr_t end) {
    for (int i = 0; i < guardSlots; ++i) {
        bool expected = false;
        if (guarded[i].taken.compare_exchange_strong(expected, true)) {
            guarded[i].cut.store(false);
            guarded[i].begin.store(begin, std::memory_order_release);
            guarded[i].end.store(end, std::memory_order_release);
            return i;
        }
    }
    return -1;
}

void giveBackSlot(int i) {
    guarded[i].end.store(0, std::memory_order_release);
    guarded[i].begin.store(0, std::memory_order_release);
    guarded[i].taken.store(false);
}

}  // namespace

MappedFile::MappedFile(RegularFile const& file, std::size_t padding) : path_(file.path_), size_(file.size()) {
    auto const fail = [&](std::string const& reason, int errorNumber = 0) {
        return FileSystemError(i18n::to_ustring(path_), reason, errorNumber);
    };
    installHandler();
    capacity_ = size_ + padding;
    mapped_ = (capacity_ + pageBytes - 1) / pageBytes * pageBytes;
    // The whole range is first taken as zeros; the file's pages are then
    // mapped over its beginning, and the rest stays the zero padding.
    void* const region = ::mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (region == MAP_FAILED) {
        throw fail(std::strerror(errno), errno);
    }
    data_ = static_cast<char*>(region);
    std::size_t const filePages = (size_ + pageBytes - 1) / pageBytes * pageBytes;
    if (filePages > 0) {
        if (::mmap(region, filePages, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED, file.fd_, 0) == MAP_FAILED) {
            int const error = errno;
            ::munmap(region, mapped_);
            throw fail(std::strerror(error), error);
        }
        ::madvise(region, filePages, MADV_SEQUENTIAL);  // a hint: read ahead, and early
    }
    auto const begin = reinterpret_cast<std::uintptr_t>(region);
    guardSlot_ = takeSlot(begin, begin + filePages);
    if (guardSlot_ < 0) {
        ::munmap(region, mapped_);
        throw fail("too many files are mapped at once");
    }
}

MappedFile::~MappedFile() {
    giveBackSlot(guardSlot_);
    ::munmap(data_, mapped_);
}

void MappedFile::releaseBefore(char const* position) noexcept {
    if (position <= data_ || position > data_ + capacity_) {
        return;
    }
    auto const offset = static_cast<std::size_t>(position - data_);
    std::size_t const end = offset / pageBytes * pageBytes;
    std::size_t const start = std::max<std::size_t>(released_, pageBytes);
    if (end > start) {
        ::madvise(data_ + start, end - start, MADV_DONTNEED);
        released_ = end;
    }
}

void MappedFile::releaseAll() noexcept {
    if (mapped_ > pageBytes) {
        ::madvise(data_ + pageBytes, mapped_ - pageBytes, MADV_DONTNEED);
    }
    released_ = 0;
}

bool MappedFile::cutShort() const noexcept {
    return guarded[guardSlot_].cut.load(std::memory_order_acquire);
}

void MappedFile::checkWhole() const {
    if (cutShort()) {
        throw detail::shrankWhileRead(path_);
    }
}

}  // namespace fl::filesystem
