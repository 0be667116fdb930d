// Prints every figure of the signal processing with its floor; fails when one has fallen below it.
#include "bench/dsp/quality.hpp"

#include <cstdarg>
#include <cstdio>

namespace {

int below = 0;

} // namespace

void quality::figure(int value, int floor, const char* unit, const char* format, ...)
{
    char name[80];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(name, sizeof name, format, arguments);
    va_end(arguments);
    const bool good = value >= floor;
    printf("%-52s %6d %-9s floor %5d%s\n", name, value, unit, floor, good ? "" : "  BELOW ITS FLOOR");
    below += !good;
}

int main()
{
    quality::echo_canceller();
    quality::noise_reducer();
    quality::resamplers();
    return below ? 1 : 0;
}
