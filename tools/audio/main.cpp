// zep-audio: a station for the audio loop-back test of a camera.
#include "tools/audio/analysis.hpp"
#include "tools/audio/codec.hpp"
#include "tools/audio/session.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <getopt.h>
#include <unistd.h>

namespace {

using namespace zaudio;

enum ExitStatus { kGood = 0, kFailed = 1, kTrouble = 2 };

constexpr char kUsage[] =
    "usage: zep-audio record [OPTION]... HOST PORT OUT.wav\n"
    "       zep-audio play [OPTION]... HOST PORT IN.wav\n"
    "       zep-audio loop [OPTION]... HOST PORT IN.wav OUT.wav\n"
    "       zep-audio verdict [OPTION]... HOST PORT [OUT.wav]\n"
    "       zep-audio status HOST PORT\n"
    "\n"
    "record   takes the camera's microphone\n"
    "play     plays through the camera's loudspeaker\n"
    "loop     both at once\n"
    "verdict  sends a tone and looks for it in what comes back\n"
    "status   what the camera does, and the network's round trip\n"
    "\n"
    "  -c, --codec NAME       g711a (default), g711u, g726, lpcm or adpcm\n"
    "  -r, --rate HZ          sample rate; default 8000, or that of the file to be played\n"
    "  -t, --seconds S        to record, or length of the tone; default 5 and 2\n"
    "  -m, --meter            level meter on standard error\n"
    "  -f, --frequency HZ     of the tone; default 1000\n"
    "      --level-min DB --level-max DB --snr DB\n"
    "                         limits of the verdict; default -40, 0 and 20\n"
    "      --listen           the tone comes from elsewhere: send nothing\n"
    "      --mic-in N --mic-volume N --adc-volume N --dac-volume N\n"
    "                         settings of the codec chip; default 1, 15, 0, 0\n"
    "      --force            replace an output that is no WAV file\n"
    "      --limit S          for the connection and each answer; default 10\n"
    "\n"
    "exit status: 0 good, 1 verdict failed or not all was played, 2 wrong usage, file or connection\n";

double to_ms(Clock::duration time) { return std::chrono::duration<double, std::milli>(time).count(); }

// kFailed, with a line on standard error, when the camera has not played all that it was sent.
int print_end(const Report& report)
{
    const auto& status = report.status;
    printf("camera sent %u, took %u, dropped %u, damaged %u, unheard %u; lost in the camera's input %u; "
           "round trip %.1f ms\n",
           status.sent, status.received, status.dropped, status.damaged, status.unheard, report.lost,
           to_ms(report.round_trip));
    if (report.heard()) return kGood;
    fputs("zep-audio: the camera has not played everything\n", stderr);
    return kFailed;
}

int record(const Options& options)
{
    const int rate = options.rate.value_or(8000);
    cli::OutputFile output(options.files[0], cli::wav_rule(options.force));
    const Report report = run_session(options, rate, {true, {}, options.seconds});
    write_wav(output, report.recorded);
    printf("%s: %.2f s, %.1f dB\n", options.files[0].c_str(), double(report.recorded.samples.size()) / rate,
           level_db(report.recorded.samples));
    print_end(report);
    return kGood;
}

// The file, whose rate is the session's unless the command line says another one, which is refused.
Sound input_of(const Options& options)
{
    Sound sound = read_wav(options.files[0]);
    if (options.rate.value_or(sound.rate) != sound.rate)
        throw std::runtime_error(options.files[0] + ": has " + std::to_string(sound.rate) +
                                 " samples a second, not " + std::to_string(*options.rate));
    return sound;
}

int play(const Options& options)
{
    const Sound sound = input_of(options);
    return print_end(run_session(options, sound.rate, {false, sound.samples, 0}));
}

int loop(const Options& options)
{
    const Sound sound = input_of(options);
    cli::OutputFile output(options.files[1], cli::wav_rule(options.force));
    output.keep_apart(options.files[0]);
    // Silence behind it, so that what is late comes in too.
    std::vector<int16_t> to_play = sound.samples;
    to_play.resize(to_play.size() + size_t(sound.rate));
    const double seconds = double(to_play.size()) / sound.rate;
    const Report report = run_session(options, sound.rate, {true, std::move(to_play), seconds});
    write_wav(output, report.recorded);
    if (const auto at = find_signal(
            report.recorded.samples,
            std::span(sound.samples).first(std::min<size_t>(sound.samples.size(), size_t(sound.rate)))))
        printf("comes back after %.1f ms\n", double(*at) * 1000 / sound.rate);
    return print_end(report);
}

struct Check {
    const char* name;
    double found, low, high;
    const char* unit;
};

int judge(const Options& options, const Tone& tone)
{
    const Check checks[] = {
        {"frequency", tone.frequency, options.frequency * 0.99, options.frequency * 1.01, "Hz"},
        {"level", tone.level_db, options.level_min, options.level_max, "dB"},
        {"signal to noise", tone.snr_db, options.snr_min, 999, "dB"},
    };
    bool passed = true;
    for (const Check& check : checks) {
        const bool good = check.found >= check.low && check.found <= check.high;
        passed &= good;
        printf("%-16s %8.1f %s  %s\n", check.name, check.found, check.unit, good ? "good" : "OUT OF LIMITS");
    }
    return passed ? kGood : kFailed;
}

// Silence, a burst to find the place, a pause, the tone, and silence while what is late comes in.
constexpr double kSilenceS = 0.5, kBurstS = 0.1, kPauseS = 0.2, kLateS = 1, kSettleS = 0.3;

std::vector<int16_t> test_signal(const Options& options, int rate, double tone_s)
{
    std::vector<int16_t> all(size_t(kSilenceS * rate));
    const auto add = [&](const std::vector<int16_t>& part) {
        all.insert(all.end(), part.begin(), part.end());
    };
    add(make_burst(rate, -6, kBurstS));
    add(std::vector<int16_t>(size_t(kPauseS * rate)));
    add(make_tone(rate, options.frequency, -12, tone_s));
    add(std::vector<int16_t>(size_t(kLateS * rate)));
    return all;
}

int verdict(const Options& options)
{
    const int rate = options.rate.value_or(8000);
    const double tone_s = options.seconds;
    const double all_s = kSilenceS + kBurstS + kPauseS + tone_s + kLateS;
    const Job job = {true, options.listen ? std::vector<int16_t>{} : test_signal(options, rate, tone_s),
                     all_s};
    std::optional<cli::OutputFile> output;
    if (!options.files.empty()) output.emplace(options.files[0], cli::wav_rule(options.force));
    const Report report = run_session(options, rate, job);
    const std::span<const int16_t> recorded = report.recorded.samples;
    if (output) write_wav(*output, report.recorded);
    size_t begin = size_t(kSettleS * rate);
    if (!options.listen) {
        const auto burst = find_signal(recorded, make_burst(rate, -6, kBurstS));
        if (!burst) {
            printf("nothing of what was sent comes back (%.1f dB)\n", level_db(recorded));
            print_end(report);
            puts("failed");
            return kFailed;
        }
        printf("%-16s %8.1f ms\n", "delay", (double(*burst) / rate - kSilenceS) * 1000);
        begin += *burst + size_t((kBurstS + kPauseS) * rate);
    }
    const size_t length =
        std::min(recorded.size() - std::min(begin, recorded.size()), size_t((tone_s - kSettleS) * rate));
    const auto tone =
        length ? find_tone(recorded.subspan(begin, length), rate, options.frequency) : std::nullopt;
    const int tone_status = tone ? judge(options, *tone) : kFailed;
    const int status = std::max(tone_status, print_end(report));
    puts(status == kGood ? "successful" : "failed");
    return status;
}

int status(const Options& options)
{
    Link link(options.host, options.port, std::chrono::seconds(options.limit_s));
    Clock::duration round_trip;
    const zaudio::Status now = link.status(&round_trip);
    printf("%s; sent %u, took %u, dropped %u, damaged %u, unheard %u, waiting %u; lost in the input %u; "
           "round trip %.1f ms\n",
           now.running ? "session" : "no session", now.sent, now.received, now.dropped, now.damaged,
           now.unheard, now.waiting, now.lost, to_ms(round_trip));
    return kGood;
}

struct Command {
    const char* name;
    size_t files_min, files_max;
    int (*run)(const Options& options);
    double seconds;
};
constexpr Command kCommands[] = {
    {"record", 1, 1, record, 5},   {"play", 1, 1, play, 0},     {"loop", 2, 2, loop, 0},
    {"verdict", 0, 1, verdict, 2}, {"status", 0, 0, status, 0},
};

bool set_codec(Options& options, const char* name)
{
    for (const CodecName& codec : kCodecNames) {
        if (strcmp(codec.name, name) != 0) continue;
        options.type = codec.type;
        options.codec = codec.name;
        return true;
    }
    return false;
}

struct Number {
    int option;
    double low, high;
    void (*set)(Options& options, double value);
};
enum {
    kLevelMin = 256,
    kLevelMax,
    kSnr,
    kListen,
    kMicIn,
    kMicVolume,
    kAdcVolume,
    kDacVolume,
    kLimit,
    kForce,
    kHelp
};
constexpr Number kNumbers[] = {
    {'r', 8000, 192000, [](Options& o, double v) { o.rate = int(v); }},
    {'t', 0.4, 36000, [](Options& o, double v) { o.seconds = v; }},
    {'f', 50, 20000, [](Options& o, double v) { o.frequency = v; }},
    {kLevelMin, -120, 0, [](Options& o, double v) { o.level_min = v; }},
    {kLevelMax, -120, 3, [](Options& o, double v) { o.level_max = v; }},
    {kSnr, 0, 120, [](Options& o, double v) { o.snr_min = v; }},
    {kMicIn, 0, 1, [](Options& o, double v) { o.mic_in = int(v); }},
    {kMicVolume, 0, 255, [](Options& o, double v) { o.mic_volume = int(v); }},
    {kAdcVolume, 0, 255, [](Options& o, double v) { o.adc_volume = int(v); }},
    {kDacVolume, 0, 255, [](Options& o, double v) { o.dac_volume = int(v); }},
    {kLimit, 1, 3600, [](Options& o, double v) { o.limit_s = int(v); }},
};
constexpr option kLong[] = {
    {"codec", required_argument, nullptr, 'c'},
    {"rate", required_argument, nullptr, 'r'},
    {"seconds", required_argument, nullptr, 't'},
    {"meter", no_argument, nullptr, 'm'},
    {"frequency", required_argument, nullptr, 'f'},
    {"level-min", required_argument, nullptr, kLevelMin},
    {"level-max", required_argument, nullptr, kLevelMax},
    {"snr", required_argument, nullptr, kSnr},
    {"listen", no_argument, nullptr, kListen},
    {"mic-in", required_argument, nullptr, kMicIn},
    {"mic-volume", required_argument, nullptr, kMicVolume},
    {"adc-volume", required_argument, nullptr, kAdcVolume},
    {"dac-volume", required_argument, nullptr, kDacVolume},
    {"limit", required_argument, nullptr, kLimit},
    {"force", no_argument, nullptr, kForce},
    {"help", no_argument, nullptr, kHelp},
    {nullptr, 0, nullptr, 0},
};

bool set_number(Options& options, int which, const char* text)
{
    for (const Number& number : kNumbers) {
        if (number.option != which) continue;
        char* end = nullptr;
        const double value = strtod(text, &end);
        if (end == text || *end || !(value >= number.low && value <= number.high)) {
            fprintf(stderr, "zep-audio: %s is not a number from %g to %g\n", text, number.low, number.high);
            return false;
        }
        number.set(options, value);
        return true;
    }
    return false;
}

bool parse(int argc, char** argv, const Command& command, Options& options)
{
    options.seconds = command.seconds;
    for (int which; (which = getopt_long(argc, argv, "c:r:t:mf:", kLong, nullptr)) != -1;) {
        if (which == 'm')
            options.meter = true;
        else if (which == kListen)
            options.listen = true;
        else if (which == kForce)
            options.force = true;
        else if (which == 'c') {
            if (set_codec(options, optarg)) continue;
            fprintf(stderr, "zep-audio: no codec %s\n", optarg);
            return false;
        } else if (which == '?' || !set_number(options, which, optarg))
            return false;
    }
    const size_t words = size_t(argc - optind);
    if (words < 2 + command.files_min || words > 2 + command.files_max) return false;
    options.host = argv[optind];
    options.port = argv[optind + 1];
    options.files.assign(argv + optind + 2, argv + argc);
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc > 1 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0)) {
        fputs(kUsage, stdout);
        return kGood;
    }
    for (const Command& command : kCommands) {
        if (argc < 2 || strcmp(argv[1], command.name) != 0) continue;
        Options options;
        if (!parse(argc - 1, argv + 1, command, options)) break;
        try {
            return command.run(options);
        } catch (const std::exception& problem) {
            fprintf(stderr, "zep-audio: %s\n", problem.what());
            return kTrouble;
        }
    }
    fputs(kUsage, stderr);
    return kTrouble;
}
