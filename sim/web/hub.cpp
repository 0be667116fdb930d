// Brings what happens in the cameras to the pages that look at them.
#include "sim/web/hub.hpp"
#include "sim/base/text.hpp"
#include "sim/view/snapshot.hpp"
#include "sim/web/child.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vcam::web {
namespace {

constexpr auto kLook = std::chrono::milliseconds(100); // ten looks a second
constexpr auto kSign = std::chrono::seconds(2);        // of life, to notice a page that has gone
constexpr int kPatienceMs = 5000;                      // for one look at a camera
constexpr size_t kMostWaiting = 200;                   // events of a page that does not fetch them

ino_t inode_of(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? st.st_ino : 0;
}

void give(const cli::Json& json)
{
    write_all(STDOUT_FILENO, json.dump(-1, ' ', false, cli::Json::error_handler_t::replace) + "\n",
              "the page's server");
}

} // namespace

int sample_main(const std::string& folder)
{
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    try {
        Snapshot snapshot(folder);
        const ino_t looked_at = inode_of(folder);
        for (char letter; read(STDIN_FILENO, &letter, 1) == 1;) {
            if (!exists(folder + "/camera.conf") || inode_of(folder) != looked_at)
                fail("%s: the camera has been moved away or replaced", folder.c_str());
            const cli::Json json = snapshot.next(letter == 'f');
            give(json.is_null() ? cli::Json::object() : json);
        }
        return 0;
    } catch (const std::exception& e) {
        give({{"lost", e.what()}});
        return 1;
    }
}

Hub::Hub(std::string program, const std::vector<std::string>& folders)
    : program_(std::move(program)), folders_(folders)
{
    thread_ = std::thread([this] { look_on(); });
}

Hub::~Hub()
{
    {
        const std::lock_guard hold(lock_);
        ending_ = true;
    }
    changed_.notify_all();
    thread_.join();
    for (auto& sampler : samplers_) end_sampler(sampler);
}

void Hub::start_sampler(Sampler& sampler)
{
    int to[2], from[2];
    if (pipe2(to, O_CLOEXEC) < 0 || pipe2(from, O_CLOEXEC) < 0)
        fail("no pipe to look at %s", sampler.folder.c_str());
    const Fd in(to[0]), out(from[1]);
    sampler.to = Fd(to[1]);
    sampler.from = Fd(from[0]);
    sampler.partial.clear();
    sampler.pid = start({program_, "--sample", sampler.folder}, in.get(), out.get(), -1);
}

void Hub::end_sampler(Sampler& sampler)
{
    if (!sampler.pid) return;
    sampler.to = Fd();
    sampler.from = Fd();
    kill(sampler.pid, SIGTERM);
    status_of(sampler.pid);
    sampler.pid = 0;
}

// "" when it has ended or does not answer.
std::string Hub::line_from(Sampler& sampler)
{
    for (;;) {
        if (const size_t end = sampler.partial.find('\n'); end != std::string::npos) {
            std::string line = sampler.partial.substr(0, end);
            sampler.partial.erase(0, end + 1);
            return line;
        }
        pollfd wait = {sampler.from.get(), POLLIN, 0};
        std::array<char, 65536> piece;
        if (poll(&wait, 1, kPatienceMs) <= 0) return "";
        const ssize_t n = read(sampler.from.get(), piece.data(), piece.size());
        if (n <= 0) return "";
        sampler.partial.append(piece.data(), size_t(n));
    }
}

void Hub::send(size_t camera, const std::string& object)
{
    auto event = std::make_shared<const std::string>(
        text("data: {\"camera\":%zu%s", camera, object == "{}" ? "" : ",") + object.substr(1) + "\n\n");
    const std::lock_guard hold(lock_);
    for (Viewer* viewer : viewers_)
        if (viewer->waiting_.size() < kMostWaiting)
            viewer->waiting_.push_back(event);
        else
            newcomer_ = true; // it gets everything once more
    changed_.notify_all();
}

void Hub::look(bool full)
{
    for (size_t i = 0; i < samplers_.size(); ++i) {
        Sampler& sampler = samplers_[i];
        const bool fresh = !sampler.pid;
        if (fresh) start_sampler(sampler);
        const char letter = full || fresh ? 'f' : 't';
        std::string line;
        if (write(sampler.to.get(), &letter, 1) == 1) line = line_from(sampler);
        if (line.empty() || starts_with(line, R"({"lost":)")) {
            end_sampler(sampler);
            send(i, line.empty() ? R"({"lost":"its files cannot be read"})" : line);
        } else if (line != "{}")
            send(i, line);
    }
}

// Call it with lock_ held.
void Hub::take_added()
{
    while (samplers_.size() < folders_.size())
        samplers_.push_back({folders_[samplers_.size()], 0, Fd(), Fd(), ""});
}

void Hub::look_on()
{
    std::unique_lock hold(lock_);
    while (!ending_) {
        changed_.wait(hold, [this] { return ending_ || !viewers_.empty(); });
        if (ending_) return;
        const bool full = newcomer_;
        newcomer_ = false;
        take_added();
        const auto next = std::chrono::steady_clock::now() + kLook;
        hold.unlock();
        look(full);
        hold.lock();
        changed_.wait_until(hold, next, [this] { return ending_; });
    }
}

std::shared_ptr<Hub::Viewer> Hub::admit(size_t most)
{
    auto viewer = std::make_shared<Viewer>(*this);
    const std::lock_guard hold(lock_);
    if (viewers_.size() >= most) return nullptr;
    viewers_.push_back(viewer.get());
    newcomer_ = true;
    changed_.notify_all();
    return viewer;
}

std::vector<std::string> Hub::folders()
{
    const std::lock_guard hold(lock_);
    return folders_;
}

void Hub::add(const std::string& folder)
{
    const std::lock_guard hold(lock_);
    folders_.push_back(folder);
}

Hub::Viewer::~Viewer()
{
    const std::lock_guard hold(hub_.lock_);
    std::erase(hub_.viewers_, this);
}

std::string Hub::Viewer::wait()
{
    std::unique_lock hold(hub_.lock_);
    hub_.changed_.wait_for(hold, kSign, [this] { return hub_.ending_ || !waiting_.empty(); });
    std::string events;
    for (const auto& event : waiting_) events += *event;
    waiting_.clear();
    return events;
}

} // namespace vcam::web
