// A JFFS2 file system in use: its calls.
#include "sim/jffs2/volume.hpp"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <sys/stat.h>

namespace vcam::jffs2 {
namespace {

bool is_folder(uint32_t mode) { return S_ISDIR(mode); }

} // namespace

int Volume::find(uint32_t folder, const std::string& name, uint32_t& ino) const
{
    const File* f = file(folder);
    if (!f || !is_folder(f->mode)) return -ENOTDIR;
    const auto entry = f->names.find(name);
    if (entry == f->names.end()) return -ENOENT;
    ino = entry->second.ino;
    return 0;
}

int Volume::attributes(uint32_t ino, Attributes& out) const
{
    const File* f = file(ino);
    if (!f) return -ESTALE;
    if (f->damaged) return -EIO;
    uint32_t links = f->links;
    if (is_folder(f->mode)) {
        links = 2;
        for (const auto& [name, entry] : f->names) links += is_folder(files_.at(entry.ino).mode);
    }
    out = {ino, f->mode, f->uid, f->gid, f->mtime, links, 0, f->content.size()};
    if (!S_ISCHR(f->mode) && !S_ISBLK(f->mode)) return 0;
    out.size = 0;
    if (f->content.size() == 2) out.rdev = f->content[0] | uint32_t(f->content[1]) << 8;
    return 0;
}

int Volume::make(uint32_t folder, const std::string& name, const NewFile& wanted, uint32_t& ino)
{
    if (name.size() > NAME_MAX) return -ENAMETOOLONG;
    const File* parent = file(folder);
    if (!parent || !is_folder(parent->mode)) return -ENOTDIR;
    if (parent->names.contains(name)) return -EEXIST;
    if (highest_ino_ == UINT32_MAX) return -ENOSPC;
    ino = ++highest_ino_;
    File& f = files_[ino];
    f.mode = wanted.mode;
    f.uid = wanted.uid;
    f.gid = wanted.gid;
    f.mtime = now_();
    f.parent = folder;
    f.content = wanted.content;
    int error = put_inode(ino, f, head_of(f), f.content, Use::write);
    // The name comes last: a log cut off before it holds an inode without a name, never the reverse.
    if (!error) error = put_name(folder, name, ino, f.mode);
    if (error) forget(ino);
    return -error;
}

int Volume::link(uint32_t ino, uint32_t folder, const std::string& name)
{
    const File* f = file(ino);
    const File* parent = file(folder);
    if (!f || !parent) return -ESTALE;
    if (is_folder(f->mode)) return -EPERM;
    if (name.size() > NAME_MAX) return -ENAMETOOLONG;
    if (parent->names.contains(name)) return -EEXIST;
    return -put_name(folder, name, ino, f->mode);
}

int Volume::remove(uint32_t folder, const std::string& name, bool a_folder)
{
    uint32_t ino = 0;
    if (const int error = find(folder, name, ino)) return error;
    const File& f = files_[ino];
    if (is_folder(f.mode) != a_folder) return a_folder ? -ENOTDIR : -EISDIR;
    if (a_folder && !f.names.empty()) return -ENOTEMPTY;
    return -put_name(folder, name, 0, 0);
}

// The new name first, as the real driver has it: a cut in between leaves both.
int Volume::rename(uint32_t from, const std::string& name, uint32_t to, const std::string& wanted,
                   bool replace)
{
    uint32_t ino = 0, old = 0;
    if (const int error = find(from, name, ino)) return error;
    if (wanted.size() > NAME_MAX) return -ENAMETOOLONG;
    const int found = find(to, wanted, old);
    if (found == -ENOTDIR) return found;
    if (found == 0 && !replace) return -EEXIST;
    if (found == 0 && old == ino) return 0;
    File& f = files_[ino];
    if (found == 0 && is_folder(files_[old].mode)) {
        if (!is_folder(f.mode)) return -EISDIR;
        if (!files_[old].names.empty()) return -ENOTEMPTY;
    } else if (found == 0 && is_folder(f.mode)) {
        return -ENOTDIR;
    }
    if (const int error = put_name(to, wanted, ino, f.mode)) return -error;
    f.parent = to;
    return -put_name(from, name, 0, 0);
}

int Volume::change(uint32_t ino, const NewAttributes& c)
{
    File* f = file(ino);
    if (!f) return -ESTALE;
    if (f->damaged) return -EIO;
    if (c.fields & NewAttributes::size && (!is_plain(f->mode) || c.new_size > kMaxFile)) return -EFBIG;
    Attributes before;
    attributes(ino, before);
    if (c.fields & NewAttributes::mode) f->mode = (f->mode & S_IFMT) | (c.new_mode & 07777);
    if (c.fields & NewAttributes::owner) f->uid = c.uid;
    if (c.fields & NewAttributes::group) f->gid = c.gid;
    if (c.fields & NewAttributes::time || c.fields & NewAttributes::size)
        f->mtime = c.fields & NewAttributes::time ? c.mtime : now_();
    const int error =
        c.fields & NewAttributes::size ? resize(ino, *f, uint32_t(c.new_size)) : put_attributes(ino, *f);
    if (!error) return 0;
    f->mode = before.mode;
    f->uid = before.uid;
    f->gid = before.gid;
    f->mtime = before.mtime;
    return -error;
}

int64_t Volume::write(uint32_t ino, uint64_t at, std::span<const uint8_t> data)
{
    File* f = file(ino);
    if (!f) return -ESTALE;
    if (f->damaged) return -EIO;
    if (at > kMaxFile || data.size() > kMaxFile - at) return -EFBIG;
    const auto page = uint32_t(at - at % kPageSize);
    if (page > f->content.size())
        if (const int error = put_hole(ino, *f, page)) return -error;
    size_t done = 0;
    while (done < data.size()) {
        const auto begin = uint32_t(at + done);
        const size_t part = std::min<size_t>(data.size() - done, kPageSize - begin % kPageSize);
        if (const int error = put_page(ino, *f, begin, data.subspan(done, part)))
            return done ? int64_t(done) : -error;
        done += part;
    }
    return int64_t(done);
}

const Bytes* Volume::content(uint32_t ino) const
{
    const File* f = file(ino);
    return f ? &f->content : nullptr;
}

bool Volume::next_name(uint32_t folder, uint64_t& position, std::string& name, uint32_t& ino) const
{
    const File* f = file(folder);
    if (!f) return false;
    const auto next = f->order.upper_bound(position);
    if (next == f->order.end()) return false;
    position = next->first;
    name = next->second;
    ino = f->names.at(name).ino;
    return true;
}

void Volume::hold(uint32_t ino)
{
    if (File* f = file(ino)) ++f->held;
}

void Volume::release(uint32_t ino, uint64_t times)
{
    File* f = file(ino);
    if (!f) return;
    f->held -= std::min(f->held, times);
    if (f->held == 0 && f->links == 0 && ino != kRoot) forget(ino);
}

// --- nodes -------------------------------------------------------------------------------

int Volume::put_attributes(uint32_t ino, File& f)
{
    // What is no ordinary file is read from its newest node alone.
    const std::span<const uint8_t> data = is_plain(f.mode) ? std::span<const uint8_t>() : f.content;
    return put_inode(ino, f, head_of(f), data, Use::write);
}

bool Volume::has_memory(const File& f, size_t size) const
{
    size_t others = 0;
    for (const auto& [ino, file] : files_) others += &file == &f ? 0 : file.content.size();
    return size <= kMostMemory - std::min(others, kMostMemory);
}

int Volume::put_hole(uint32_t ino, File& f, uint32_t end)
{
    if (!has_memory(f, end)) return ENOSPC;
    f.content.reserve(end); // before the node: it may throw
    DataNode head = head_of(f);
    head.compressor = kZero;
    head.offset = uint32_t(f.content.size());
    head.dsize = end - head.offset;
    head.isize = end;
    if (const int error = put_inode(ino, f, head, {}, Use::write)) return error;
    f.content.resize(end);
    return 0;
}

int Volume::put_page(uint32_t ino, File& f, uint32_t at, std::span<const uint8_t> data)
{
    const auto size = uint32_t(f.content.size()), end = uint32_t(at + data.size());
    if (end > size && !has_memory(f, end)) return ENOSPC;
    if (end > f.content.capacity()) // before the node: it may throw
        f.content.reserve(std::max<size_t>(end, 2 * f.content.capacity()));
    // A page that is written to its end is one node; what lies between the file's end and the new bytes is written too,
    // as older nodes may have other bytes there.
    uint32_t begin = std::min(at, size) & ~3u;
    if (at <= size) begin = at & ~3u;
    if (end % kPageSize == 0) begin = end - kPageSize;
    begin = std::max(begin, at - at % kPageSize);
    Bytes bytes(end - begin);
    if (begin < size) std::copy_n(f.content.begin() + begin, std::min(size, end) - begin, bytes.begin());
    std::copy(data.begin(), data.end(), bytes.begin() + (at - begin));
    const uint32_t mtime = std::exchange(f.mtime, now_());
    DataNode head = head_of(f);
    head.offset = begin;
    head.dsize = uint32_t(bytes.size());
    head.isize = std::max(size, end);
    if (const int error = put_inode(ino, f, head, bytes, Use::write)) {
        f.mtime = mtime;
        return error;
    }
    f.content.resize(head.isize);
    std::copy(data.begin(), data.end(), f.content.begin() + at);
    return 0;
}

int Volume::resize(uint32_t ino, File& f, uint32_t size)
{
    if (size > f.content.size()) return put_hole(ino, f, size);
    DataNode head = head_of(f);
    head.isize = size;
    // Emptying a file gives room back, as removing it does.
    const Use use = size == 0 ? Use::remove : Use::write;
    if (const int error = put_inode(ino, f, head, {}, use)) return error;
    f.content.resize(size);
    for (auto piece = f.pieces.begin(); piece != f.pieces.end();) {
        const auto next = std::next(piece);
        if (piece->second.end > size) take_piece(f, piece, size, UINT32_MAX);
        piece = next;
    }
    return 0;
}

} // namespace vcam::jffs2
