// How the last run ended, in words for people.
#include "sim/view/outcome.hpp"
#include "sim/base/text.hpp"
#include "sim/view/record.hpp"
#include "sim/view/snapshot.hpp"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

namespace vcam {
namespace {

constexpr size_t kLastLines = 50; // of a console

constexpr struct {
    const char *ending, *words;
} kEndings[] = {{"powercut", "power cut"},
                {"watchdog", "reset by the watchdog"},
                {"timeout", "stopped at the time limit"},
                {"reboot", "rebooted"},
                {"poweroff", "powered off"}};

std::string words_of(const std::string& ending)
{
    for (const auto& row : kEndings)
        if (ending == row.ending) return row.words;
    return ending.empty() ? "ended without a note" : one_line(ending);
}

// The step of flash work that the record has reached.
struct Step {
    std::string doing, partition; // "writing", "mtd1"; empty before the first step
    uint64_t bytes = 0;           // its length, 0: the whole partition
    bool logged = false;          // an upgrade's log line has named it
};

// The lines that an upgrade writes at the beginning of a step.
void follow_log(Step& step, const std::string& line)
{
    const size_t device = line.find("/dev/mtd"), size = line.find("size : ");
    uint64_t bytes = 0;
    if (line.find("[CFlash_Erase] =") != std::string::npos && device != std::string::npos)
        step = {"erasing", line.substr(device + strlen("/dev/"), strlen("mtd0")), 0, true};
    if (line.find("[CFlash_NWrite]") != std::string::npos && size != std::string::npos &&
        sscanf(line.c_str() + size, "size : %" SCNu64, &bytes) == 1)
        step = {"writing", step.partition, bytes, true};
    if (line.find("[CFlash_Confirm]") != std::string::npos) step = {"comparing", step.partition, 0, true};
}

// A stretch is recorded at its end, so an erased one may come after the log line of the writing that follows.
void follow_stretch(Step& step, const Stretch& stretch)
{
    if (step.partition == stretch.partition && step.logged) return;
    step = {stretch.erase ? "erasing" : "writing", stretch.partition, 0, false};
}

// How much of the step the flash shows, 0 to 1. The record of a run that was cut lacks its last stretch: a partition with
// new blocks was being written.
double share_of(Step& step, const Camera& camera, const FlashMap& flash)
{
    for (size_t i = 0; i < camera.partitions().size(); ++i) {
        const Partition& p = camera.partitions()[i];
        if (p.name != step.partition) continue;
        const std::string& map = flash.map(i);
        const auto count = [&](char state) { return double(std::count(map.begin(), map.end(), state)); };
        if (step.doing == "erasing" && count(kNew) > 0) step.doing = "writing";
        // An upgrade writes what it has erased, perhaps the bytes that stood there before.
        const double kept = step.logged ? count(kOld) : 0;
        const double done =
            step.doing == "erasing" ? count(kErased) + count(kBad) : count(kNew) + count(kTorn) + kept;
        const uint64_t bytes = step.bytes ? step.bytes : p.size;
        return std::min(1.0, done / double((bytes + p.erase_size - 1) / p.erase_size));
    }
    return 0;
}

// The line in front of the verdict says why; without the program's name, which the log puts in front.
std::string reason_in(std::string line)
{
    for (const char* name : {"xupgrade: ", "upgrade: ", "upgrade: "})
        if (starts_with(line, name)) line = line.substr(std::string(name).size());
    return one_line(trim(line));
}

std::string verdict_in(const std::string& line)
{
    for (const char* verdict : {"Upgrade complete", "Upgrade fail"})
        if (line.find(std::string(verdict) + ".") != std::string::npos) return verdict;
    return "";
}

// xupgrade gives its verdict on the console only. That of a run from a terminal is not kept: the file is an older run's.
std::string console_verdict(const Camera& camera)
{
    struct stat run, console;
    if (stat(camera.path("before/files").c_str(), &run) < 0 ||
        stat(camera.path("console").c_str(), &console) < 0 || console.st_mtime < run.st_mtime)
        return "";
    std::string verdict;
    for (const auto& line : Tail(camera.path("console")).lines(kLastLines))
        if (const std::string said = verdict_in(line); !said.empty()) verdict = said;
    return verdict;
}

// What the record says of a run.
struct Told {
    Step step;
    std::string verdict, reason; // of an upgrade; empty before its end
};

Told told_by(const Camera& camera)
{
    Told told;
    std::string before;
    for (const Event& event : run_events(camera)) {
        if (const auto stretch = stretch_of(event)) follow_stretch(told.step, *stretch);
        if (event.source != "log") continue;
        follow_log(told.step, event.text);
        if (const std::string said = verdict_in(event.text); !said.empty()) {
            told.verdict = said;
            told.reason = reason_in(before);
        }
        before = event.text;
    }
    if (told.verdict.empty() && !(told.verdict = console_verdict(camera)).empty())
        told.reason = reason_in(before);
    return told;
}

} // namespace

std::string phase_of(const Camera& camera, const FlashMap& flash)
{
    Told told = told_by(camera);
    Step& step = told.step;
    if (!told.verdict.empty()) return told.verdict;
    if (!step.logged) return ""; // other programs' stretches are recorded at their end
    if (step.doing == "comparing") return step.doing + " " + step.partition;
    const int percent = int(100 * share_of(step, camera, flash));
    return text("%s %s, %d %%", step.doing.c_str(), step.partition.c_str(), percent);
}

Outcome outcome_of(const Camera& camera, const FlashMap& flash, const std::string& ending)
{
    if (ending == "never ran") return {"never", "The camera has not run yet.", -1};
    auto [step, verdict, reason] = told_by(camera);
    const std::string words = words_of(ending);
    if (broken_off(ending) && !verdict.empty()) return {"cut", words + " after: " + verdict, -1};
    if (broken_off(ending) && step.doing.empty()) return {"cut", words, -1};
    if (broken_off(ending) && step.doing == "comparing")
        return {"cut", words + " while comparing " + step.partition, -1};
    if (broken_off(ending)) {
        const double share = share_of(step, camera, flash);
        return {"cut",
                text("%s while %s %s, %d %%", words.c_str(), step.doing.c_str(), step.partition.c_str(),
                     int(100 * share)),
                share};
    }
    if (verdict == "Upgrade complete") return {"good", verdict + "; " + words, 1};
    if (!verdict.empty()) return {"bad", verdict + (reason.empty() ? "" : ": " + reason) + "; " + words, -1};
    return {"ended", words, -1};
}

cli::Json outcome_json(const Outcome& outcome)
{
    return {{"kind", outcome.kind}, {"text", outcome.text}, {"share", outcome.share}};
}

std::string outcome_line(const Outcome& outcome)
{
    const bool wrong = outcome.kind == "bad" || outcome.kind == "cut";
    return (outcome.kind == "good" ? "✔ " : wrong ? "✖ " : "■ ") + outcome.text;
}

} // namespace vcam
