// Work that several threads share.
#include "sim/explore/parallel.hpp"
#include "sim/base/text.hpp"

#include <atomic>
#include <thread>
#include <vector>

namespace vcam::explore {

void in_parallel(const Work& work, const Progress& progress, std::mutex& lock,
                 const std::function<void(size_t item, const std::string& folder)>& one)
{
    std::atomic<size_t> next = 0;
    size_t done = 0;
    std::string error;
    const auto worker = [&](unsigned number) {
        try {
            for (size_t i; (i = next++) < work.count;) {
                one(i, text("%s/worker%u", work.folder.c_str(), number));
                const std::lock_guard hold(lock);
                progress(work.doing, double(++done) / double(work.count));
            }
        } catch (const std::exception& e) {
            next = work.count; // the others end too
            const std::lock_guard hold(lock);
            if (error.empty()) error = e.what();
        }
    };
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < work.workers; ++i) threads.emplace_back(worker, i);
    for (auto& thread : threads) thread.join();
    if (!error.empty()) fail("%s", error.c_str());
}

} // namespace vcam::explore
