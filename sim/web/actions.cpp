// What a page may do with a camera. Each action is a command of vcam, with its checks and its words.
#include "sim/web/actions.hpp"
#include "sim/base/text.hpp"
#include "sim/clock/power.hpp"
#include "sim/view/processes.hpp"
#include "tools/audio/wav.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace vcam::web {
namespace {

constexpr int kBadRequest = 400, kConflict = 409;
constexpr int kLooks = 100; // one second
constexpr std::chrono::milliseconds kBetweenLooks{10};
constexpr size_t kMostWords = 64;
constexpr size_t kMostPointName = 32;
constexpr unsigned kMostOfAPoint = 20; // cameras that stand at one point
constexpr size_t kMostFile = 64 << 20; // bytes of a file that a page fetches

std::string word(const cli::Json& request, const char* name)
{
    const auto it = request.find(name);
    if (it == request.end() || !it->is_string()) fail("the request lacks \"%s\"", name);
    std::string value = it->get<std::string>();
    if (value.find_first_of(std::string_view("\0\n", 2)) != std::string::npos)
        fail("\"%s\" holds a line end or a zero byte", name);
    return value;
}

// The words of a far end. A file of replies would be one of the host: not from here.
Words far_end(const std::string& line)
{
    Words words = split(trim(line), ' ');
    for (size_t i = 1; i < words.size(); ++i)
        if (words[i].find_first_of("@=") == std::string::npos || words[i].find('/') != std::string::npos)
            fail("'%s': give wrong@N, lost@N or late=MS; files of replies go through vcam plug",
                 words[i].c_str());
    return words;
}

using Fields = const cli::Json&;
struct CommandRow {
    const char* name;
    Words (*words)(const std::string& camera, Fields request); // of vcam
};
const CommandRow kCommands[] = {
    {"fault",
     [](auto& camera, Fields r) {
         return Words{"fault", camera, "--", word(r, "line")};
     }},
    {"clear-faults",
     [](auto& camera, Fields) {
         return Words{"fault", "--clear", camera};
     }},
    {"pin",
     [](auto& camera, Fields r) {
         return Words{"pin", camera, "--", word(r, "line")};
     }},
    {"clear-pins",
     [](auto& camera, Fields) {
         return Words{"pin", "--clear", camera};
     }},
    {"press",
     [](auto& camera, Fields r) {
         return Words{"pin", camera, "--", word(r, "key") + " press +0 " + word(r, "seconds")};
     }},
    {"plug",
     [](auto& camera, Fields r) {
         Words words = {"plug", camera, "--", word(r, "port")};
         for (const auto& w : far_end(word(r, "line"))) words.push_back(w);
         return words;
     }},
    {"set-clock",
     [](auto& camera, Fields r) {
         return Words{"rtc", "--set=" + word(r, "time"), camera};
     }},
    {"break-clock",
     [](auto& camera, Fields r) {
         return Words{"rtc", "--fault=" + word(r, "fault"), camera};
     }},
};

const struct {
    const char* name;
    int signal; // to the camera's first process
} kSignals[] = {
    {"stop", SIGTERM},
    {"cut", SIGRTMIN + int(power::Loss::cut)},
    {"power-off", SIGRTMIN + int(power::Loss::off)},
};

// A new file in the place of the last run's; a link of that name is not followed.
Fd fresh_console(const Camera& camera)
{
    const std::string path = camera.path("console");
    unlink(path.c_str());
    Fd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (!fd) fail("cannot write %s: %s", path.c_str(), strerror(errno));
    return fd;
}

// For the camera that stands at a point such as 12/half, beside the one that was explored: a name that is free.
std::string folder_for(const Camera& camera, const std::string& point)
{
    const size_t slash = point.find('/');
    if (slash == 0 || slash == point.npos || point.find_first_not_of("0123456789") != slash ||
        point.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-", slash + 1) != point.npos ||
        point.size() > kMostPointName)
        fail("'%s' is no point, such as 12/half", one_line(point).c_str());
    const std::string name = camera.folder() + "-" + point.substr(0, slash) + "-" + point.substr(slash + 1);
    for (unsigned i = 1; i <= kMostOfAPoint; ++i) {
        const std::string folder = i == 1 ? name : text("%s-%u", name.c_str(), i);
        if (!exists(folder)) return folder;
    }
    fail("%s and others of that point are there already; remove some", name.c_str());
}

// The options of vcam run that a page chooses from.
Words run_options(const cli::Json& request, double pace)
{
    Words out;
    const std::string time = request.value("time", "pace");
    if (time == "pace" && pace > 0) out.insert(out.end(), {"--env", text("VCAM_PACE=%g", pace)});
    if (time != "skip" && !(time == "pace" && pace <= 0)) out.emplace_back("--realtime");
    for (const char* slot : {"sd", "usb"})
        if (request.value(slot, false)) out.insert(out.end(), {"--medium", text("%s=16M", slot)});
    if (request.value("loop", false)) out.insert(out.end(), {"--loop", "40"});
    if (const auto port = request.value("publish", uint16_t(0)))
        out.insert(out.end(), {"--publish", std::to_string(port)});
    return out;
}

} // namespace

Actions::~Actions()
{
    for (const auto& [folder, pid] : runs_)
        if (waitpid(pid, nullptr, WNOHANG) == 0) {
            kill(pid, SIGTERM);
            status_of(pid);
        }
}

Answer Actions::command(const Words& words) const
{
    Words all = {vcam_};
    all.insert(all.end(), words.begin(), words.end());
    const Output output = capture(all);
    if (output.status == 0) return {200, output.out};
    return {kBadRequest, trim(output.err.empty() ? output.out : output.err)};
}

// The run that was started here and has not ended, 0 without one. Call it with lock_ held. It never waits: a request
// that waited for the end of a run would start a second one behind it.
pid_t Actions::launcher(const std::string& folder)
{
    const auto it = runs_.find(folder);
    if (it == runs_.end()) return 0;
    if (waitpid(it->second, nullptr, WNOHANG) == 0) return it->second;
    runs_.erase(it);
    return 0;
}

Answer Actions::send_signal(const std::string& folder, int number)
{
    const std::lock_guard hold(lock_);
    const Fd init = open_init(folder, launcher(folder));
    if (!init) return {kConflict, "the camera is off"};
    if (syscall(SYS_pidfd_send_signal, init.get(), number, nullptr, 0) < 0)
        return {kConflict, text("the camera does not take the signal: %s", strerror(errno))};
    return {200, "done"};
}

Answer Actions::run(const Camera& camera, const cli::Json& request)
{
    const auto words = request.find("words");
    if (words == request.end() || !words->is_array() || words->empty() || words->size() > kMostWords)
        return {kBadRequest, "name a program, as: upgrade /tmp/pkg -v"};
    Words line = {vcam_, "run"};
    const Words options = run_options(request, pace_);
    line.insert(line.end(), options.begin(), options.end());
    line.insert(line.end(), {camera.folder(), "--"});
    for (const auto& w : *words) line.push_back(w.get<std::string>());
    const std::lock_guard hold(lock_);
    // A launcher without a camera is at its end, which comes at once, or at its start, which shows as quickly.
    bool runs = camera.running();
    for (int looks = 0; !runs && looks < kLooks && launcher(camera.folder()); ++looks) {
        std::this_thread::sleep_for(kBetweenLooks);
        runs = camera.running();
    }
    if (runs || launcher(camera.folder())) return {kConflict, "the camera runs already; stop it first"};
    const Fd console = fresh_console(camera);
    runs_[camera.folder()] = start(line, -1, console.get(), console.get());
    return {200, "started"};
}

Answer Actions::open_point(const Camera& camera, const std::string& point)
{
    const std::string folder = folder_for(camera, point);
    Answer said = command({"explore", "--open=" + point, "--output=" + folder, camera.folder()});
    if (said.status != 200) return said;
    said.made = folder;
    said.text = folder.substr(folder.rfind('/') + 1) + " stands at " + point + "; it is on this page now";
    return said;
}

Answer Actions::act(const std::string& folder, const cli::Json& request)
{
    const std::string name = word(request, "action");
    for (const auto& row : kSignals)
        if (name == row.name) return send_signal(folder, row.signal);
    const Camera camera(folder);
    if (name == "run") return run(camera, request);
    if (name == "open-point") return open_point(camera, word(request, "point"));
    for (const auto& row : kCommands)
        if (name == row.name) return command(row.words(camera.folder(), request));
    return {kBadRequest, "no action " + one_line(name)};
}

Answer Actions::put(const Camera& camera, const std::string& place, const std::string& content)
{
    const ScratchFolder folder;
    const std::string file = folder.path() + "/file";
    write_file(file, content);
    if (place != "mic.wav") return command({"put", camera.folder(), "--", file, place});
    replace_file(camera.path("mic.wav"), zaudio::wav_bytes(zaudio::read_sound(file)));
    return {200, "the microphone hears it from the next start of its first channel on"};
}

Answer Actions::get(const Camera& camera, const std::string& place) const
{
    const ScratchFolder folder;
    const std::string file =
        folder.path() + "/file"; // named, so that a folder of the camera does not land elsewhere
    if (const Answer said =
            command({"get", text("--most=%zu", kMostFile), camera.folder(), "--", place, file});
        said.status != 200)
        return said;
    const auto content = try_read_file(file);
    return content ? Answer{200, *content} : Answer{kBadRequest, place + " is no file"};
}

Answer Actions::diff(const Camera& camera) const { return command({"diff", "--json", camera.folder()}); }

} // namespace vcam::web
