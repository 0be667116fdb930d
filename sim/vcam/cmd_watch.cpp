// vcam watch: a live view of one camera in the terminal.
#include "sim/base/text.hpp"
#include "sim/vcam/commands.hpp"
#include "sim/vcam/options.hpp"
#include "sim/view/snapshot.hpp"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace vcam {
namespace {

constexpr int kLookMs = 200, kLeastWidth = 40, kUsualWidth = 80, kUsualHeight = 24;
constexpr size_t kKeptLines = 200; // of the logs
constexpr size_t kEndLine = 1;     // of the picture

volatile sig_atomic_t ended;
void on_end(int) { ended = 1; }

// What has been shown so far, sections as the snapshot gives them.
struct View {
    cli::Json sections = cli::Json::object();
    std::deque<std::string> lines; // of system log and journal, as they came
    std::string phase;             // of an upgrade that runs
};

// "<camera time> ..." of the logs; lines of the console have none and come first.
double time_in(const std::string& line)
{
    return starts_with(line, "console ") ? -1 : atof(line.c_str() + line.find(' '));
}

// The look's lines in the order of time, for a pipe.
std::vector<std::string> take(View& view, const cli::Json& look)
{
    std::vector<std::string> fresh;
    for (const auto& [name, value] : look.items()) {
        if (name != "journal" && name != "log" && name != "console") {
            view.sections[name] = value;
            continue;
        }
        for (const auto& line : value) {
            fresh.push_back(one_line(name + " " + line.get<std::string>()));
            if (fresh.back().ends_with("\\n")) fresh.back().resize(fresh.back().size() - 2);
        }
    }
    std::stable_sort(fresh.begin(), fresh.end(),
                     [](const auto& a, const auto& b) { return time_in(a) < time_in(b); });
    for (const auto& line : fresh) view.lines.push_back(line);
    while (view.lines.size() > kKeptLines) view.lines.pop_front();
    return fresh;
}

// How many blocks are in each state.
std::string counts(const std::string& map)
{
    constexpr std::pair<char, const char*> kStates[] = {
        {kOld, "unchanged"}, {kNew, "new"}, {kErased, "erased"}, {kTorn, "torn"}, {kBad, "bad"}};
    std::vector<std::string> out;
    for (const auto& [state, name] : kStates)
        if (const auto n = std::count(map.begin(), map.end(), state))
            out.push_back(text("%ld %s", long(n), name));
    return join(out, ", ");
}

// A map in a row of limited length. A character for several blocks shows the one that matters most.
std::string squeezed(const std::string& map, size_t width)
{
    constexpr std::string_view kRank = "tbneo";
    constexpr std::pair<char, char> kShown[] = {
        {kOld, 'o'}, {kNew, '#'}, {kErased, '.'}, {kTorn, '!'}, {kBad, 'X'}};
    const size_t share = std::max<size_t>(1, (map.size() + width - 1) / width);
    std::string out;
    for (size_t at = 0; at < map.size(); at += share) {
        char most = map[at];
        for (const char state : map.substr(at, share))
            if (kRank.find(state) < kRank.find(most)) most = state;
        for (const auto& [state, shown] : kShown)
            if (state == most) out += shown;
    }
    return out;
}

std::string head_line(const cli::Json& s)
{
    const cli::Json &head = s["head"], &time = s["time"];
    const bool running = head["running"];
    return head["name"].get<std::string>() + ", " + head["model"].get<std::string>() + ", " +
           (running ? "running " + head["command"].get<std::string>()
                    : "off (" + head["ending"].get<std::string>() + ")") +
           text(", %.3f s", time["seconds"].get<double>());
}

// How the last run ended, or how far the one that runs has come.
std::string end_line(const View& view)
{
    const cli::Json& head = view.sections["head"];
    if (head["running"].get<bool>()) return view.phase;
    const cli::Json& o = head["outcome"];
    return outcome_line({o["kind"], o["text"], o["share"]});
}

std::string watchdog_line(const cli::Json& time)
{
    const cli::Json& w = time["watchdog"];
    return text("watchdog %s, time-out %d s, fed %d times, longest gap %.3f s",
                w["fired"].get<bool>()   ? "has reset the camera"
                : w["armed"].get<bool>() ? "armed"
                                         : "off",
                w["timeout"].get<int>(), w["feeds"].get<int>(), w["longest_gap"].get<double>());
}

// "5.0 1" for each output, then inputs that are high.
std::string lines_line(const cli::Json& board)
{
    std::string outputs, inputs;
    for (const auto& group : board["lines"])
        for (int bit = 0; bit < 8; ++bit) {
            const bool output = group["output"].get<int>() >> bit & 1,
                       high = group["level"].get<int>() >> bit & 1;
            const std::string name = text(" %d.%d", group["group"].get<int>(), bit);
            if (output) outputs += name + (high ? "=1" : "=0");
            if (!output && high) inputs += name;
        }
    return "lines    outputs" + (outputs.empty() ? " none" : outputs) + "; inputs high" +
           (inputs.empty() ? " none" : inputs);
}

void add_sound(std::vector<std::string>& out, const cli::Json& sound)
{
    if (!sound.is_object()) return;
    for (const auto& [kind, count] : {std::pair{"ai", "lost"}, {"ao", "underruns"}})
        for (const auto& c : sound[kind])
            out.push_back(text("%-8s rms %5u of 32768, peak %5u, %s %u",
                               c["channel"].get<std::string>().c_str(), c["rms"].get<unsigned>(),
                               c["peak"].get<unsigned>(), count, c[count].get<unsigned>()));
}

// Cut to the given number of characters; none of UTF-8 is cut in two.
std::string shortened(std::string line, size_t width)
{
    size_t characters = 0;
    for (size_t at = 0; at < line.size(); ++at)
        if ((line[at] & 0xC0) != 0x80 && ++characters > width) {
            line.resize(at);
            break;
        }
    return line;
}

std::string end_colour(const cli::Json& head)
{
    const std::string kind = head["running"].get<bool>() ? "" : head["outcome"]["kind"].get<std::string>();
    return kind == "good" ? "\033[32m" : kind == "bad" || kind == "cut" ? "\033[31m" : "";
}

std::vector<std::string> picture(const View& view, size_t width, size_t height)
{
    const cli::Json& s = view.sections;
    std::vector<std::string> out = {head_line(s), end_line(view), watchdog_line(s["time"]),
                                    lines_line(s["board"])};
    add_sound(out, s.value("sound", cli::Json()));
    for (const auto& part : s["flash"]) {
        const std::string map = part["map"];
        out.push_back(part["name"].get<std::string>() + "     " + counts(map));
        out.push_back("  " + squeezed(map, width - 2));
    }
    out.emplace_back("o unchanged  # new  . erased  ! torn  X bad          q ends");
    const size_t room = height > out.size() ? std::min(height - out.size(), view.lines.size()) : 0;
    out.insert(out.end(), view.lines.end() - long(room), view.lines.end());
    if (out.size() > height) out.resize(height);
    for (auto& line : out) line = shortened(one_line(line), width);
    return out;
}

// The terminal for as long as this lives: keys come one by one, the screen that stood there comes back.
class Screen {
public:
    Screen()
    {
        for (const int number : {SIGINT, SIGTERM, SIGHUP}) signal(number, on_end);
        tcgetattr(STDIN_FILENO, &before_);
        termios raw = before_;
        raw.c_lflag &= ~tcflag_t(ICANON | ECHO);
        tcsetattr(STDIN_FILENO, TCSANOW, &raw);
        fputs("\033[?1049h\033[?25l", stdout);
    }
    ~Screen()
    {
        fputs("\033[?25h\033[?1049l", stdout);
        fflush(stdout);
        tcsetattr(STDIN_FILENO, TCSANOW, &before_);
    }
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    static void show(const View& view)
    {
        winsize size = {};
        if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) < 0 || !size.ws_row)
            size = {kUsualHeight, kUsualWidth, 0, 0};
        std::string frame = "\033[H";
        const auto lines = picture(view, std::max<size_t>(size.ws_col, kLeastWidth), size.ws_row);
        for (size_t i = 0; i < lines.size(); ++i)
            frame += (i ? "\r\n" : "") + (i == kEndLine ? end_colour(view.sections["head"]) : "") + lines[i] +
                     "\033[m\033[K";
        fputs((frame + "\033[J").c_str(), stdout);
        fflush(stdout);
    }
    static void wait()
    {
        pollfd key = {STDIN_FILENO, POLLIN, 0};
        char letter = 0;
        if (poll(&key, 1, kLookMs) > 0 && (read(STDIN_FILENO, &letter, 1) <= 0 || letter == 'q')) ended = 1;
    }

private:
    termios before_ = {};
};

void watch_on_screen(Snapshot& snapshot)
{
    Screen screen;
    View view;
    for (bool full = true; !ended; full = false) {
        const cli::Json look = snapshot.next(full);
        take(view, look);
        if (look.contains("restart") || look.contains("flash") || look.contains("log"))
            view.phase = snapshot.phase();
        Screen::show(view);
        Screen::wait();
    }
}

// Lines as they come, and the flash whenever it has changed, until the camera ends.
void watch_in_lines(Snapshot& snapshot)
{
    View view;
    for (bool full = true;; full = false) {
        const cli::Json look = snapshot.next(full);
        const auto lines = take(view, look);
        if (look.contains("head")) puts(one_line(head_line(view.sections)).c_str());
        for (const auto& line : lines) puts(line.c_str());
        if (look.contains("flash"))
            for (const auto& part : look["flash"])
                printf("flash %s %s\n", part["name"].get<std::string>().c_str(), counts(part["map"]).c_str());
        const bool over = !view.sections["head"]["running"].get<bool>();
        if (over) puts(one_line(end_line(view)).c_str());
        fflush(stdout);
        if (over) return;
        usleep(kLookMs * 1000);
    }
}

} // namespace

int watch_main(const Arguments& arguments)
{
    const auto words = cli::parse(arguments, {{}, {kCamera}});
    Snapshot snapshot(words.plain[0]);
    isatty(STDOUT_FILENO) && isatty(STDIN_FILENO) ? watch_on_screen(snapshot) : watch_in_lines(snapshot);
    return 0;
}

} // namespace vcam
