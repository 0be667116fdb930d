// Messages of the media platform.
#include "base/mpp_report.hpp"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <unistd.h>

namespace zep {

void mpp_log(const char* function, int line, const char* format, ...)
{
    const int saved = errno;
    va_list arguments;
    va_start(arguments, format);
    flockfile(stderr); // prefix and message stay together when several channels complain at once
    fprintf(stderr, "[Func]:%s [Line]:%d [Info]:", function, line);
    vfprintf(stderr, format, arguments);
    funlockfile(stderr);
    va_end(arguments);
    errno = saved;
}

void mpp_assert_failed(const char* file, const char* function, int line, const char* condition)
{
    printf("\nASSERT failed at:\n  >File name: %s\n  >Function : %s\n  >Line No. : %d\n  >Condition: %s\n",
           file, function, line, condition);
    fflush(stdout); // _exit would drop the text when standard output is a pipe
    _exit(-1);
}

} // namespace zep
