// The quality gate of the signal processing: figures, each with the floor that it must not fall below.
#pragma once

#include "bench/dsp/voices.hpp"

#include <cmath>

namespace quality {

// One figure as a whole number in `unit`; the gate fails when it is below `floor`.
void figure(int value, int floor, const char* unit, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

inline double power(const voices::Signal& x, size_t from, size_t to)
{
    double sum = 1e-3;
    for (size_t i = from; i < to; ++i) sum += double(x[i]) * x[i];
    return sum;
}

// A ratio of powers in tenths of a decibel.
inline int decibels(double over, double under) { return int(std::floor(100 * std::log10(over / under))); }

// Samples of the second that differ from the first's, from a place on.
inline int changed(const voices::Signal& a, const voices::Signal& b, size_t from)
{
    int count = 0;
    for (size_t i = from; i < a.size(); ++i) count += a[i] != b[i];
    return count;
}

void echo_canceller();
void noise_reducer();
void resamplers();

} // namespace quality
