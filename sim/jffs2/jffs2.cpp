// Extracting a JFFS2 log into a directory.
#include "sim/jffs2/jffs2.hpp"
#include "sim/jffs2/jffs2_log.hpp"
#include "sim/base/raw.hpp"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <set>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace vcam::jffs2 {
namespace {

class Extractor {
public:
    explicit Extractor(const Log& log) : log_(log) {}

    std::string folder(uint32_t ino, const std::string& dir)
    {
        if (!open_.insert(ino).second) return {}; // a damaged log may hold a folder inside itself
        const auto it = log_.folders.find(ino);
        if (it == log_.folders.end()) return {};
        for (const auto& [name, entry] : it->second) {
            if (entry.ino == 0) continue;
            std::string error = item(entry.ino, dir + "/" + name);
            if (!error.empty()) return error;
        }
        return {};
    }
    void attributes(const DataNode& node, const std::string& path)
    {
        // Owners beyond the caller's rights stay the caller's: the contents matter more.
        if (::lchown(path.c_str(), node.uid, node.gid) != 0) errno = 0;
        if (!S_ISLNK(node.mode)) ::chmod(path.c_str(), node.mode & 07777);
        const timespec times[2] = {{time_t(node.mtime), 0}, {time_t(node.mtime), 0}};
        ::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
    }

private:
    std::string item(uint32_t ino, const std::string& path)
    {
        const auto it = log_.inodes.find(ino);
        if (it == log_.inodes.end() || it->second.nodes.empty()) return {}; // the name outlived its inode
        const Inode& inode = it->second;
        const uint32_t mode = inode.newest().mode;
        if (const auto known = made_.find(ino); known != made_.end() && !S_ISDIR(mode))
            return ::link(known->second.c_str(), path.c_str()) == 0 ? "" : failed(path);
        made_.emplace(ino, path);
        std::string error = make(ino, inode, path);
        if (error.empty()) attributes(inode.newest(), path);
        return error;
    }
    std::string make(uint32_t ino, const Inode& inode, const std::string& path)
    {
        const uint32_t mode = inode.newest().mode;
        if (S_ISDIR(mode)) {
            if (::mkdir(path.c_str(), 0700) != 0) return failed(path);
            return folder(ino, path);
        }
        Bytes bytes;
        std::string error = contents(inode, bytes);
        if (!error.empty()) return path + ": " + error;
        if (S_ISREG(mode)) return file(bytes, path);
        if (S_ISLNK(mode)) {
            const std::string target(bytes.begin(), bytes.end());
            return ::symlink(target.c_str(), path.c_str()) == 0 || target.empty() ? "" : failed(path);
        }
        special(mode, bytes, path);
        return {};
    }
    static std::string file(const Bytes& bytes, const std::string& path)
    {
        const int fd = raw::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0) return failed(path);
        const bool whole = raw::write_all(fd, bytes.data(), bytes.size());
        const int e = errno;
        raw::close(fd);
        errno = e;
        return whole ? "" : failed(path);
    }
    // Pipes and device nodes; without the right to make one the rest of the log still comes out.
    static void special(uint32_t mode, const Bytes& bytes, const std::string& path)
    {
        dev_t device = 0;
        if (bytes.size() == 2) device = makedev(bytes[1], bytes[0]);
        if (bytes.size() == 4) device = makedev(bytes[1] | (bytes[2] & 15u) << 8, bytes[0] | bytes[3] << 8);
        if (::mknod(path.c_str(), mode, device) != 0) errno = 0;
    }
    static std::string failed(const std::string& path) { return path + ": " + strerror(errno); }

    const Log& log_;
    std::set<uint32_t> open_;
    std::map<uint32_t, std::string> made_;
};

} // namespace

std::string unpack(const std::string& image_path, uint32_t erase_size, const std::string& dir)
{
    Bytes image;
    std::string error = raw::read_file(image_path, image);
    if (!error.empty()) return error;
    hide_bad_blocks(image_path, erase_size, image);
    const Log log = scan(image);
    Extractor extractor(log);
    error = extractor.folder(kRoot, dir);
    if (const auto root = log.inodes.find(kRoot);
        error.empty() && root != log.inodes.end() && !root->second.nodes.empty())
        extractor.attributes(root->second.newest(), dir);
    return error;
}

} // namespace vcam::jffs2
