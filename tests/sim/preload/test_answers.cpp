// The simulated drivers' answers: to the questions that the emulated machine's kernel answers too, and to those of the
// files beside this one, each of which holds cases under lines "== TITLE". A case has a camera of its own; lines
// "# camera: LINE" are its camera.conf, "# state: FILE LINE" a file of its state. It may ask what a kernel cannot be
// asked:
//
//   sleep SECONDS, until SECONDS    in camera time
//   state FILE TEXT                 writes a file of the camera's state, "\n" ends its lines
//   file FILE                       what the file holds
//   journal TEXT                    how many lines of the journal hold it
//   mark, since SECONDS             whether as much camera time has passed since the mark
//   fault LINE, faults none, count DEVICE OPERATION, power, start
//   watchdog, gap                   its state; the longest time between feeds in whole seconds
//   run COMMAND                     the status of a program of the camera
//   port NAME BAUD MIN TIME         a serial port without echo and lines; TIME in tenths of a second; BAUD may be "lines"
//   part NAME SIZE                  whether some bytes can be read, but fewer than SIZE
//   fill NAME                       what a write answers at last when one follows the other
//   flush NAME                      drops what waits in its queues
//   poll NAME in|out MS             how many descriptors are ready
#include "tests/machine/questions.hpp"
#include "tests/sim/preload/camera.hpp"

#include <algorithm>
#include <poll.h>
#include <termios.h>

using questions::Words;

namespace {

struct Case {
    std::string title, lines;
};

void PrintTo(const Case& one, std::ostream* out) { *out << one.title; }

std::vector<Case> cases()
{
    std::vector<std::filesystem::path> files;
    for (const char* folder : {"tests/machine/questions", "tests/sim/preload"})
        for (const auto& entry :
             std::filesystem::directory_iterator(std::filesystem::path(ZEP_SOURCE) / folder))
            if (entry.path().extension() == ".txt") files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    std::vector<Case> found;
    for (const auto& file : files) {
        std::ifstream in(file);
        found.push_back({file.stem(), ""});
        for (std::string line; std::getline(in, line);) {
            if (line.rfind("== ", 0) == 0)
                found.push_back({file.stem().string() + ": " + line.substr(3), ""});
            else
                found.back().lines += line + "\n";
        }
    }
    std::erase_if(found, [](const Case& one) { return one.lines.find("->") == std::string::npos; });
    return found;
}

std::string replaced(std::string text, const std::string& from, const std::string& to)
{
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

// What the lines of a case that begin so hold behind it.
std::vector<std::string> settings(const Case& one, const std::string& begin)
{
    std::vector<std::string> found;
    std::istringstream in(one.lines);
    for (std::string line; std::getline(in, line);)
        if (line.starts_with(begin)) found.push_back(line.substr(begin.size()));
    return found;
}

std::string camera_conf(const Case& one)
{
    std::string text;
    for (const std::string& line : settings(one, "# camera: ")) text += line + "\n";
    return text.empty() ? vcam::test::kFlash : text;
}

std::string open_port(int fd, const Words& words)
{
    termios settings = {};
    settings.c_cflag = CS8 | CREAD | CLOCAL;
    if (words[2] == "lines") settings.c_lflag = ICANON;
    ::cfsetspeed(&settings, words[2] == "1200" ? B1200 : words[2] == "19200" ? B19200 : B9600);
    settings.c_cc[VMIN] = cc_t(std::stoi(words[3]));
    settings.c_cc[VTIME] = cc_t(std::stoi(words[4]));
    return questions::result(::tcsetattr(fd, TCSAFLUSH, &settings));
}

class Answers : public vcam::test::CameraTest, public testing::WithParamInterface<Case> {
protected:
    Answers() : CameraTest(camera_conf(GetParam()))
    {
        for (const std::string& line : settings(GetParam(), "# state: "))
            write_file(folder / line.substr(0, line.find(' ')), line.substr(line.find(' ') + 1) + "\n");
    }

    std::optional<std::string> other(const Words& words, int fd)
    {
        const std::string& what = words[0];
        const auto from = [&](size_t first) {
            std::string text;
            for (size_t i = first; i < words.size(); ++i) text += (i > first ? " " : "") + words[i];
            return replaced(text, "\\n", "\n");
        };
        if (what == "fault") return std::to_string(vcamsim_fault(from(1).c_str()));
        if (what == "count") return std::to_string(vcamsim_count(words[1].c_str(), words[2].c_str()));
        if (what == "power") return std::to_string(vcamsim_has_power());
        if (what == "start") return std::to_string(vcamsim_start(folder.path().c_str(), 0));
        if (what == "run") return std::to_string(run(from(1)));
        if (what == "state") return write_file(folder / words[1], from(2)), "";
        if (what == "file") return replaced(read_file(folder / words[1]), "\n", "\\n");
        if (what == "journal") return std::to_string(journaled(from(1)));
        if (what == "sleep") return pause(std::stod(words[1]));
        if (what == "until") return pause(std::stod(words[1]) - seconds());
        if (what == "mark") return mark_ = seconds(), "";
        if (what == "since") return seconds() - mark_ >= std::stod(words[1]) ? "yes" : "no";
        if (what == "faults") return vcamsim_clear_faults(), "";
        if (what == "watchdog") return watchdog();
        if (what == "gap") return std::to_string(watchdog_state().longest_gap_us / 1'000'000);
        if (what == "port") return open_port(fd, words);
        if (what == "part") return part(fd, std::stol(words[2]));
        if (what == "fill") return fill(fd);
        if (what == "flush") return questions::result(::tcflush(fd, TCIOFLUSH));
        if (what != "poll") return {};
        pollfd wanted = {fd, short(words[2] == "in" ? POLLIN : POLLOUT), 0};
        return std::to_string(::poll(&wanted, 1, std::stoi(words[3])));
    }

private:
    static std::string pause(double length)
    {
        const timespec whole = {time_t(length), long((length - double(time_t(length))) * 1e9)};
        if (length > 0) ::nanosleep(&whole, nullptr);
        return "";
    }
    static std::string part(int fd, ssize_t whole)
    {
        std::string bytes(256, 0);
        const ssize_t n = ::read(fd, bytes.data(), bytes.size());
        return n > 0 && n < whole ? "yes" : "no";
    }
    // A byte may leave the queue between two writes.
    static std::string fill(int fd)
    {
        ssize_t n = 0;
        for (int i = 0; n >= 0 && i < 10'000; ++i) n = ::write(fd, "a", 1);
        return questions::result(n);
    }
    static vcamsim_watchdog watchdog_state()
    {
        vcamsim_watchdog w{};
        vcamsim_read_watchdog(&w);
        return w;
    }
    static std::string watchdog()
    {
        const vcamsim_watchdog w = watchdog_state();
        return (w.armed ? "armed, " : "off, ") + std::string(w.fired ? "fired, " : "") +
               std::to_string(w.feeds) + " feeds";
    }
    [[nodiscard]] size_t journaled(const std::string& text) const
    {
        const std::string all = journal();
        size_t count = 0;
        for (size_t at = 0; (at = all.find(text, at)) != std::string::npos; at += text.size()) ++count;
        return count;
    }

    double mark_ = 0;
};

} // namespace

TEST_P(Answers, AreThoseOfTheFile)
{
    std::istringstream lines(GetParam().lines);
    EXPECT_EQ(questions::asked(lines, [this](const Words& words, int fd) { return other(words, fd); }),
              GetParam().lines);
}

INSTANTIATE_TEST_SUITE_P(Questions, Answers, testing::ValuesIn(cases()), [](const auto& one) {
    std::string name = one.param.title;
    std::erase_if(name, [](char c) { return !isalnum(c); });
    return name;
});
