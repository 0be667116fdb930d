// Bringing a JFFS2 log up to date with a directory: what differs becomes new nodes, appended where
// the flash is erased, each with a version above all earlier ones of its inode or name.
#include "sim/jffs2/jffs2.hpp"
#include "sim/jffs2/jffs2_nodes.hpp"
#include "sim/base/raw.hpp"
#include "sim/clock/flash.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace vcam::jffs2 {
namespace {

constexpr char kFull[] = "no space left in the log";

// Lays nodes into erased room; remembers the bytes instead of writing them, so that a log that
// turns out too small leaves the flash untouched.
class Appender {
public:
    Appender(std::vector<Room> rooms, uint32_t erase_size, bool clean_markers)
        : rooms_(std::move(rooms)), erase_size_(erase_size), markers_(clean_markers)
    {
    }
    bool add(Bytes node)
    {
        node.resize((node.size() + 3) & ~size_t(3), 0xFF);
        for (Room& room : rooms_) {
            const bool fresh = room.begin % erase_size_ == 0;
            const uint32_t marker = fresh && markers_ ? kHeaderSize : 0;
            if (room.end - room.begin < node.size() + marker) continue;
            if (marker) place(room, clean_marker());
            place(room, std::move(node));
            return true;
        }
        return false;
    }
    [[nodiscard]] const std::map<uint32_t, Bytes>& pieces() const { return pieces_; }

private:
    void place(Room& room, Bytes bytes)
    {
        const uint32_t at = room.begin;
        room.begin += uint32_t(bytes.size());
        pieces_.emplace(at, std::move(bytes));
    }
    std::vector<Room> rooms_;
    uint32_t erase_size_;
    bool markers_;
    std::map<uint32_t, Bytes> pieces_;
};

class Updater {
public:
    Updater(Log& log, Appender& out) : log_(log), out_(out) {}

    std::string run(const std::string& dir)
    {
        struct stat st;
        if (::lstat(dir.c_str(), &st) != 0) return failed(dir);
        // A log usually has no node for its root, which then has mode 0755.
        if (log_.inodes.contains(kRoot) || (st.st_mode & 07777) != 0755) {
            std::string error = item(kRoot, st, dir);
            if (!error.empty()) return error;
        }
        return folder(kRoot, dir);
    }

private:
    std::string folder(uint32_t ino, const std::string& dir)
    {
        std::set<std::string> present;
        std::unique_ptr<DIR, int (*)(DIR*)> list(::opendir(dir.c_str()), ::closedir);
        if (!list) return failed(dir);
        while (const dirent* entry = ::readdir(list.get())) {
            const std::string name = entry->d_name;
            if (name != "." && name != "..") present.insert(name);
        }
        list.reset();
        for (auto& [name, entry] : log_.folders[ino])
            if (entry.ino != 0 && !present.contains(name) && !set_name(ino, name, 0, 0)) return kFull;
        for (const std::string& name : present) {
            std::string error = entry(ino, name, dir + "/" + name);
            if (!error.empty()) return error;
        }
        return {};
    }
    std::string entry(uint32_t parent, const std::string& name, const std::string& path)
    {
        struct stat st;
        if (::lstat(path.c_str(), &st) != 0) return failed(path);
        if (S_ISSOCK(st.st_mode)) return {}; // lives only as long as its owner
        const uint32_t ino = inode_for(parent, name, st);
        std::string error = item(ino, st, path);
        if (!error.empty()) return error;
        auto& names = log_.folders[parent];
        const auto known = names.find(name);
        // The name comes last: a log cut off before it holds an inode without a name, never the reverse.
        if ((known == names.end() || known->second.ino != ino) && !set_name(parent, name, ino, st.st_mode))
            return kFull;
        return S_ISDIR(st.st_mode) ? folder(ino, path) : "";
    }
    // The inode a name had, unless the kind of file changed; hard links share one.
    uint32_t inode_for(uint32_t parent, const std::string& name, const struct stat& st)
    {
        const std::pair<uint64_t, uint64_t> host{st.st_dev, st.st_ino};
        if (st.st_nlink > 1 && !S_ISDIR(st.st_mode) && linked_.contains(host)) return linked_[host];
        uint32_t ino = 0;
        const auto& names = log_.folders[parent];
        if (const auto known = names.find(name); known != names.end()) ino = known->second.ino;
        const auto inode = log_.inodes.find(ino);
        const bool same = inode != log_.inodes.end() && !inode->second.nodes.empty() &&
                          ((inode->second.newest().mode ^ st.st_mode) & S_IFMT) == 0;
        if (!same || used_.contains(ino)) ino = ++log_.highest_ino;
        used_.insert(ino);
        return linked_[host] = ino;
    }
    std::string item(uint32_t ino, const struct stat& st, const std::string& path)
    {
        if (!done_.insert(ino).second) return {};
        Bytes now;
        std::string error = load(st, path, now);
        if (!error.empty()) return error;
        Inode& inode = log_.inodes[ino];
        const bool fresh = inode.nodes.empty();
        Bytes before; // stays empty when the log's data are damaged: every page is then written
        if (!fresh && !contents(inode, before).empty()) before.clear();
        const DataNode* base = fresh ? nullptr : &inode.newest();
        const DataNode head = attributes(st, base, uint32_t(now.size()));
        const bool changed = fresh || differs(*base, head) || before != now;
        if (!changed) return {};
        uint32_t version = inode.version();
        bool wrote = false;
        for (uint32_t at = 0; at < now.size(); at += kPageSize) {
            const uint32_t size = std::min<uint32_t>(kPageSize, uint32_t(now.size()) - at);
            // What is no ordinary file is read from its newest node alone.
            if (S_ISREG(st.st_mode) && same_page(before, now, at, size)) continue;
            if (!add_node(ino, ++version, head, at, std::span(now).subspan(at, size))) return kFull;
            wrote = true;
        }
        return wrote || add_node(ino, ++version, head, 0, {}) ? "" : kFull;
    }
    std::string load(const struct stat& st, const std::string& path, Bytes& out)
    {
        if (S_ISREG(st.st_mode)) return raw::read_file(path, out);
        if (S_ISLNK(st.st_mode)) {
            out.resize(PATH_MAX);
            const ssize_t n = ::readlink(path.c_str(), reinterpret_cast<char*>(out.data()), out.size());
            if (n < 0) return failed(path);
            out.resize(size_t(n));
        }
        if (S_ISCHR(st.st_mode) || S_ISBLK(st.st_mode)) out = {uint8_t(st.st_rdev), uint8_t(st.st_rdev >> 8)};
        return {};
    }
    static DataNode attributes(const struct stat& st, const DataNode* base, uint32_t size)
    {
        // Owner 0 is also what the sandbox shows for an owner it cannot represent.
        const uint32_t uid = st.st_uid == 0 && base ? base->uid : st.st_uid & 0xFFFF;
        const uint32_t gid = st.st_gid == 0 && base ? base->gid : st.st_gid & 0xFFFF;
        return {uint32_t(st.st_mode),
                uid,
                gid,
                uint32_t(st.st_mtime),
                S_ISDIR(st.st_mode) ? 0 : size,
                0,
                0,
                kNone,
                {},
                0,
                0};
    }
    static bool differs(const DataNode& a, const DataNode& b)
    {
        // A folder's time follows its names, which are in the log already.
        return a.mode != b.mode || a.uid != b.uid || a.gid != b.gid || a.isize != b.isize ||
               (a.mtime != b.mtime && S_ISREG(b.mode));
    }
    // Bytes after the old end may hold what an earlier, longer version left there: those are written.
    static bool same_page(const Bytes& before, const Bytes& now, uint32_t at, uint32_t size)
    {
        return before.size() >= at + size &&
               std::equal(now.begin() + at, now.begin() + at + size, before.begin() + at);
    }
    bool add_node(uint32_t ino, uint32_t version, const DataNode& head, uint32_t offset,
                  std::span<const uint8_t> data)
    {
        DataNode node = head;
        node.offset = offset;
        return out_.add(inode_node(ino, version, node, data));
    }
    bool set_name(uint32_t parent, const std::string& name, uint32_t ino, uint32_t mode)
    {
        const uint32_t version = ++folder_version(parent);
        log_.folders[parent][name] = {.version = version, .ino = ino};
        return out_.add(name_node(parent, name, log_.folders[parent][name], mode));
    }
    // Names of one folder share one sequence of versions.
    uint32_t& folder_version(uint32_t parent)
    {
        auto [it, fresh] = versions_.try_emplace(parent, 0);
        if (fresh)
            for (const auto& [name, entry] : log_.folders[parent])
                it->second = std::max(it->second, entry.version);
        return it->second;
    }
    static std::string failed(const std::string& path) { return path + ": " + strerror(errno); }

    Log& log_;
    Appender& out_;
    std::set<uint32_t> used_, done_;
    std::map<std::pair<uint64_t, uint64_t>, uint32_t> linked_;
    std::map<uint32_t, uint32_t> versions_;
};

using Change = bool (*)(int, const std::string&, uint32_t, std::span<const uint8_t>);

std::string write_pieces(const std::string& path, const std::map<uint32_t, Bytes>& pieces, Change change)
{
    const raw::Fd fd(raw::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (!fd) return path + ": " + strerror(errno);
    for (const auto& [at, bytes] : pieces)
        if (!change(fd.get(), path, at, bytes)) return path + ": " + strerror(errno);
    return {};
}

std::string compact(const std::string& path, size_t size, uint32_t erase_size, bool markers,
                    const std::string& dir)
{
    Log log;
    Bytes image(size, 0xFF);
    const auto bad = hide_bad_blocks(path, erase_size, image);
    Appender out(find_room(image, erase_size), erase_size, markers);
    std::string error = Updater(log, out).run(dir);
    if (!error.empty()) return path + ": " + error;
    for (const auto& [at, bytes] : out.pieces()) std::copy(bytes.begin(), bytes.end(), image.begin() + at);
    std::map<uint32_t, Bytes> blocks;
    for (uint32_t at = 0; at < size; at += erase_size)
        if (!bad.contains(at))
            blocks[at].assign(image.begin() + at,
                              image.begin() + ptrdiff_t(std::min<size_t>(at + erase_size, size)));
    return write_pieces(path, blocks, flash::replace);
}

// Whether the log marks its erase blocks: NOR flash does, NAND flash does it out of band.
bool marks_blocks(const Bytes& image)
{
    if (image[0] == 0xFF) return true; // nothing there yet
    return image[0] == 0x85 && image[1] == 0x19 && image[2] == (kCleanMarker & 0xFF) &&
           image[3] == kCleanMarker >> 8;
}

} // namespace

std::string sync(const std::string& image_path, uint32_t erase_size, const std::string& dir)
{
    Bytes image;
    std::string error = raw::read_file(image_path, image);
    if (!error.empty()) return error;
    if (erase_size < kPageSize || image.size() < erase_size)
        return image_path + ": smaller than one erase block";
    hide_bad_blocks(image_path, erase_size, image);
    Log log = scan(image);
    const bool markers = marks_blocks(image);
    Appender out(find_room(image, erase_size), erase_size, markers);
    error = Updater(log, out).run(dir);
    if (error.empty()) return write_pieces(image_path, out.pieces(), flash::write);
    return error == kFull ? compact(image_path, image.size(), erase_size, markers, dir) : error;
}

} // namespace vcam::jffs2
