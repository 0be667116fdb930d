// zep-audio: a station for the audio loop-back test of a camera.
#include "tools/audio/analysis.hpp"
#include "tools/audio/codec.hpp"
#include "tools/audio/session.hpp"
#include "tools/audio/verdict.hpp"
#include "tools/cli/command_line.hpp"
#include "tools/cli/json.hpp"

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
int print_end(const Report& report, FILE* to = stdout)
{
    const auto& status = report.status;
    fprintf(to,
            "camera sent %u, took %u, dropped %u, damaged %u, unheard %u; lost in the camera's input %u; "
            "round trip %.1f ms\n",
            status.sent, status.received, status.dropped, status.damaged, status.unheard, report.lost,
            to_ms(report.round_trip));
    if (report.heard()) return kGood;
    fputs("zep-audio: the camera has not played everything\n", stderr);
    return kFailed;
}

// The recording is in its file. kTrouble, with a line on standard error, when the session broke off before its end.
int keep(const Options& options, cli::OutputFile& output, const Report& report)
{
    write_wav(output, report.recorded);
    if (report.broken.empty()) return kGood;
    fprintf(stderr, "zep-audio: %s; %s holds the %.2f s until then\n", report.broken.c_str(),
            options.files.back().c_str(), double(report.recorded.samples.size()) / report.recorded.rate);
    return kTrouble;
}

// Text goes where no sound goes.
FILE* text_beside(const cli::OutputFile& output) { return output.is_stdout() ? stderr : stdout; }

int record(const Options& options)
{
    const int rate = options.rate.value_or(8000);
    cli::OutputFile output(options.files[0], cli::wav_rule(options.force));
    end_session_on_signals();
    const Report report = run_session(options, rate, {true, {}, options.seconds});
    if (const int trouble = keep(options, output, report)) return trouble;
    FILE* to = text_beside(output);
    fprintf(to, "%s: %.2f s, %.1f dB\n", options.files[0].c_str(),
            double(report.recorded.samples.size()) / rate, level_db(report.recorded.samples));
    print_end(report, to);
    return kGood;
}

// The file at the session's rate, which is its own unless the command line says another one.
Sound input_of(const Options& options)
{
    const Sound sound = read_wav(options.files[0]);
    if (sound.samples.empty()) throw std::runtime_error(options.files[0] + ": has no samples");
    if (!options.rate && !is_rate(sound.rate))
        throw std::runtime_error(options.files[0] + ": " + std::to_string(sound.rate) +
                                 " Hz is no rate of a camera; choose one with --rate: " + rate_names(", "));
    return at_rate(sound, options.rate.value_or(sound.rate));
}

int play(const Options& options)
{
    const Sound sound = input_of(options);
    return print_end(run_session(options, sound.rate, {false, sound.samples, 0}));
}

int loop(const Options& options)
{
    const Sound sound = input_of(options);
    cli::OutputFile output(options.files[1], cli::wav_rule(options.force), {options.files[0]});
    // Silence behind it, so that what is late comes in too.
    std::vector<int16_t> to_play = sound.samples;
    to_play.resize(to_play.size() + size_t(sound.rate));
    const double seconds = double(to_play.size()) / sound.rate;
    const Report report = run_session(options, sound.rate, {true, std::move(to_play), seconds});
    if (const int trouble = keep(options, output, report)) return trouble;
    if (const auto at = find_signal(
            report.recorded.samples,
            std::span(sound.samples).first(std::min<size_t>(sound.samples.size(), size_t(sound.rate)))))
        fprintf(text_beside(output), "comes back after %.1f ms\n", double(*at) * 1000 / sound.rate);
    return print_end(report, text_beside(output));
}

struct Check {
    const char* name;
    double found, low, high;
    const char* unit;
    [[nodiscard]] bool good() const { return found >= low && found <= high; }
};

constexpr double kInterruptedMs = 10; // what a line may be gone
constexpr double kDisturbed = 0.2;    // of the tone: more under-runs leave too little to judge
constexpr double kNoLimit = 999;

std::vector<Check> checks_of(const Options& options, const Finding& finding)
{
    std::vector<Check> checks;
    if (finding.tone)
        checks = {
            {"frequency", finding.tone->frequency, options.frequency * 0.99, options.frequency * 1.01, "Hz"},
            {"level", finding.tone->level_db, options.level_min, options.level_max, "dB"},
            {"signal to noise", finding.tone->snr_db, options.snr_min, kNoLimit, "dB"}};
    checks.push_back({"interrupted", finding.interrupted_ms, 0, kInterruptedMs, "ms"});
    return checks;
}

cli::Json status_json(const zaudio::Status& status)
{
    return {{"running", status.running}, {"sent", status.sent},       {"received", status.received},
            {"dropped", status.dropped}, {"damaged", status.damaged}, {"waiting", status.waiting},
            {"unheard", status.unheard}, {"lost", status.lost}};
}

// What a verdict says: about the line when it could be judged.
struct Verdict {
    Finding finding;
    std::vector<Check> checks;
    bool good = false, judged = true;
};

Verdict verdict_of(const Options& options, const Finding& finding, const Report& report)
{
    Verdict verdict{finding, checks_of(options, finding)};
    verdict.good =
        finding.came_back && finding.tone && report.heard() &&
        std::all_of(verdict.checks.begin(), verdict.checks.end(), [](const Check& c) { return c.good(); });
    // Sound that came too late, and frames that nobody fetched, are a busy computer's or network's.
    const double lost_ms = 1000.0 * report.lost * report.points / report.recorded.rate;
    const double disturbed_ms = finding.underrun_ms + to_ms(report.late) + lost_ms;
    const bool disturbed = disturbed_ms > kDisturbed * 1000 * options.seconds;
    verdict.judged = verdict.good || !finding.came_back || !disturbed;
    return verdict;
}

void print_text(const Options& options, const Verdict& verdict, const Report& report)
{
    const Finding& finding = verdict.finding;
    if (!finding.came_back)
        printf("nothing of what was sent comes back (%.1f dB)\n", level_db(report.recorded.samples));
    else if (!options.listen)
        printf("%-16s %8.1f ms\n", "delay", finding.delay_ms);
    for (const Check& check : verdict.checks)
        if (finding.came_back)
            printf("%-16s %8.1f %s  %s\n", check.name, check.found, check.unit,
                   check.good() ? "good" : "OUT OF LIMITS");
    if (finding.underrun_ms > 0)
        printf("%-16s %8.1f ms  sound came too late to the camera, by this computer %.1f ms\n", "under-runs",
               finding.underrun_ms, to_ms(report.late));
    print_end(report);
    puts(verdict.good ? "successful" : verdict.judged ? "failed" : "not judged");
}

void print_json(const Verdict& verdict, const Report& report)
{
    const Finding& finding = verdict.finding;
    cli::Json json = {{"good", verdict.good},
                      {"judged", verdict.judged},
                      {"came_back", finding.came_back},
                      {"delay_ms", finding.delay_ms},
                      {"underrun_ms", finding.underrun_ms},
                      {"late_ms", to_ms(report.late)},
                      {"checks", cli::Json::array()}};
    for (const Check& check : verdict.checks)
        json["checks"].push_back({{"name", check.name},
                                  {"found", check.found},
                                  {"low", check.low},
                                  {"high", check.high},
                                  {"unit", check.unit},
                                  {"good", check.good()}});
    json["lost_frames"] = report.lost;
    json["round_trip_ms"] = to_ms(report.round_trip);
    json["camera"] = status_json(report.status);
    cli::print_json(json, 2);
}

int verdict(const Options& options)
{
    const int rate = options.rate.value_or(8000);
    const TestSignal signal{rate, options.frequency, options.seconds};
    const Job job = {true, options.listen ? std::vector<int16_t>{} : samples_of(signal), seconds_of(signal)};
    std::optional<cli::OutputFile> output;
    if (!options.files.empty()) output.emplace(options.files[0], cli::wav_rule(options.force));
    if (output && output->is_stdout())
        throw cli::WrongUse("the verdict goes to standard output; name a file for the sound");
    const Report report = run_session(options, rate, job);
    const std::span<const int16_t> recorded = report.recorded.samples;
    if (output && keep(options, *output, report) != kGood) return kTrouble;
    if (!report.broken.empty()) throw std::runtime_error(report.broken);
    const Finding finding = options.listen ? examine_tone(signal, recorded)
                                           : examine(signal, recorded, size_t(report.lost) * report.points);
    const Verdict verdict = verdict_of(options, finding, report);
    options.json ? print_json(verdict, report) : print_text(options, verdict, report);
    if (!verdict.judged)
        fputs("zep-audio: too much of the sound came late or was lost to judge the line; try again\n",
              stderr);
    return verdict.good ? kGood : verdict.judged ? kFailed : kTrouble;
}

int status(const Options& options)
{
    Link link(options.host, options.port, std::chrono::seconds(options.limit_s),
              std::chrono::seconds(options.wait_s));
    Clock::duration round_trip;
    const zaudio::Status now = link.status(&round_trip);
    if (options.json) {
        cli::Json json = status_json(now);
        json["round_trip_ms"] = to_ms(round_trip);
        cli::print_json(json, 2);
        return kGood;
    }
    printf("%s; sent %u, took %u, dropped %u, damaged %u, unheard %u, waiting %u; lost in the input %u; "
           "round trip %.1f ms\n",
           now.running ? "session" : "no session", now.sent, now.received, now.dropped, now.damaged,
           now.unheard, now.waiting, now.lost, to_ms(round_trip));
    return kGood;
}

// What a command does and which options it acts on.
enum Group : unsigned { kSound = 1, kPlays = 2, kRecords = 4, kTone = 8, kJson = 16 };

void add_sound(Options& o, std::vector<cli::Option>& all)
{
    const auto codec = [&o](const std::string& name) {
        std::vector<std::string> names;
        for (const CodecName& one : kCodecNames) names.emplace_back(one.name);
        cli::one_of(name, names);
        for (const CodecName& one : kCodecNames) {
            if (name != one.name) continue;
            o.type = one.type;
            o.codec = one.name;
        }
    };
    const auto byte = [](int& into) {
        return [&into](const std::string& v) { into = int(cli::whole_number(v, 0, 255)); };
    };
    all.push_back(
        {"-c,--codec", "NAME", codec_names(", ") + "; g711a unless given", codec, codec_names(" ")});
    all.push_back({"-r,--rate", "HZ",
                   "sample rate; 8000 unless given, or that of the file to be played, which is converted",
                   [&](auto& v) {
                       o.rate = int(cli::whole_number(v, 0, INT32_MAX));
                       if (!is_rate(*o.rate)) throw cli::WrongUse("give " + rate_names(", "));
                   },
                   rate_names(" ")});
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
    if (groups & kJson)
        syntax.options.push_back({"--json", nullptr, "for programs", [&](auto&) { o.json = true; }});
    syntax.options.push_back({"--limit", "S", "for the connection and each answer (10)",
                              [&](auto& v) { o.limit_s = int(cli::whole_number(v, 1, 3600)); }});
    syntax.options.push_back({"--wait", "S", "for a camera that does not listen yet (0)",
                              [&](auto& v) { o.wait_s = int(cli::whole_number(v, 0, 3600)); }});
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
         command("verdict", "send a tone and look for it in what comes back", verdict, kSound | kTone | kJson,
                 {maybe}, 2),
         command("status", "what the camera does, and the network's round trip", status, kJson, {}, 0)},
    };
    return cli::run(tool, argc, argv);
}
