// Facts about files.
#include "common/cutil_file.h"

#include "common/base/fd.hpp"

#include <fcntl.h>
#include <unistd.h>

int64_t CUTIL_GetFileSize(const char* path)
{
    zep::Fd fd(path ? open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK) : -1);
    off_t end = fd ? lseek(fd.get(), 0, SEEK_END) : 0;
    return end < 0 ? 0 : end;
}
