// Whole files, folders and descriptors.
#include "sim/base/files.hpp"
#include "sim/base/text.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vcam {
namespace fs = std::filesystem;

std::string read_all(int fd, const std::string& name)
{
    std::string out;
    std::array<char, 65536> chunk;
    for (;;) {
        ssize_t n = read(fd, chunk.data(), chunk.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) fail("cannot read %s: %s", name.c_str(), strerror(errno));
        if (n == 0) return out;
        out.append(chunk.data(), size_t(n));
    }
}

namespace {

// A camera's programs may put a link or a pipe in the place of any file of its folder, at any moment: the one would
// lead to the host's files, the other holds its reader for ever. No descriptor, with errno, when it cannot be opened.
Fd open_plain(const std::string& path, int flags, mode_t mode = 0)
{
    Fd fd(open(path.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, mode));
    struct stat st;
    if (fd && (fstat(fd.get(), &st) < 0 || !S_ISREG(st.st_mode)))
        fail("%s is not a regular file", path.c_str());
    return fd;
}

} // namespace

std::optional<std::string> try_read_file(const std::string& path)
{
    Fd fd = open_plain(path, O_RDONLY);
    if (!fd) return std::nullopt;
    return read_all(fd.get(), path);
}

std::string read_file(const std::string& path)
{
    Fd fd = open_plain(path, O_RDONLY);
    if (!fd) fail("cannot open %s: %s", path.c_str(), strerror(errno));
    return read_all(fd.get(), path);
}

void write_all(int fd, const std::string& content, const std::string& name)
{
    for (size_t done = 0; done < content.size();) {
        ssize_t n = write(fd, content.data() + done, content.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) fail("cannot write %s: %s", name.c_str(), strerror(errno));
        done += size_t(n);
    }
}

void write_file(const std::string& path, const std::string& content, mode_t mode)
{
    Fd fd = open_plain(path, O_WRONLY | O_CREAT | O_TRUNC, mode);
    if (!fd) fail("cannot create %s: %s", path.c_str(), strerror(errno));
    fchmod(fd.get(), mode);
    write_all(fd.get(), content, path);
}

void replace_file(const std::string& path, const std::string& content)
{
    const std::string fresh = path + ".new";
    unlink(fresh.c_str());
    const Fd fd(open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (!fd) fail("cannot create %s: %s", fresh.c_str(), strerror(errno));
    write_all(fd.get(), content, fresh);
    if (rename(fresh.c_str(), path.c_str()) < 0) fail("cannot write %s: %s", path.c_str(), strerror(errno));
}

void append_file(const std::string& path, const std::string& line)
{
    Fd fd = open_plain(path, O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (!fd) fail("cannot open %s: %s", path.c_str(), strerror(errno));
    write_all(fd.get(), line, path);
}

bool exists(const std::string& path)
{
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

void make_folders(const std::string& path)
{
    std::error_code error;
    fs::create_directories(path, error);
    if (error) fail("cannot make folder %s: %s", path.c_str(), error.message().c_str());
}

bool copy_if_changed(const std::string& from, const std::string& to)
{
    struct stat a, b;
    if (stat(from.c_str(), &a) < 0) fail("cannot read %s: %s", from.c_str(), strerror(errno));
    if (stat(to.c_str(), &b) == 0 && a.st_size == b.st_size && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
        a.st_mtim.tv_nsec == b.st_mtim.tv_nsec)
        return false;
    std::error_code error;
    fs::copy_file(from, to, fs::copy_options::overwrite_existing, error);
    if (error) fail("cannot copy %s to %s: %s", from.c_str(), to.c_str(), error.message().c_str());
    const timespec times[2] = {a.st_atim, a.st_mtim};
    utimensat(AT_FDCWD, to.c_str(), times, 0);
    return true;
}

ScratchFolder::ScratchFolder()
{
    const char* base = getenv("TMPDIR");
    path_ = text("%s/vcam.XXXXXX", base && *base ? base : "/tmp");
    if (!mkdtemp(path_.data())) fail("cannot make a temporary folder %s: %s", path_.c_str(), strerror(errno));
    chmod(path_.c_str(), 0755); // it stands for a file system's top, whose mode is kept
}

ScratchFolder::~ScratchFolder()
{
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

namespace {

Entry entry_of(const struct stat& st)
{
    Entry e;
    e.kind = S_ISREG(st.st_mode) ? 'f' : S_ISDIR(st.st_mode) ? 'd' : S_ISLNK(st.st_mode) ? 'l' : 'o';
    e.mode = st.st_mode & 07777;
    e.size = e.kind == 'f' ? uint64_t(st.st_size) : 0;
    e.time_ns = e.kind == 'f' ? int64_t(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec : 0;
    return e;
}

} // namespace

std::map<std::string, Entry> list_tree(const std::string& folder, const std::vector<std::string>& skip)
{
    std::map<std::string, Entry> out;
    std::error_code error;
    auto it = fs::recursive_directory_iterator(folder, fs::directory_options::skip_permission_denied, error);
    for (; !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        std::string relative = it->path().string().substr(folder.size() + 1);
        struct stat st;
        if (lstat(it->path().c_str(), &st) < 0) continue;
        if (std::find(skip.begin(), skip.end(), relative) != skip.end()) {
            it.disable_recursion_pending();
            continue;
        }
        out[relative] = entry_of(st);
    }
    return out;
}

uint32_t crc32(const void* data, size_t size, uint32_t seed)
{
    static const auto table = [] {
        std::array<uint32_t, 256> t;
        for (uint32_t i = 0; i < 256; ++i) {
            uint32_t c = i;
            for (int bit = 0; bit < 8; ++bit) c = (c >> 1) ^ (c & 1 ? 0xEDB88320u : 0);
            t[i] = c;
        }
        return t;
    }();
    auto p = static_cast<const unsigned char*>(data);
    uint32_t crc = ~seed;
    for (size_t i = 0; i < size; ++i) crc = table[(crc ^ p[i]) & 255] ^ (crc >> 8);
    return ~crc;
}

Mapped::Mapped(const std::string& path)
{
    Fd fd = open_plain(path, O_RDONLY);
    struct stat st;
    if (!fd || fstat(fd.get(), &st) < 0) fail("cannot open %s: %s", path.c_str(), strerror(errno));
    size_ = size_t(st.st_size);
    if (!size_) return;
    void* p = mmap(nullptr, size_, PROT_READ, MAP_SHARED, fd.get(), 0);
    if (p == MAP_FAILED) fail("cannot map %s: %s", path.c_str(), strerror(errno));
    data_ = static_cast<const unsigned char*>(p);
}

Mapped::~Mapped()
{
    if (data_) munmap(const_cast<unsigned char*>(data_), size_);
}

} // namespace vcam
