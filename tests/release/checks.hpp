// Checks for programs without a C++ runtime library: what fails is told on standard output.
#pragma once

#include <cstdio>
#include <cstring>

namespace checks {

inline int failed;

inline void equal(long long is, long long wanted, const char* what, int line)
{
    if (is == wanted) return;
    ++failed;
    printf("%d: %s is %lld, not %lld\n", line, what, is, wanted);
}

inline void text(const char* is, const char* wanted, const char* what, int line)
{
    if (is && strcmp(is, wanted) == 0) return;
    ++failed;
    printf("%d: %s is \"%s\", not \"%s\"\n", line, what, is ? is : "(null)", wanted);
}

struct Group {
    const char* name;
    void (*run)();
};

// Runs each group and names it; 1 when anything failed.
template<size_t N> int run(const Group (&groups)[N])
{
    for (const Group& group : groups) {
        const int before = failed;
        group.run();
        printf("%s %s\n", failed == before ? "passed" : "FAILED", group.name);
    }
    return failed != 0;
}

} // namespace checks

#define EQUAL(is, wanted) checks::equal((long long)(is), (long long)(wanted), #is, __LINE__)
#define TEXT(is, wanted) checks::text((is), (wanted), #is, __LINE__)
