// What the measuring programs share: processor time, options, sample files, loaded implementations.
#pragma once

#include "bench/dsp/vdsp_if.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <functional>
#include <sched.h>
#include <string>
#include <vector>

namespace zep::bench {

using Samples = std::vector<int16_t>;
using Octets = std::vector<uint8_t>;

// Seconds of this thread's own processor time: another process on the core does not count.
inline double cpu_seconds()
{
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

// Seconds since some moment: cheap enough to time single frames.
inline double seconds()
{
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

inline double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

class Options {
public:
    Options(int argc, char** argv) : argc_(argc), argv_(argv) {}

    bool flag(const char* name) const
    {
        return std::any_of(argv_ + 1, argv_ + argc_, [&](const char* a) { return !strcmp(a, name); });
    }
    const char* text(const char* name, const char* otherwise) const
    {
        for (int i = 1; i + 1 < argc_; i++)
            if (!strcmp(argv_[i], name)) return argv_[i + 1];
        return otherwise;
    }
    int number(const char* name, int otherwise) const
    {
        const char* t = text(name, nullptr);
        return t ? atoi(t) : otherwise;
    }
    // The implementations named by --impl, in order.
    std::vector<const vd_impl*> impls() const
    {
        std::vector<const vd_impl*> found;
        for (int i = 1; i + 1 < argc_; i++)
            if (!strcmp(argv_[i], "--impl")) found.push_back(load(argv_[i + 1]));
        return found;
    }
    // Keeps the thread on one core (--cpu N), so that caches and clock stay the same between rows.
    void pin() const
    {
        cpu_set_t set;
        CPU_ZERO(&set);
        CPU_SET(size_t(number("--cpu", 1)), &set);
        sched_setaffinity(0, sizeof set, &set);
    }

private:
    static const vd_impl* load(const char* path)
    {
        void* object = dlopen(path, RTLD_NOW | RTLD_LOCAL);
        void* get = object ? dlsym(object, "vd_impl_get") : nullptr;
        if (!get) {
            fprintf(stderr, "%s\n", dlerror());
            exit(1);
        }
        return reinterpret_cast<const vd_impl* (*)()>(get)();
    }

    int argc_;
    char** argv_;
};

// Processor time of one call of each job, the least of the rounds. In each round all jobs take their turn, so that a core
// that slows down or is shared slows all of them and their ratios stay.
inline std::vector<double> times_in_turn(const std::vector<std::function<void()>>& jobs, int rounds)
{
    for (const auto& job : jobs) job(); // fills caches and page tables
    std::vector<double> least(jobs.size(), 1e9);
    for (int r = 0; r < rounds; r++)
        for (size_t k = 0; k < jobs.size(); k++) {
            const double start = cpu_seconds();
            jobs[k]();
            least[k] = std::min(least[k], cpu_seconds() - start);
        }
    return least;
}

#if defined(__x86_64__)
// Core clock, GHz, as a chain of dependent multiplications sees it: three cycles each on every x86-64 since 2008.
// Additions of a constant will not do, since newer cores fold a chain of them into one.
inline double core_ghz()
{
    constexpr long kRounds = 5'000'000;
    std::vector<double> v;
    for (int r = 0; r < 9; r++) {
        const double start = cpu_seconds();
        uint64_t x = 1;
        for (long i = 0; i < kRounds; i++)
            asm volatile("imul %0,%0\n imul %0,%0\n imul %0,%0\n imul %0,%0" : "+r"(x));
        v.push_back(3e-9 * 4 * kRounds / (cpu_seconds() - start));
    }
    return median(v);
}
#else
inline double core_ghz() { return 0; } // cycles are then printed as 0
#endif

inline Samples load_samples(const std::string& path)
{
    FILE* f = fopen(path.c_str(), "rb");
    if (!f) {
        fprintf(stderr, "cannot open %s: make the signals first (bench/dsp/run)\n", path.c_str());
        exit(1);
    }
    fseek(f, 0, SEEK_END);
    Samples v(size_t(ftell(f)) / 2);
    rewind(f);
    const size_t got = fread(v.data(), 2, v.size(), f);
    fclose(f);
    if (got != v.size()) exit(1);
    return v;
}

inline void save_samples(const std::string& path, const Samples& v)
{
    FILE* f = fopen(path.c_str(), "wb");
    if (!f || fwrite(v.data(), 2, v.size(), f) != v.size() || fclose(f) != 0) {
        perror(path.c_str());
        exit(1);
    }
}

} // namespace zep::bench
