// vcam diff: what the last run changed.
#include "sim/base/camera.hpp"
#include "sim/vcam/commands.hpp"
#include "sim/sandbox/mark.hpp"
#include "sim/vcam/options.hpp"
#include "sim/vcam/settings.hpp"
#include "sim/base/text.hpp"
#include "sim/clock/clock.hpp"
#include "sim/base/state.hpp"

#include <algorithm>
#include <cstdio>

namespace vcam {
namespace {

void diff_partition(const Camera& camera, const Partition& p)
{
    Mapped before(marked_image(camera, p)), after(camera.image(p));
    const size_t size = std::min(before.size(), after.size());
    uint64_t changed = 0, first = 0, last = 0;
    for (size_t i = 0; i < size; ++i) {
        if (before.data()[i] == after.data()[i]) continue;
        if (!changed++) first = i;
        last = i;
    }
    if (changed)
        printf("%s: %llu bytes changed, 0x%llx to 0x%llx\n", p.name.c_str(), (unsigned long long)changed,
               (unsigned long long)first, (unsigned long long)last);
    else
        printf("%s: unchanged\n", p.name.c_str());
}

void diff_settings(const Camera& camera)
{
    const auto& p = camera.partition("mtd3");
    ScratchFolder before, after;
    unpack_image(marked_image(camera, p), p, before.path());
    unpack_image(camera.image(p), p, after.path());
    auto old_settings = read_settings(before.path());
    auto new_settings = read_settings(after.path());
    for (const auto& [key, value] : old_settings) {
        auto it = new_settings.find(key);
        if (it == new_settings.end())
            printf("- %s=%s\n", key.c_str(), value.c_str());
        else if (it->second != value)
            printf("~ %s: %s -> %s\n", key.c_str(), value.c_str(), it->second.c_str());
    }
    for (const auto& [key, value] : new_settings)
        if (!old_settings.count(key)) printf("+ %s=%s\n", key.c_str(), value.c_str());
}

bool same(const Entry& a, const Entry& b)
{
    return a.kind == b.kind && a.mode == b.mode &&
           (a.kind == 'd' || (a.size == b.size && a.time_ns == b.time_ns));
}

void diff_files(const Camera& camera, const Mark& mark)
{
    auto now = camera_files(camera);
    for (const auto& [path, e] : mark.files) {
        auto it = now.find(path);
        if (it == now.end())
            printf("- /%s\n", path.c_str());
        else if (!same(e, it->second))
            printf("~ /%s\n", path.c_str());
    }
    for (const auto& [path, e] : now)
        if (!mark.files.count(path)) printf("+ /%s\n", path.c_str());
}

void show_commands(const Camera& camera, const Mark& mark)
{
    auto journal = read_file(camera.path("journal"));
    for (const auto& line :
         split(journal.substr(std::min<size_t>(mark.journal_bytes, journal.size())), '\n')) {
        auto words = split(line, ' ');
        if (words.size() < 4 || words[2] != "system") continue;
        printf("%11s  %s\n", words[0].c_str(),
               line.substr(words[0].size() + words[1].size() + words[2].size() + 3).c_str());
    }
}

} // namespace

int diff_main(const Arguments& arguments)
{
    auto words = parse_options(arguments, {});
    if (words.plain.size() != 1) fail("diff: write it as: vcam diff DIR");
    Camera camera(words.plain[0]);
    Mark mark = read_mark(camera);
    puts("flash");
    for (const auto& p : camera.partitions()) diff_partition(camera, p);
    puts("settings");
    diff_settings(camera);
    puts("files");
    diff_files(camera, mark);
    puts("commands");
    show_commands(camera, mark);
    state::set_dir(camera.folder());
    clock::attach();
    const auto* w = clock::watchdog();
    if (w && w->feeds > 0)
        printf("watchdog\nlongest gap %.3f s over %d feeds\n", double(w->longest_gap_ns) / 1e9,
               int(w->feeds));
    printf("ending\n%s", try_read_file(camera.path("ending")).value_or("none\n").c_str());
    return 0;
}

} // namespace vcam
