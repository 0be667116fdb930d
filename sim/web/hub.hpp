// Brings what happens in the cameras to the pages that look at them.
#pragma once

#include "sim/base/files.hpp"

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

namespace vcam::web {

// The program's other way to start: looks at one camera for as long as its standard input lasts. Answers each letter with
// a line of JSON, 'f' with all sections, another one with those that have changed.
int sample_main(const std::string& folder);

// One process a camera looks at it, as the simulator's state is one camera's: a camera whose files are damaged ends its
// own process and no other. Nobody looks while no page is open.
class Hub {
public:
    // `program` starts sample_main with the words --sample FOLDER.
    Hub(std::string program, const std::vector<std::string>& folders);
    ~Hub();
    Hub(const Hub&) = delete;
    Hub& operator=(const Hub&) = delete;

    class Viewer;
    // A viewer of what comes from now on; null when there are `most` already. Any thread.
    [[nodiscard]] std::shared_ptr<Viewer> admit(size_t most);
    // The cameras, in the order of their numbers in events.
    [[nodiscard]] std::vector<std::string> folders();
    void add(const std::string& folder);

    class Viewer {
    public:
        explicit Viewer(Hub& hub) : hub_(hub) {} // for admit()
        ~Viewer();
        Viewer(const Viewer&) = delete;
        Viewer& operator=(const Viewer&) = delete;
        // What has come since, as server-sent events; "" when nothing came for a while or the hub ends.
        std::string wait();

    private:
        friend class Hub;
        Hub& hub_;
        std::deque<std::shared_ptr<const std::string>> waiting_;
    };

private:
    struct Sampler {
        std::string folder;
        pid_t pid = 0;
        Fd to, from;
        std::string partial; // of a line
    };

    void look_on();
    void take_added();
    void look(bool full);
    void start_sampler(Sampler& sampler);
    void end_sampler(Sampler& sampler);
    std::string line_from(Sampler& sampler);
    void send(size_t camera, const std::string& object);

    const std::string program_;
    std::vector<Sampler> samplers_; // of the thread that looks
    std::mutex lock_;
    std::vector<std::string> folders_; // guarded by lock_
    std::condition_variable changed_;
    std::vector<Viewer*> viewers_; // guarded by lock_
    bool newcomer_ = false;        // guarded by lock_
    bool ending_ = false;          // guarded by lock_
    std::thread thread_;
};

} // namespace vcam::web
