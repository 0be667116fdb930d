// Reading and writing whole files.
#include "tools/fwpkg/file.hpp"

#include "common/base/whole_io.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace fwpkg {

void complain(const std::string& path, const char* text)
{
    fprintf(stderr, "fwpkg: %s: %s\n", path.c_str(), text ? text : strerror(errno));
}

bool Input::open(const char* file)
{
    path = file;
    fd.reset(::open(file, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat info;
    if (!fd || fstat(fd.get(), &info) < 0) {
        complain(path);
        return false;
    }
    if (!S_ISREG(info.st_mode)) {
        complain(path, "not a regular file");
        return false;
    }
    size = info.st_size;
    return true;
}

bool copy_bytes(int from, int to, int64_t size)
{
    std::vector<char> buffer(256 * 1024);
    while (size > 0) {
        ssize_t n = read(from, buffer.data(), size_t(std::min<int64_t>(size, int64_t(buffer.size()))));
        if (n < 0 && errno == EINTR) continue;
        if (n == 0) errno = ENODATA; // shorter than a moment ago
        if (n <= 0 || !zep::write_fully(to, buffer.data(), size_t(n))) return false;
        size -= n;
    }
    return true;
}

Output::~Output()
{
    if (!temporary_.empty()) unlink(temporary_.c_str());
}

bool Output::create()
{
    std::string name = path_ + ".XXXXXX";
    fd_.reset(mkostemp(name.data(), O_CLOEXEC));
    if (!fd_) {
        complain(path_);
        return false;
    }
    temporary_ = name;
    mode_t mask = umask(0);
    umask(mask);
    fchmod(fd_.get(), 0666 & ~mask);
    return true;
}

bool Output::commit()
{
    if (fsync(fd_.get()) < 0 || rename(temporary_.c_str(), path_.c_str()) < 0) {
        complain(path_);
        return false;
    }
    temporary_.clear();
    return true;
}

} // namespace fwpkg
