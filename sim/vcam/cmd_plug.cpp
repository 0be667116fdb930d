// vcam plug: what stands at the other end of the serial ports.
#include "sim/base/camera.hpp"
#include "sim/vcam/commands.hpp"
#include "sim/vcam/options.hpp"
#include "sim/base/text.hpp"
#include "sim/board/serial_line.hpp"
#include "sim/base/state.hpp"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iterator>

namespace vcam {
namespace {

void list_plugs(const Camera& camera)
{
    state::set_dir(camera.folder());
    for (const char* port : serial::kPorts) printf("%s %s\n", port, serial::plugged(port).c_str());
}

void check_port(const std::string& port)
{
    if (std::find(std::begin(serial::kPorts), std::end(serial::kPorts), port) == std::end(serial::kPorts))
        wrong_use(
            text("%s: the serial ports are %s and %s", port.c_str(), serial::kPorts[0], serial::kPorts[1]));
}

// "block FILE ...": the file with the replies moves in, the line names none.
std::vector<std::string> take_replies(const Camera& camera, const std::string& port,
                                      std::vector<std::string> words)
{
    if (words.size() < 2 || words[0] != "block" || words[1].find_first_of("@=") != std::string::npos)
        return words;
    std::error_code missing;
    const auto real = std::filesystem::weakly_canonical(words[1], missing);
    const std::string text = read_file(real.string());
    std::vector<serial::Reply> replies;
    if (auto problem = serial::parse_replies(text, replies); !problem.empty())
        fail("plug: %s: %s", words[1].c_str(), problem.c_str());
    write_file(camera.path(port + ".replies"), text);
    words.erase(words.begin() + 1);
    return words;
}

} // namespace

int plug_main(const Arguments& arguments)
{
    auto words = cli::parse(
        arguments, {{}, {kCamera}, "PORT nothing|loopback|block [FILE] [wrong@N] [lost@N] [late=MS]"});
    const Camera camera(words.plain[0]);
    if (words.rest.empty()) {
        list_plugs(camera);
        return 0;
    }
    const std::string port = words.rest[0];
    check_port(port);
    if (words.rest.size() < 2)
        wrong_use(text("missing what %s meets: nothing, loopback or block", port.c_str()));
    const auto far_end = take_replies(camera, port, {words.rest.begin() + 1, words.rest.end()});
    serial::Plug plug;
    if (auto problem = serial::parse_plug(join(far_end, " "), plug); !problem.empty()) wrong_use(problem);
    std::string lines;
    for (const auto& line : split(try_read_file(camera.path("plugs")).value_or(""), '\n'))
        if (!line.empty() && !starts_with(line, port + " ")) lines += line + "\n";
    write_file(camera.path("plugs"), lines + port + " " + join(far_end, " ") + "\n");
    return 0;
}

} // namespace vcam
