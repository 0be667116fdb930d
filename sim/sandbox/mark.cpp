// The state that `vcam diff` compares with: taken when a run starts.
#include "sim/sandbox/mark.hpp"
#include "sim/base/text.hpp"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>

namespace vcam {
namespace {

uint64_t size_of(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? uint64_t(st.st_size) : 0;
}

} // namespace

std::map<std::string, Entry> camera_files(const Camera& camera)
{
    return list_tree(camera.path("root"),
                     {"dev", "proc", "etc", "run", "usr/bin", "usr/lib", "usr/lib32", "usr/lib64",
                      "usr/libx32", "lib", "lib32", "lib64", "libx32", "bin/busybox", "bin/zep",
                      "sbin/vcam-guest", std::filesystem::canonical("/bin/sh").relative_path().string()});
}

void set_mark(const Camera& camera)
{
    make_folders(camera.path("before"));
    for (const auto& p : camera.partitions()) copy_if_changed(camera.image(p), marked_image(camera, p));
    std::string out =
        text("%" PRIu64 " %" PRIu64 "\n", size_of(camera.path("journal")), size_of(camera.path("syslog")));
    for (const auto& [path, e] : camera_files(camera))
        out += text("%c %o %" PRIu64 " %" PRId64 " %s\n", e.kind, e.mode, e.size, e.time_ns, path.c_str());
    write_file(camera.path("before/files"), out);
}

std::string marked_image(const Camera& camera, const Partition& p) { return camera.path("before/" + p.name); }

Mark read_mark(const Camera& camera)
{
    auto content = try_read_file(camera.path("before/files"));
    if (!content) fail("the camera in %s has not run yet: nothing to compare with", camera.folder().c_str());
    Mark mark;
    auto lines = split(*content, '\n');
    sscanf(lines[0].c_str(), "%" SCNu64 " %" SCNu64, &mark.journal_bytes, &mark.syslog_bytes);
    for (size_t i = 1; i < lines.size(); ++i) {
        Entry e;
        unsigned mode = 0;
        int name_at = 0;
        if (sscanf(lines[i].c_str(), "%c %o %" SCNu64 " %" SCNd64 " %n", &e.kind, &mode, &e.size, &e.time_ns,
                   &name_at) < 4)
            continue;
        e.mode = mode;
        mark.files[lines[i].substr(size_t(name_at))] = e;
    }
    return mark;
}

} // namespace vcam
