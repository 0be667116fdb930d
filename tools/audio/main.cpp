// zep-audio: a station for the audio loop-back test of a camera.
#include "tools/audio/analysis.hpp"
#include "tools/audio/codec.hpp"
#include "tools/audio/session.hpp"
#include "tools/cli/command_line.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace {

using namespace zaudio;

enum ExitStatus { kGood = 0, kFailed = 1, kTrouble = 2 };

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

// What a command does and which options it acts on.
enum Group : unsigned { kSound = 1, kPlays = 2, kRecords = 4, kTone = 8 };

void add_sound(Options& o, std::vector<cli::Option>& all)
{
    const auto codec = [&o](const std::string& name) {
        std::vector<std::string> names;
        for (const CodecName& one : kCodecNames) names.emplace_back(one.name);
        cli::one_of(name, names);
        for (const CodecName& one : kCodecNames)
            if (name == one.name) o.type = one.type, o.codec = one.name;
    };
    const auto byte = [](int& into) {
        return [&into](const std::string& v) { into = int(cli::whole_number(v, 0, 255)); };
    };
    all.push_back({"-c,--codec", "NAME", "g711a (default), g711u, g726, lpcm or adpcm", codec});
    all.push_back({"-r,--rate", "HZ", "sample rate; 8000 unless given, or that of the file to be played",
                   [&](auto& v) { o.rate = int(cli::whole_number(v, 8000, 192000)); }});
    all.push_back({"-m,--meter", nullptr, "level meter on standard error", [&](auto&) { o.meter = true; }});
    all.push_back({"--mic-in", "0|1", "1 (default) selects the microphone, 0 leaves the input", [&](auto& v) {
                       o.mic_in = cli::one_of(v, {"0", "1"}) == "1";
                   }});
    all.push_back({"--mic-volume", "N", "of the codec chip (15)", byte(o.mic_volume)});
    all.push_back({"--adc-volume", "N", "of the codec chip (0)", byte(o.adc_volume)});
    all.push_back({"--dac-volume", "N", "of the codec chip (0)", byte(o.dac_volume)});
}

void add_tone(Options& o, std::vector<cli::Option>& all)
{
    const auto number = [](double& into, double low, double high) {
        return [&into, low, high](const std::string& v) { into = cli::number(v, low, high); };
    };
    all.push_back({"-f,--frequency", "HZ", "of the tone (1000)", number(o.frequency, 50, 20000)});
    all.push_back({"--level-min", "DB", "least level of the tone (-40)", number(o.level_min, -120, 0)});
    all.push_back({"--level-max", "DB", "highest level of the tone (0)", number(o.level_max, -120, 3)});
    all.push_back({"--snr", "DB", "least signal to noise ratio (20)", number(o.snr_min, 0, 120)});
    all.push_back({"--listen", nullptr, "the tone comes from elsewhere: send nothing",
                   [&](auto&) { o.listen = true; }});
}

cli::Syntax syntax(Options& o, unsigned groups, const std::vector<cli::Operand>& files)
{
    cli::Syntax syntax = {{}, {{"HOST"}, {"PORT"}}};
    syntax.operands.insert(syntax.operands.end(), files.begin(), files.end());
    if (groups & kSound) add_sound(o, syntax.options);
    if (groups & (kTone | kRecords) && !(groups & kPlays))
        syntax.options.push_back({"-t,--seconds", "S",
                                  groups & kTone ? "length of the tone (2)" : "to record (5)",
                                  [&](auto& v) { o.seconds = cli::number(v, 0.4, 36000); }});
    if (groups & kTone) add_tone(o, syntax.options);
    if (groups & (kRecords | kTone))
        syntax.options.push_back(
            {"--force", nullptr, "replace an output that is no WAV file", [&](auto&) { o.force = true; }});
    syntax.options.push_back({"--limit", "S", "for the connection and each answer (10)",
                              [&](auto& v) { o.limit_s = int(cli::whole_number(v, 1, 3600)); }});
    return syntax;
}

// A command of the tool from what it does, its options, its files and its usual seconds.
cli::Command command(const char* name, const char* help, int (*work)(const Options&), unsigned groups,
                     const std::vector<cli::Operand>& files, double seconds)
{
    return {name, help,
            [=](const cli::Arguments& arguments) {
                Options options;
                options.seconds = seconds;
                const cli::Words words = cli::parse(arguments, syntax(options, groups, files));
                options.host = words.plain[0];
                options.port = words.plain[1];
                try {
                    cli::whole_number(options.port, 1, 65535);
                } catch (const cli::WrongUse& e) {
                    throw cli::WrongUse("PORT " + options.port + ": " + e.what());
                }
                options.files.assign(words.plain.begin() + 2, words.plain.end());
                return work(options);
            },
            kTrouble};
}

} // namespace

int main(int argc, char** argv)
{
    const cli::Operand in = {"IN.wav", cli::Operand::file}, out = {"OUT.wav", cli::Operand::file},
                       maybe = {"OUT.wav", cli::Operand::file, false};
    const cli::Tool tool = {
        "zep-audio",
        "A station for the audio loop-back test of a camera.",
        "0 good, 1 verdict failed, 2 wrong use, file or connection.",
        {command("record", "take the camera's microphone", record, kSound | kRecords, {out}, 5),
         command("play", "play through the camera's loudspeaker", play, kSound | kPlays, {in}, 0),
         command("loop", "both at once", loop, kSound | kPlays | kRecords, {in, out}, 0),
         command("verdict", "send a tone and look for it in what comes back", verdict, kSound | kTone,
                 {maybe}, 2),
         command("status", "what the camera does, and the network's round trip", status, 0, {}, 0)},
    };
    return cli::run(tool, argc, argv);
}
