// A virtual camera's state folder: what it is made of and whether it runs.
#include "sim/base/camera.hpp"
#include "sim/base/text.hpp"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace vcam {
namespace {

struct flock whole_file_lock()
{
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

// Programs of the camera may write into its folder, from inside as /run/vcam. A link that one left there would
// be followed here, outside, to a file of the host; a pipe would hold its reader.
void refuse_strangers(const std::string& folder)
{
    namespace fs = std::filesystem;
    for (const auto& entry : fs::directory_iterator(folder)) {
        const std::string path = entry.path().string();
        if (entry.is_symlink()) fail("%s is a link, which no camera has; remove it", path.c_str());
        if (!entry.is_regular_file() && !entry.is_directory())
            fail("%s is neither a file nor a folder; remove it", path.c_str());
        if (entry.is_directory() && entry.path().filename() != "root") refuse_strangers(path);
    }
}

} // namespace

Partition parse_partition(const std::string& name, const std::string& geometry)
{
    auto words = split(geometry, ',');
    if (words.size() != 4)
        fail("%s=%s: expected type,size,erasesize,writesize", name.c_str(), geometry.c_str());
    Partition p{name, words[0], parse_size(words[1], name.c_str()), parse_size(words[2], name.c_str()),
                parse_size(words[3], name.c_str())};
    if (p.type != "nor" && p.type != "nand")
        fail("%s: flash type '%s' is neither nor nor nand", name.c_str(), p.type.c_str());
    if (!p.erase_size || !p.write_size || p.erase_size % p.write_size || !p.size || p.size % p.erase_size)
        fail("%s: the size must be whole erase blocks, and an erase block whole pages", name.c_str());
    if (p.size > 1u << 30) fail("%s: a partition is at most 1G", name.c_str());
    return p;
}

std::string format_geometry(const Partition& p)
{
    return text("%s,0x%llx,0x%llx,%llu", p.type.c_str(), (unsigned long long)p.size,
                (unsigned long long)p.erase_size, (unsigned long long)p.write_size);
}

Daemon parse_daemon(const std::string& words)
{
    auto parts = split(words, ':');
    Daemon d{parts[0], false, ""};
    if (!starts_with(d.path, "/"))
        fail("daemon '%s': give a path in the camera, such as /bin/confd", words.c_str());
    for (size_t i = 1; i < parts.size(); ++i) {
        if (parts[i] == "ignore-term")
            d.ignore_term = true;
        else if (starts_with(parts[i], "hold="))
            d.hold = parts[i].substr(5);
        else
            fail("daemon '%s': '%s' is neither ignore-term nor hold=FILE", words.c_str(), parts[i].c_str());
    }
    return d;
}

std::multimap<std::string, std::string> parse_settings(const std::string& conf)
{
    std::multimap<std::string, std::string> settings;
    for (const auto& line : split(conf, '\n')) {
        size_t equal = line.find('=');
        if (line.empty() || line[0] == '#' || equal == std::string::npos) continue;
        settings.emplace(trim(line.substr(0, equal)), trim(line.substr(equal + 1)));
    }
    return settings;
}

Camera::Camera(const std::string& folder)
{
    auto conf = try_read_file(folder + "/camera.conf");
    if (!conf) fail("%s holds no camera; make one with: vcam new %s", folder.c_str(), folder.c_str());
    folder_ = std::filesystem::canonical(folder).string();
    refuse_strangers(folder_);
    settings_ = parse_settings(*conf);
    for (int i = 0; i < 4; ++i) {
        std::string name = text("mtd%d", i);
        if (setting(name).empty()) fail("%s/camera.conf: no line %s=", folder.c_str(), name.c_str());
        partitions_.push_back(parse_partition(name, setting(name)));
    }
}

std::string Camera::setting(const std::string& key, const std::string& otherwise) const
{
    auto it = settings_.find(key);
    return it == settings_.end() ? otherwise : it->second;
}

const Partition& Camera::partition(const std::string& name) const
{
    for (const auto& p : partitions_)
        if (p.name == name) return p;
    fail("no partition %s; there are mtd0 to mtd%zu", name.c_str(), partitions_.size() - 1);
}

std::vector<Daemon> Camera::daemons() const
{
    std::vector<Daemon> out;
    auto range = settings_.equal_range("daemon");
    for (auto it = range.first; it != range.second; ++it) out.push_back(parse_daemon(it->second));
    return out;
}

void Camera::keep_out(const std::string& output) const
{
    std::error_code error; // a folder that is not there is said by whoever writes
    const auto place =
        std::filesystem::weakly_canonical(std::filesystem::absolute(output, error).parent_path(), error);
    if (starts_with(place.string() + "/", folder_ + "/"))
        fail("%s: lies in the camera's folder; name a file elsewhere", output.c_str());
}

Fd Camera::lock() const
{
    Fd fd(open(path("lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!fd) fail("cannot open %s: %s", path("lock").c_str(), strerror(errno));
    struct flock lock = whole_file_lock();
    if (fcntl(fd.get(), F_OFD_SETLK, &lock) < 0)
        fail("the camera in %s runs already; wait for its end, or join it with: vcam exec %s -- COMMAND",
             folder_.c_str(), folder_.c_str());
    unlink(path("pid").c_str()); // of a killed launcher; another process may have its number by now
    return fd;
}

pid_t Camera::running() const
{
    Fd fd(open(path("lock").c_str(), O_RDONLY | O_CLOEXEC));
    struct flock lock = whole_file_lock(); // is asked for and not taken, so that a start never finds it held
    if (!fd || fcntl(fd.get(), F_OFD_GETLK, &lock) < 0 || lock.l_type == F_UNLCK) return 0;
    auto pid = try_read_file(path("pid"));
    return pid ? pid_t(atoi(pid->c_str())) : 0;
}

} // namespace vcam
