// vcam web: a live page of cameras in the browser.
#include "sim/base/camera.hpp"
#include "sim/sandbox/pieces.hpp"
#include "sim/vcam/commands.hpp"
#include "sim/vcam/options.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <unistd.h>

namespace vcam {
namespace {

constexpr int kMostPort = 65535;
constexpr size_t kMostCameras = 4; // side by side
constexpr double kUsualPace = 10, kMostPace = 1e6;

// Without a name: the camera of this folder, or those in it.
std::vector<std::string> cameras_here()
{
    if (exists("camera.conf")) return {"."};
    std::vector<std::string> out;
    for (const auto& entry : std::filesystem::directory_iterator("."))
        if (exists(entry.path().string() + "/camera.conf")) out.push_back(entry.path().string());
    std::sort(out.begin(), out.end());
    if (out.empty()) fail("there is no camera here; name one, or make one with: vcam new cam");
    return out;
}

bool has_desktop() { return getenv("DISPLAY") || getenv("WAYLAND_DISPLAY"); }

} // namespace

int web_main(const Arguments& arguments)
{
    std::string host = "127.0.0.1";
    int64_t port = 0;
    double pace = kUsualPace;
    bool open = has_desktop();
    const auto words = cli::parse(
        arguments, {{{"--port", "N", "the port of the page (a free one)",
                      [&](auto& v) { port = cli::whole_number(v, 1, kMostPort); }},
                     {"--host", "ADDRESS",
                      "listen elsewhere than on 127.0.0.1; whoever has the printed address may do all",
                      [&](auto& v) { host = cli::given(v); }},
                     {"--no-open", nullptr, "do not show the page in the desktop's browser",
                      [&](auto&) { open = false; }},
                     {"--pace", "N",
                      "runs of the page take real time, their flash N times as fast as a chip (10); 0: "
                      "pauses cost no time",
                      [&](auto& v) { pace = cli::number(v, 0, kMostPace); }}},
                    std::vector<cli::Operand>(kMostCameras, {"CAMERA", cli::Operand::camera, false})});
    std::vector<std::string> line = {find_web_server(),    own_program(),    host,
                                     std::to_string(port), text("%g", pace), open ? "open" : "closed"};
    for (const auto& folder : words.plain.empty() ? cameras_here() : words.plain)
        line.push_back(Camera(folder).folder());
    std::vector<char*> argv;
    for (auto& word : line) argv.push_back(word.data());
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    fail("cannot start %s: %s", argv[0], strerror(errno));
}

} // namespace vcam
