#include "tests/support/transcript.hpp"

#include "tests/support/firmware.hpp"

#include <algorithm>
#include <iterator>

namespace {

std::string hex(unsigned char byte)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    return {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
}

// A file that each step finds at its path: a start empties /tmp.
struct Package {
    std::string path, bytes;
};

void prepare(Camera& camera, Package& package, std::string line)
{
    if (take(line, "package: ")) {
        package = {line, make_firmware(camera.folder()).pack()};
    } else if (take(line, "faults:")) {
        std::replace(line.begin(), line.end(), ';', '\n');
        camera.faults(line.empty() ? "" : line.substr(1) + "\n");
    } else if (take(line, "vcam: ")) {
        const size_t verb = std::min(line.find(' '), line.size());
        setenv("CAMERA", camera.state("").c_str(), 1);
        const Said said = vcam(line.substr(0, verb) + " \"$CAMERA\"" + line.substr(verb));
        EXPECT_EQ(said.status, 0) << line << "\n" << said.text;
    } else {
        ADD_FAILURE() << "not a directive: " << line;
    }
}

Lines seen_of(const Outcome& outcome, const std::string& source)
{
    if (source == "out") return lines_of(outcome.out);
    if (source == "err") return lines_of(outcome.err);
    if (source == "status") return outcome.status ? Lines{std::to_string(outcome.status)} : Lines{};
    if (source == "ending") return {outcome.ending};
    return source == "log" ? outcome.log : outcome.of(source);
}

} // namespace

std::string shown(const std::string& line)
{
    if (line.empty()) return "\\n";
    std::string text;
    for (const char c : line)
        text += c == '\033'                      ? "\\e"
                : c == '\r'                      ? "\\r"
                : c == 127 || (c >= 0 && c < 32) ? hex(c)
                                                 : std::string(1, c);
    if (text.ends_with(' ')) text.replace(text.size() - 1, 1, "\\s");
    return text;
}

Lines lines_of(std::string text)
{
    for (size_t at = 0; (at = text.find('\f', at)) != std::string::npos;)
        text.replace(at, 1, at > 0 && text[at - 1] != '\n' ? "\n" : "");
    Lines lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(shown(line));
    if (!text.empty() && text.back() != '\n') lines.back() += "\\c"; // no end of line
    return lines;
}

Lines words_of(const std::string& text)
{
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), {}};
}

void run(const Transcript& transcript)
{
    Camera camera(transcript.camera_options);
    Package package;
    for (const Step& step : transcript.steps) {
        for (const std::string& line : step.before) prepare(camera, package, line);
        if (!package.path.empty()) write_file(camera.root(package.path), package.bytes);
        const Outcome outcome = camera.run({"sh", "-c", step.command}, transcript.run_options);
        std::map<std::string, Lines> expected = step.expected;
        for (const char* source : {"out", "err", "status"}) expected[source];
        const std::string wrong =
            differences(step, expected, [&](const std::string& source) { return seen_of(outcome, source); });
        if (!wrong.empty()) ADD_FAILURE() << wrong;
    }
}
