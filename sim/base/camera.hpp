// A virtual camera's state folder: what it is made of and whether it runs.
#pragma once

#include "sim/base/files.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace vcam {

struct Partition {
    std::string name; // "mtd0"
    std::string type; // "nor" or "nand"
    uint64_t size = 0;
    uint64_t erase_size = 0;
    uint64_t write_size = 0;
};

struct Daemon {
    std::string path;         // argv[0], such as /bin/confd
    bool ignore_term = false; // a SIGTERM does not end it
    std::string hold;         // file or folder it keeps open
};

class Camera {
public:
    explicit Camera(const std::string& folder); // throws when the folder holds no camera

    [[nodiscard]] const std::string& folder() const { return folder_; }
    [[nodiscard]] std::string path(const std::string& name) const { return folder_ + "/" + name; }
    // Below the root/ folder, for an absolute path in the camera.
    [[nodiscard]] std::string root(const std::string& name) const { return folder_ + "/root" + name; }
    [[nodiscard]] std::string image(const Partition& p) const { return folder_ + "/flash/" + p.name; }

    [[nodiscard]] std::string setting(const std::string& key, const std::string& otherwise = "") const;
    [[nodiscard]] const std::vector<Partition>& partitions() const { return partitions_; }
    [[nodiscard]] const Partition& partition(const std::string& name) const; // throws
    [[nodiscard]] std::vector<Daemon> daemons() const;

    // The host's number of the running camera's first process, 0 when it does not run.
    [[nodiscard]] pid_t running() const;
    // Refuses an output in the camera's folder: a program of the camera may have laid a link there. Throws.
    void keep_out(const std::string& output) const;
    // Held as long as the camera runs. Throws when it runs already.
    [[nodiscard]] Fd lock() const;

private:
    std::string folder_;
    std::multimap<std::string, std::string> settings_;
    std::vector<Partition> partitions_;
};

// Lines `key=value` of camera.conf, in the order of their keys; comments and other lines are passed over.
std::multimap<std::string, std::string> parse_settings(const std::string& conf);

// What the camera's file `settings` says where changes of /etc reach the flash at once; else it says when, and why.
inline constexpr const char* kWrittenThrough = "at once";

Partition parse_partition(const std::string& name, const std::string& geometry); // throws
std::string format_geometry(const Partition& p);
// PATH[:ignore-term][:hold=FILE]; throws
Daemon parse_daemon(const std::string& words);

// The file system of a partition that JFFS2 mounts: its newest state into a folder, and back.
// Throw with the partition's name.
void unpack_image(const std::string& image, const Partition& p, const std::string& folder);
void sync_image(const std::string& image, const Partition& p, const std::string& folder);

} // namespace vcam
