// The program's entry: the name it is started under selects an applet.
#include "app/applet.hpp"
#include "board/applets.h"
#include "common/build_stamp.h"
#include "factory/applets.h"
#include "service/applets.h"
#include "upgrade/applets.h"

#include <cstdio>
#include <cstring>

namespace {

using zep::Applet;

// Kept as a name that succeeds: start-up scripts of older devices call it.
int nothing_main(int, char**) { return 0; }

constexpr Applet kApplets[] = {
    // the order is the order of the listing
    {"qrn_arp", qrn_arp_main},
    {"load_drv", load_drv_main},
    {"get_boot_param", get_boot_param_main},
    {"init_upgrade", nothing_main},
    {"upgrade", upgrade_main},
    {"xupgrade", xupgrade_main},
    {"xbootenv", nothing_main},
    {"xgpio", xgpio_main},
    {"xi2c", xi2c_main},
    {"xgpioi2c", xi2c_main},
    {"xkill", xkill_main},
    {"xtime", xtime_main},
    {"test_dio", test_dio_main},
    {"test_led", test_led_main},
    {"test_rs485", test_rs485_main},
    {"test_rs232", test_rs232_main},
    {"test_sdcard", test_sdcard_main},
    {"test_usb", test_usb_main},
    {"test_key", test_key_main},
    {"test_rtc", test_rtc_main},
    {"test_send_watchdog", test_send_watchdog_main},
    {"test_audio", test_audio_main},
    {"get_cb_cam_info", get_cb_cam_info_main},
    {nullptr, nullptr},
};

consteval bool names_unique()
{
    for (const Applet* a = kApplets; a->name; ++a)
        for (const Applet* b = a + 1; b->name; ++b)
            if (__builtin_strcmp(a->name, b->name) == 0) return false;
    return true;
}
static_assert(names_unique(), "the first match wins, so a second row would be dead");

void print_usage()
{
    printf("ZEP ver. 1.0.0 (%s) multi-call binary\n", ZEP_BUILD_STAMP);
    puts("usage : [function] [arguments]...");
    puts("");
    puts("currently defined functions:");
    for (const Applet* a = kApplets; a->name; ++a) printf("%s%s", a == kApplets ? "" : ", ", a->name);
    puts("");
}

} // namespace

int main(int argc, char** argv)
{
    // Old kernels start a program with an empty argument vector if asked to.
    if (argc < 1 || !argv[0]) {
        print_usage();
        return 0;
    }
    if (char* slash = strrchr(argv[0], '/')) argv[0] = slash + 1;
    for (const Applet* a = kApplets; a->name; ++a) {
        if (strcmp(argv[0], a->name) == 0) {
            a->handler(argc, argv);
            return 0; // scripts rely on 0; an applet that must report failure calls exit itself
        }
    }
    print_usage();
    return 0;
}
