// A file of the camera's folder that all its processes map and lock: what a driver knows, whoever asks it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

namespace vcam {

// How such a file begins. The layout is the same in 64-bit and 32-bit processes.
struct PageHead {
    std::atomic<uint32_t> version, owner, waiters; // of the lock: a thread
    std::atomic<uint32_t> generation;
};

class SharedPage {
public:
    enum class Wait : uint8_t { no, yes };
    SharedPage(std::string name, size_t size, uint32_t version);

    // All zero behind its head when it is new. Null only where it must not wait. A holder that dies loses it.
    PageHead* lock(Wait wait);
    static void unlock(PageHead* page);
    // A process that has the page keeps it, and maps the next one when it looks again.
    void retire();
    [[nodiscard]] std::string file() const;
    [[nodiscard]] PageHead* last() const { return page_; } // the one that lock() has given

private:
    PageHead* map() const;
    PageHead* current();

    const std::string name_; // in the folder
    const size_t size_;
    const uint32_t version_;
    std::mutex lock_;
    std::string folder_; // a test may go from one camera to the next
    PageHead* page_ = nullptr;
};

} // namespace vcam
