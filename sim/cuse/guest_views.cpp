// Physical memory mapped into the program that asks for it.
#include "sim/cuse/guest_views.hpp"
#include "sim/base/caller.hpp"
#include "sim/base/text.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>

namespace vcam::cuse {
namespace {

constexpr uint32_t kStandIn = 0xFFFF0000; // no program has a page there
constexpr uint32_t kPage = 4096;
constexpr const char* kMemory = "/dev/mem";

#ifdef __arm__

// A held thread. Signals wait in the kernel, each with what belongs to it, until it is let go; one that was on its way
// already is given to it then.
class Held {
public:
    explicit Held(int thread) : thread_(thread)
    {
        good_ = stopped(false) && ptrace(PTRACE_GETREGS, thread_, nullptr, &before_) == 0;
        constexpr uint64_t kAll = ~uint64_t(0);
        blocked_ = good_ && set_mask(PTRACE_GETSIGMASK, mask_) && set_mask(PTRACE_SETSIGMASK, kAll);
    }
    ~Held()
    {
        if (blocked_) set_mask(PTRACE_SETSIGMASK, mask_);
        if (good_) ptrace(PTRACE_SETREGS, thread_, nullptr, &before_);
        ptrace(PTRACE_DETACH, thread_, nullptr, reinterpret_cast<void*>(intptr_t(signal_)));
    }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;
    explicit operator bool() const { return good_; }
    // Below its stack; whole words, kept free by nobody but a signal's handler, which cannot run now.
    [[nodiscard]] uint32_t scratch() const { return (uint32_t(before_.uregs[13]) - 256) & ~7u; }

    // A system call, by the instruction that the thread stands behind.
    int32_t call(uint32_t number, const std::array<uint32_t, 6>& arguments)
    {
        constexpr int kNumber = 7, kCounter = 15, kFlags = 16;
        constexpr uint32_t kThumb = 0x20;
        user_regs registers = before_;
        for (size_t i = 0; i < arguments.size(); ++i) registers.uregs[i] = arguments[i];
        registers.uregs[kNumber] = number;
        registers.uregs[kCounter] -= registers.uregs[kFlags] & kThumb ? 2 : 4;
        if (ptrace(PTRACE_SETREGS, thread_, nullptr, &registers) < 0) return -errno;
        for (int edge = 0; edge < 2; ++edge) // into the call and out of it
            if (ptrace(PTRACE_SYSCALL, thread_, nullptr, nullptr) < 0 || !stopped(true)) return -ESRCH;
        if (ptrace(PTRACE_GETREGS, thread_, nullptr, &registers) < 0) return -errno;
        return int32_t(registers.uregs[0]);
    }

private:
    // Gets or sets it.
    bool set_mask(__ptrace_request how, const uint64_t& mask) const
    {
        return ptrace(how, thread_, reinterpret_cast<void*>(sizeof mask), &mask) == 0;
    }
    bool stopped(bool at_call)
    {
        for (int status;;) {
            if (waitpid(thread_, &status, __WALL) < 0) {
                if (errno != EINTR) return false;
                continue;
            }
            if (!WIFSTOPPED(status)) return false;
            const int event = status >> 16;
            if (at_call ? WSTOPSIG(status) == (SIGTRAP | 0x80) : event == PTRACE_EVENT_STOP) return true;
            if (event == 0) signal_ = WSTOPSIG(status);
            ptrace(at_call ? PTRACE_SYSCALL : PTRACE_CONT, thread_, nullptr, nullptr);
        }
    }

    const int thread_;
    user_regs before_ = {};
    uint64_t mask_ = 0; // of the kernel's signals
    int signal_ = 0;
    bool good_ = false, blocked_ = false;
};

enum Number : uint32_t { kOpen = 5, kClose = 6, kUnmap = 91, kMap = 192 };

uint32_t map_there(Held& held, uint32_t physical, uint32_t size)
{
    if (!held) return 0;
    std::array<char, 16> kept = {};
    auto* const scratch = reinterpret_cast<void*>(uintptr_t(held.scratch()));
    if (!caller::load(scratch, kept.data(), kept.size()) ||
        !caller::store(scratch, kMemory, strlen(kMemory) + 1))
        return 0;
    const int32_t fd = held.call(kOpen, {held.scratch(), O_RDWR | O_SYNC});
    caller::store(scratch, kept.data(), kept.size());
    if (fd < 0) return 0;
    const int32_t at =
        held.call(kMap, {0, size, PROT_READ | PROT_WRITE, MAP_SHARED, uint32_t(fd), physical / kPage});
    held.call(kClose, {uint32_t(fd)});
    return at < 0 && at > -4096 ? 0 : uint32_t(at);
}

void unmap_there(Held& held, uint32_t address, uint32_t size)
{
    if (held) held.call(kUnmap, {address, size});
}

#else // the calls are spelled for the machine's processor

struct Held {
    explicit Held(int) {}
};
uint32_t map_there(Held&, uint32_t, uint32_t) { return 0; }
void unmap_there(Held&, uint32_t, uint32_t) {}

#endif

} // namespace

thread_local GuestViews::Request* GuestViews::current_ = nullptr;

uint32_t GuestViews::map(uint32_t physical, uint32_t size)
{
    const std::lock_guard hold(lock_);
    std::erase_if(at_, [](const auto& view) { return ::kill(view.first.first, 0) < 0; }); // have ended
    if (const auto known = at_.find({caller::pid(), physical}); known != at_.end()) return known->second;
    if (!current_) return 0;
    current_->wanted_ = Request::Wanted::map;
    current_->physical_ = physical;
    current_->size_ = (size + kPage - 1) / kPage * kPage;
    return kStandIn;
}

bool GuestViews::unmap(uint32_t physical, uint32_t size)
{
    const std::lock_guard hold(lock_);
    const auto known = at_.find({caller::pid(), physical});
    if (known == at_.end()) return false;
    if (current_ && size) {
        current_->wanted_ = Request::Wanted::unmap;
        current_->at_ = known->second;
        current_->size_ = (size + kPage - 1) / kPage * kPage;
    }
    at_.erase(known);
    return true;
}

bool GuestViews::mapped(uint32_t physical)
{
    const std::lock_guard hold(lock_);
    return at_.contains({caller::pid(), physical});
}

GuestViews::Request::Request(GuestViews& views, int thread) : views_(views), thread_(thread)
{
    current_ = this;
}

GuestViews::Request::~Request() { current_ = nullptr; }

int GuestViews::Request::hold()
{
    if (wanted_ == Wanted::nothing) return 0;
    if (ptrace(PTRACE_SEIZE, thread_, nullptr, reinterpret_cast<void*>(PTRACE_O_TRACESYSGOOD)) < 0)
        return -errno;
    if (ptrace(PTRACE_INTERRUPT, thread_, nullptr, nullptr) < 0) {
        const int error = -errno;
        ptrace(PTRACE_DETACH, thread_, nullptr, nullptr);
        return error;
    }
    held_ = true;
    return 0;
}

void GuestViews::Request::settle(std::span<const char> record, uint32_t address)
{
    if (!held_) return;
    Held held(thread_); // until the address is where the thread will look for it
    if (wanted_ == Wanted::unmap) return unmap_there(held, at_, size_);
    settle_map(map_there(held, physical_, size_), record, address);
}

void GuestViews::Request::settle_map(uint32_t at, std::span<const char> record, uint32_t address)
{
    for (size_t i = 0; i + sizeof at <= record.size(); i += sizeof at) {
        uint32_t word = 0;
        memcpy(&word, record.data() + i, sizeof word);
        if (word < kStandIn || word >= kStandIn + kPage) continue;
        const uint32_t seen = at ? at + (word - kStandIn) : 0;
        caller::store(reinterpret_cast<void*>(uintptr_t(address + i)), &seen, sizeof seen);
        break;
    }
    if (!at) return;
    const std::lock_guard hold(views_.lock_);
    views_.at_[{caller::pid(), physical_}] = at;
}

} // namespace vcam::cuse
