// The way in which the host tools write a file that their user has named.
#include "tools/cli/output_file.hpp"
#include "tools/cli/unfinished.hpp"

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

namespace cli {
namespace {

constexpr int kLinksMax = 40; // as the kernel's own limit

std::string folder_of(const std::string& path)
{
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// Links in there lead to open descriptors, not to names: /dev/stdout, /dev/fd/3.
bool in_proc(const std::string& path)
{
    char* real = realpath(folder_of(path).c_str(), nullptr);
    const bool found = real && strncmp(real, "/proc/", 6) == 0;
    free(real);
    return found;
}

// The number of an own descriptor that /proc/self/fd/N stands for; -1 for any other path.
int own_descriptor(const std::string& path)
{
    char* real = realpath(folder_of(path).c_str(), nullptr);
    const std::string own = "/proc/" + std::to_string(getpid()) + "/fd";
    const bool mine = real && own == real;
    free(real);
    return mine ? atoi(path.substr(path.rfind('/') + 1).c_str()) : -1;
}

mode_t masked(mode_t mode)
{
    const mode_t mask = umask(0);
    umask(mask);
    return mode & ~mask;
}

bool is_wav(int fd, off_t /*size*/)
{
    std::array<char, 12> head = {};
    return pread(fd, head.data(), head.size(), 0) == ssize_t(head.size()) &&
           memcmp(head.data(), "RIFF", 4) == 0 && memcmp(head.data() + 8, "WAVE", 4) == 0;
}

bool write_whole(int fd, const char* data, size_t size)
{
    while (size > 0) {
        const ssize_t n = write(fd, data, size);
        if (n < 0 && errno == EINTR) continue;
        if (n == 0) errno = ENOSPC;
        if (n <= 0) return false;
        data += n;
        size -= size_t(n);
    }
    return true;
}

} // namespace

OutputRule wav_rule(bool force) { return {"a WAV file", is_wav, force, 0666, true}; }

bool begins_with(int fd, std::string_view head)
{
    std::string found(head.size(), '\0');
    return pread(fd, found.data(), found.size(), 0) == ssize_t(found.size()) && found == head;
}

OutputFile::OutputFile(std::string path, const OutputRule& rule, const std::vector<std::string>& inputs)
    : mode_(rule.mode), path_(path == "-" ? "/dev/stdout" : std::move(path)), target_(path_)
{
    if (path_.empty()) throw std::runtime_error("an output has an empty name: give a file's name");
    find_place();
    if (rule.binary && !rule.force && is_stdout() && isatty(STDOUT_FILENO))
        refuse("is a terminal; redirect it into a file or a pipe");
    if (place_ != Place::stream && faccessat(AT_FDCWD, folder_of(target_).c_str(), W_OK, AT_EACCESS) < 0)
        refuse_errno("cannot be written");
    for (const std::string& input : inputs) keep_apart(input);
    if (place_ == Place::file) judge_existing(rule);
}

OutputFile::~OutputFile()
{
    if (!temporary_.empty()) remove_unfinished(temporary_);
    if (fd_ >= 0) close(fd_);
    if (stream_ >= 0) close(stream_);
}

void OutputFile::refuse(const std::string& reason) const { throw std::runtime_error(path_ + ": " + reason); }

void OutputFile::refuse_errno(const char* what) const { refuse(std::string(what) + ": " + strerror(errno)); }

void OutputFile::find_place()
{
    struct stat link;
    for (int i = 0; i < kLinksMax; ++i) {
        if (lstat(target_.c_str(), &link) < 0) {
            if (errno != ENOENT) refuse_errno("cannot be written");
            if (target_.back() == '/') refuse("is no folder; name a file");
            if (access(folder_of(target_).c_str(), F_OK) < 0)
                refuse("there is no folder " + folder_of(target_) + "; make it first");
            return;
        }
        if (!S_ISLNK(link.st_mode)) break;
        if (in_proc(target_)) {
            if (stat(target_.c_str(), &link) < 0) refuse_errno("cannot be written");
            there_ = link;
            place_ = Place::stream;
            return;
        }
        std::array<char, PATH_MAX> to;
        const ssize_t n = readlink(target_.c_str(), to.data(), to.size());
        if (n <= 0) refuse_errno("cannot be written");
        const std::string next(to.data(), size_t(n));
        target_ = next[0] == '/' ? next : folder_of(target_) + "/" + next;
    }
    if (S_ISLNK(link.st_mode)) refuse("too many symbolic links");
    if (S_ISDIR(link.st_mode)) refuse("is a folder; name a file in it");
    there_ = link;
    place_ = S_ISREG(link.st_mode) ? Place::file : Place::stream;
}

void OutputFile::keep_apart(const std::string& input) const
{
    struct stat read;
    if (place_ == Place::fresh || stat(input.c_str(), &read) < 0)
        return; // whoever reads it says why it cannot
    if (read.st_dev == there_.st_dev && read.st_ino == there_.st_ino)
        refuse("is read for this output; name another file");
}

void OutputFile::judge_existing(const OutputRule& rule) const
{
    if (rule.force) return;
    // Root may write to any file; what has no right to write for anybody was not meant to be replaced.
    if (!(there_.st_mode & 0222) || faccessat(AT_FDCWD, target_.c_str(), W_OK, AT_EACCESS) < 0)
        refuse("is read-only; name another file, or replace it with --force");
    if (there_.st_size == 0) return;
    if (!rule.kind) refuse("exists already; name another file, or replace it with --force");
    const int fd = open(target_.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    const bool known = fd >= 0 && rule.is_kind(fd, there_.st_size);
    if (fd >= 0) close(fd);
    if (!known)
        refuse(std::string("exists and is not ") + rule.kind +
               "; name another file, or replace it with --force");
}

void OutputFile::begin()
{
    // A limit on file sizes is then an error like a full disk, instead of the process's end.
    signal(SIGXFSZ, SIG_IGN);
    if (place_ == Place::stream) return take_stream();
    fd_ = open(folder_of(target_).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd_ < 0) {
        fd_ = named_unfinished(folder_of(target_), temporary_);
        if (fd_ < 0) refuse_errno("cannot be written");
    }
    give_mode();
}

void OutputFile::give_mode() const
{
    if (place_ == Place::fresh) {
        fchmod(fd_, masked(mode_));
        return;
    }
    // The owner can be kept by root alone; the bits of another owner would mean somebody else.
    if (fchown(fd_, there_.st_uid, there_.st_gid) == 0 || there_.st_uid == geteuid())
        fchmod(fd_, there_.st_mode & 0777);
    else
        fchmod(fd_, masked(mode_));
}

// Bytes wait in an unnamed file until commit(), so that a stream gets all of them or none.
void OutputFile::take_stream()
{
    const int own = own_descriptor(target_);
    stream_ =
        own >= 0 ? fcntl(own, F_DUPFD_CLOEXEC, 3) : open(target_.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    if (stream_ < 0) refuse_errno("cannot be written");
    FILE* unnamed = tmpfile();
    fd_ = unnamed ? fcntl(fileno(unnamed), F_DUPFD_CLOEXEC, 3) : -1;
    if (unnamed) fclose(unnamed);
    if (fd_ < 0) refuse_errno("no room for its bytes in the folder of temporary files");
}

void OutputFile::write(const void* data, size_t size)
{
    if (fd_ < 0) begin();
    if (!write_whole(fd_, static_cast<const char*>(data), size)) refuse_errno("cannot be written");
}

void OutputFile::commit()
{
    if (fd_ < 0) begin();
    if (place_ == Place::stream)
        copy_to_stream();
    else
        put_in_place();
}

bool OutputFile::is_stdout() const
{
    return place_ == Place::stream && own_descriptor(target_) == STDOUT_FILENO;
}

void OutputFile::copy_to_stream() const
{
    std::array<char, 65536> piece;
    lseek(fd_, 0, SEEK_SET);
    for (;;) {
        const ssize_t n = read(fd_, piece.data(), piece.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) refuse_errno("its bytes cannot be read back");
        if (n == 0) return;
        if (!write_whole(stream_, piece.data(), size_t(n))) refuse_errno("cannot be written");
    }
}

// An unnamed file can be linked to a new name only, so a name of its own stands between it and a rename.
void OutputFile::give_name()
{
    const std::string itself = "/proc/self/fd/" + std::to_string(fd_);
    for (int i = 0; i < kNamesTried; ++i) {
        const std::string name = unfinished_name(folder_of(target_));
        if (linkat(AT_FDCWD, itself.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0) {
            temporary_ = name;
            return;
        }
        if (errno != EEXIST) break;
    }
    refuse_errno("cannot be written");
}

void OutputFile::put_in_place()
{
    if (fsync(fd_) < 0) refuse_errno("cannot be written");
    const HeldSignals until_renamed;
    if (temporary_.empty()) give_name();
    if (rename(temporary_.c_str(), target_.c_str()) < 0) refuse_errno("cannot be written");
    forget_unfinished(temporary_);
    temporary_.clear();
}

} // namespace cli
