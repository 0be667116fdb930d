// The requests of /dev/fuse, each about one call of a program.
//
// The kernel keeps no data: each read and write is a request, in the order of the calls. Names and attributes it keeps, as
// nobody else changes them.
#include "sim/guest/fuse_server.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

namespace vcam {
namespace {

constexpr uint32_t kMostWritten = 128 << 10; // bytes of one request
constexpr uint64_t kKept = 3600;             // seconds for which the kernel keeps a name
constexpr uint32_t kBlock = 4096;
constexpr uint32_t kProtocol = 31; // of version 7: what is used here is older

template<class T> void put(jffs2::Bytes& out, const T& record)
{
    const size_t at = out.size();
    out.resize(at + sizeof record);
    memcpy(out.data() + at, &record, sizeof record);
}

template<class T> jffs2::Bytes bytes_of(const T& record)
{
    jffs2::Bytes out;
    put(out, record);
    return out;
}

} // namespace

// FUSE_FLUSH, FUSE_OPENDIR and FUSE_RELEASEDIR are missing: after the first refusal the kernel spares them.
const FuseServer::Row FuseServer::kRows[] = {
    {FUSE_LOOKUP, &FuseServer::lookup},
    {FUSE_GETATTR, &FuseServer::get_attributes},
    {FUSE_READ, &FuseServer::read},
    {FUSE_WRITE, &FuseServer::write},
    {FUSE_OPEN, &FuseServer::open},
    {FUSE_RELEASE, &FuseServer::nothing},
    {FUSE_SETATTR, &FuseServer::set_attributes},
    {FUSE_CREATE, &FuseServer::make_file},
    {FUSE_MKDIR, &FuseServer::make_folder},
    {FUSE_MKNOD, &FuseServer::make_node},
    {FUSE_SYMLINK, &FuseServer::make_link},
    {FUSE_LINK, &FuseServer::hard_link},
    {FUSE_READLINK, &FuseServer::read_link},
    {FUSE_READDIR, &FuseServer::list},
    {FUSE_UNLINK, &FuseServer::unlink},
    {FUSE_RMDIR, &FuseServer::remove_folder},
    {FUSE_RENAME, &FuseServer::rename},
    {FUSE_RENAME2, &FuseServer::rename_with_flags},
    {FUSE_STATFS, &FuseServer::statistics},
    {FUSE_FSYNC, &FuseServer::sync},
    {FUSE_FSYNCDIR, &FuseServer::sync},
    {FUSE_INIT, &FuseServer::init},
    {FUSE_DESTROY, &FuseServer::nothing},
};

FuseServer::Result FuseServer::serve(bool (*alive)())
{
    buffer_.resize(kMostWritten + kBlock);
    const ssize_t n = ::read(device_, buffer_.data(), buffer_.size());
    if (n < 0 && errno == EAGAIN) return Result::nothing;
    if (n < 0 && (errno == EINTR || errno == ENOENT)) return Result::served; // taken back
    if (n < ssize_t(sizeof(fuse_in_header))) return Result::ended;
    const auto& head = *reinterpret_cast<const fuse_in_header*>(buffer_.data());
    const Request r = {head, std::span(buffer_).subspan(sizeof head, size_t(n) - sizeof head)};
    if (head.opcode == FUSE_FORGET || head.opcode == FUSE_BATCH_FORGET) {
        forget(r);
        return Result::served;
    }
    if (head.opcode == FUSE_INTERRUPT) return Result::served; // no request waits for anything
    const auto row = std::find_if(std::begin(kRows), std::end(kRows),
                                  [&](const Row& known) { return known.opcode == head.opcode; });
    Reply reply = {-ENOSYS};
    try {
        if (row != std::end(kRows)) reply = (this->*row->answer)(r);
    } catch (const std::bad_alloc&) { // the camera's first process goes on
        reply = {-ENOMEM};
    }
    if (alive()) answer(head.unique, reply);
    return Result::served;
}

void FuseServer::answer(uint64_t unique, const Reply& reply) const
{
    const fuse_out_header head = {uint32_t(sizeof(fuse_out_header) + reply.body.size()), reply.error, unique};
    const iovec parts[] = {{const_cast<fuse_out_header*>(&head), sizeof head},
                           {const_cast<uint8_t*>(reply.body.data()), reply.body.size()}};
    // Refused when the caller or the mount is gone; the answer has no reader then.
    while (::writev(device_, parts, 2) < 0 && errno == EINTR) {
    }
}

FuseServer::Reply FuseServer::init(const Request& r)
{
    const auto& in = r.as<fuse_init_in>();
    fuse_init_out out = {};
    out.major = FUSE_KERNEL_VERSION;
    out.minor = std::min(in.minor, kProtocol);
    out.max_readahead = in.max_readahead;
    // No write-back cache: a write is here before the program goes on. Emptying comes with its open.
    out.flags = FUSE_ATOMIC_O_TRUNC | FUSE_BIG_WRITES | FUSE_MAX_PAGES | FUSE_NO_OPENDIR_SUPPORT;
    out.max_background = 16;
    out.congestion_threshold = 12;
    out.max_write = kMostWritten;
    out.max_pages = kMostWritten / kBlock;
    out.time_gran = 1'000'000'000;
    return {0, bytes_of(out)};
}

fuse_attr FuseServer::shown(const jffs2::Attributes& a) const
{
    fuse_attr out = {};
    out.ino = a.ino;
    out.size = a.size;
    out.blocks = (a.size + 511) / 512;
    out.atime = out.mtime = out.ctime = a.mtime;
    out.mode = a.mode;
    out.nlink = a.links;
    out.uid = owners_ ? a.uid : 0;
    out.gid = owners_ ? a.gid : 0;
    out.rdev = a.rdev;
    out.blksize = kBlock;
    return out;
}

// A name that the kernel is told holds its inode until the kernel forgets it.
FuseServer::Reply FuseServer::entry(uint32_t ino)
{
    jffs2::Attributes a;
    if (const int error = volume_.attributes(ino, a)) return {error};
    volume_.hold(ino);
    fuse_entry_out out = {};
    out.nodeid = ino;
    out.entry_valid = out.attr_valid = kKept;
    out.attr = shown(a);
    return {0, bytes_of(out)};
}

FuseServer::Reply FuseServer::lookup(const Request& r)
{
    uint32_t ino = 0;
    const int error = volume_.find(uint32_t(r.head.nodeid), r.text(), ino);
    if (error == -ENOENT) {
        fuse_entry_out none = {}; // kept as well
        none.entry_valid = kKept;
        return {0, bytes_of(none)};
    }
    return error ? Reply{error} : entry(ino);
}

FuseServer::Reply FuseServer::get_attributes(const Request& r)
{
    jffs2::Attributes a;
    if (const int error = volume_.attributes(uint32_t(r.head.nodeid), a)) return {error};
    fuse_attr_out out = {};
    out.attr_valid = kKept;
    out.attr = shown(a);
    return {0, bytes_of(out)};
}

FuseServer::Reply FuseServer::set_attributes(const Request& r)
{
    using NewAttributes = jffs2::NewAttributes;
    const auto& in = r.as<fuse_setattr_in>();
    constexpr struct {
        uint32_t asked;
        unsigned field;
    } kFields[] = {{FATTR_MODE, NewAttributes::mode},
                   {FATTR_UID, NewAttributes::owner},
                   {FATTR_GID, NewAttributes::group},
                   {FATTR_SIZE, NewAttributes::size},
                   {FATTR_MTIME, NewAttributes::time}};
    NewAttributes change = {
        .new_mode = in.mode, .uid = in.uid, .gid = in.gid, .mtime = uint32_t(in.mtime), .new_size = in.size};
    for (const auto& row : kFields)
        if (in.valid & row.asked) change.fields |= row.field;
    if (in.valid & FATTR_MTIME_NOW) change.mtime = volume_.now();
    if (change.fields)
        if (const int error = volume_.change(uint32_t(r.head.nodeid), change)) return {error};
    return get_attributes(r);
}

FuseServer::Reply FuseServer::made(const Request& r, const char* name, const jffs2::NewFile& file)
{
    uint32_t ino = 0;
    if (const int error = volume_.make(uint32_t(r.head.nodeid), name, file, ino)) return {error};
    return entry(ino);
}

FuseServer::Reply FuseServer::make_folder(const Request& r)
{
    const uint32_t mode = S_IFDIR | (r.as<fuse_mkdir_in>().mode & 07777);
    return made(r, r.text(sizeof(fuse_mkdir_in)), {mode, r.head.uid, r.head.gid, {}});
}

FuseServer::Reply FuseServer::make_node(const Request& r)
{
    const auto& in = r.as<fuse_mknod_in>();
    jffs2::NewFile file = {in.mode, r.head.uid, r.head.gid, {}};
    if (S_ISCHR(in.mode) || S_ISBLK(in.mode)) file.content = {uint8_t(in.rdev), uint8_t(in.rdev >> 8)};
    return made(r, r.text(sizeof in), file);
}

FuseServer::Reply FuseServer::make_link(const Request& r)
{
    const char* name = r.text();
    const std::string_view target = name + strlen(name) + 1;
    return made(r, name, {S_IFLNK | 0777, r.head.uid, r.head.gid, {target.begin(), target.end()}});
}

FuseServer::Reply FuseServer::make_file(const Request& r)
{
    const auto& in = r.as<fuse_create_in>();
    Reply reply = made(r, r.text(sizeof in), {S_IFREG | (in.mode & 07777), r.head.uid, r.head.gid, {}});
    if (reply.error) return reply;
    fuse_open_out open = {};
    open.open_flags = FOPEN_DIRECT_IO;
    put(reply.body, open);
    return reply;
}

FuseServer::Reply FuseServer::hard_link(const Request& r)
{
    const auto& in = r.as<fuse_link_in>();
    const auto ino = uint32_t(in.oldnodeid);
    if (const int error = volume_.link(ino, uint32_t(r.head.nodeid), r.text(sizeof in))) return {error};
    return entry(ino);
}

FuseServer::Reply FuseServer::open(const Request& r)
{
    const jffs2::NewAttributes empty = {.fields = jffs2::NewAttributes::size};
    if (r.as<fuse_open_in>().flags & O_TRUNC)
        if (const int error = volume_.change(uint32_t(r.head.nodeid), empty)) return {error};
    fuse_open_out out = {};
    out.open_flags = FOPEN_DIRECT_IO;
    return {0, bytes_of(out)};
}

FuseServer::Reply FuseServer::read(const Request& r)
{
    const auto& in = r.as<fuse_read_in>();
    const jffs2::Bytes* content = volume_.content(uint32_t(r.head.nodeid));
    if (!content) return {-ESTALE};
    const size_t begin = std::min<size_t>(in.offset, content->size());
    const size_t end = std::min<size_t>(begin + in.size, content->size());
    return {0, {content->begin() + long(begin), content->begin() + long(end)}};
}

FuseServer::Reply FuseServer::write(const Request& r)
{
    const auto& in = r.as<fuse_write_in>();
    const auto data = r.body.subspan(sizeof in);
    if (data.size() < in.size) return {-EINVAL};
    const int64_t done = volume_.write(uint32_t(r.head.nodeid), in.offset, data.first(in.size));
    if (done < 0) return {int(done)};
    fuse_write_out out = {};
    out.size = uint32_t(done);
    return {0, bytes_of(out)};
}

FuseServer::Reply FuseServer::read_link(const Request& r)
{
    const jffs2::Bytes* target = volume_.content(uint32_t(r.head.nodeid));
    return target ? Reply{0, *target} : Reply{-ESTALE};
}

FuseServer::Reply FuseServer::list(const Request& r)
{
    // The positions of "." and ".."; a name's is two more than its own.
    constexpr uint64_t kFirst = 2;
    const auto& in = r.as<fuse_read_in>();
    const auto folder = uint32_t(r.head.nodeid);
    Reply reply;
    for (uint64_t position = in.offset;;) {
        std::string name = position == 0 ? "." : "..";
        uint32_t ino = folder;
        uint64_t next = position + 1;
        if (position >= kFirst) {
            uint64_t own = position - kFirst;
            if (!volume_.next_name(folder, own, name, ino)) return reply;
            next = own + kFirst;
        }
        jffs2::Attributes a;
        volume_.attributes(ino, a);
        fuse_dirent entry = {};
        entry.ino = ino;
        entry.off = position = next;
        entry.namelen = uint32_t(name.size());
        entry.type = (a.mode & S_IFMT) >> 12;
        const size_t size = FUSE_DIRENT_ALIGN(FUSE_NAME_OFFSET + name.size()), at = reply.body.size();
        if (at + size > in.size) return reply;
        reply.body.resize(at + size);
        memcpy(reply.body.data() + at, &entry, FUSE_NAME_OFFSET);
        memcpy(reply.body.data() + at + FUSE_NAME_OFFSET, name.data(), name.size());
    }
}

FuseServer::Reply FuseServer::unlink(const Request& r)
{
    return {volume_.remove(uint32_t(r.head.nodeid), r.text(), false)};
}

FuseServer::Reply FuseServer::remove_folder(const Request& r)
{
    return {volume_.remove(uint32_t(r.head.nodeid), r.text(), true)};
}

FuseServer::Reply FuseServer::move(const Request& r, uint64_t folder, const char* names, bool replace)
{
    return {
        volume_.rename(uint32_t(r.head.nodeid), names, uint32_t(folder), names + strlen(names) + 1, replace)};
}

FuseServer::Reply FuseServer::rename(const Request& r)
{
    const auto& in = r.as<fuse_rename_in>();
    return move(r, in.newdir, r.text(sizeof in), true);
}

FuseServer::Reply FuseServer::rename_with_flags(const Request& r)
{
    const auto& in = r.as<fuse_rename2_in>();
    if (in.flags & ~uint32_t(RENAME_NOREPLACE)) return {-EINVAL};
    return move(r, in.newdir, r.text(sizeof in), !in.flags);
}

FuseServer::Reply FuseServer::statistics(const Request&)
{
    fuse_statfs_out out = {};
    out.st.bsize = out.st.frsize = kBlock;
    out.st.blocks = volume_.log().geometry().size / kBlock;
    out.st.bfree = out.st.bavail = volume_.log().available() / kBlock;
    out.st.namelen = NAME_MAX;
    return {0, bytes_of(out)};
}

FuseServer::Reply FuseServer::sync(const Request&) { return {-volume_.flush()}; }

FuseServer::Reply FuseServer::nothing(const Request&) { return {}; }

void FuseServer::forget(const Request& r)
{
    if (r.head.opcode == FUSE_FORGET)
        return volume_.release(uint32_t(r.head.nodeid), r.as<fuse_forget_in>().nlookup);
    const auto& in = r.as<fuse_batch_forget_in>();
    const auto* one = reinterpret_cast<const fuse_forget_one*>(r.body.data() + sizeof in);
    for (uint32_t i = 0; i < in.count; ++i) volume_.release(uint32_t(one[i].nodeid), one[i].nlookup);
}

} // namespace vcam
