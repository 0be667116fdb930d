// Starting an applet to its end, beside the smallest static program and busybox.
#include "measure.hpp"

int main()
{
    constexpr int kStarts = 200;
    auto start = [](const char* file, const char* name) {
        auto starts = [=] {
            for (int i = 0; i < kStarts; ++i) run({name}, file);
        };
        return best_ms(5, starts) / kStarts;
    };
    printf("start of a whole program, mean of %d, best of 5\n", kStarts);
    const double least = start(SMALLEST_PROGRAM, "smallest");
    const double busybox = start("/bin/busybox", "true");
    const double dynamic = start(ZEP_PROGRAM, "init_upgrade");
    const double fixed = start(ZEP_STATIC_PROGRAM, "init_upgrade");
    row("smallest static program", least);
    row("busybox true (static)", busybox);
    row("zep as init_upgrade, linked statically as on the device", fixed);
    row("zep as init_upgrade, linked dynamically", dynamic);
    printf("  ratio, static zep to the smallest program %.2f, to busybox %.2f\n", fixed / least,
           fixed / busybox);
}
