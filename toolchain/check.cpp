// The toolchain's own check, run under emulation before it is taken into use: the C++ headers
// compile, and threads, crypt, floats and the start files work.
#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <optional>
#include <span>
#include <string_view>

#include <crypt.h>
#include <math.h>
#include <netdb.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>

static std::atomic<int> ran;

static void* body(void*)
{
    ran.store(1);
    return nullptr;
}

int main()
{
    std::array<int, 3> numbers{3, 1, 2};
    std::sort(numbers.begin(), numbers.end());
    pthread_t thread;
    if (pthread_create(&thread, nullptr, body, nullptr) != 0) return 2;
    pthread_join(thread, nullptr);
    volatile float two = 2;
    const char* hash = crypt("password", "ab");
    if (std::span(numbers)[0] != 1 || ran != 1) return 3;
    if (!(sqrtf(two) > 1.4f)) return 4;
    if (!hash || std::string_view(hash) != "abJnggxhB/yWI") return 5;
    return puts("toolchain ready") < 0;
}
