// Packages and images as fwpkg reads them, and the output they go to.
#include "tools/fwpkg/file.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace fwpkg {

void fail(const std::string& path, const char* text)
{
    throw std::runtime_error(path + ": " + (text ? text : strerror(errno)));
}

void Input::open(const std::string& file)
{
    path = file;
    fd.reset(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat info;
    if (!fd || fstat(fd.get(), &info) < 0) fail(path);
    if (!S_ISREG(info.st_mode)) fail(path, "is not a regular file");
    size = info.st_size;
}

void copy_bytes(const Input& from, cli::OutputFile& to, int64_t size)
{
    std::vector<char> buffer(256 * 1024);
    while (size > 0) {
        ssize_t n =
            read(from.fd.get(), buffer.data(), size_t(std::min<int64_t>(size, int64_t(buffer.size()))));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) fail(from.path);
        if (n == 0) fail(from.path, "became shorter while it was read");
        to.write(buffer.data(), size_t(n));
        size -= n;
    }
}

} // namespace fwpkg
