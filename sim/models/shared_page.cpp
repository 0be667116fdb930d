// A file of the camera's folder, mapped and locked.
#include "sim/models/shared_page.hpp"
#include "sim/clock/quiet.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace vcam {
namespace {

constexpr int64_t kLockPause = 1'000'000; // host time
constexpr int kPatience = 50;             // looks at a holder before it is asked whether it lives

} // namespace

SharedPage::SharedPage(std::string name, size_t size, uint32_t version)
    : name_(std::move(name)), size_(size), version_(version)
{
}

std::string SharedPage::file() const { return state::path(name_); }

PageHead* SharedPage::map() const
{
    const raw::Fd fd(raw::open(file().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    if (!fd || ::ftruncate(fd.get(), off_t(size_)) != 0) return nullptr;
    void* at = ::mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
    return at == MAP_FAILED ? nullptr : static_cast<PageHead*>(at);
}

PageHead* SharedPage::current()
{
    const std::lock_guard hold(lock_);
    if (page_ && folder_ == state::dir() && page_->version == version_) return page_;
    if (page_) ::munmap(static_cast<void*>(page_), size_);
    folder_ = state::dir();
    page_ = map();
    if (!page_) {
        fprintf(stderr, "vcam: %s: cannot be mapped\n", file().c_str());
        ::abort();
    }
    page_->version = version_;
    return page_;
}

PageHead* SharedPage::lock(Wait wait)
{
    PageHead* page = current();
    const auto self = uint32_t(raw::tid());
    for (int looks = 0;; ++looks) {
        uint32_t holder = 0;
        if (page->owner.compare_exchange_strong(holder, self)) return page;
        const bool doubtful = wait == Wait::no || looks >= kPatience;
        const bool orphaned = doubtful && !quiet::alive(int(holder));
        if (orphaned && page->owner.compare_exchange_strong(holder, self)) return page;
        if (wait == Wait::no) return nullptr;
        ++page->waiters;
        raw::futex_wait(&page->owner, holder, kLockPause);
        --page->waiters;
    }
}

void SharedPage::unlock(PageHead* page)
{
    page->owner = 0;
    if (page->waiters) raw::futex_wake(&page->owner);
}

// The old page is stamped as no longer in force.
void SharedPage::retire()
{
    const raw::Fd fd(raw::open(file().c_str(), O_RDWR | O_CLOEXEC));
    const uint32_t gone = 0;
    if (fd) raw::pwrite_all(fd.get(), &gone, sizeof gone, offsetof(PageHead, version));
    ::unlink(file().c_str());
}

} // namespace vcam
