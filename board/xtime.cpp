// xtime: copies the real-time clock into the system clock.
#include "board/applets.h"

#include "common/ctime.h"
#include "common/base/shell.hpp"

#include <cstdio>

int xtime_main(int, char**)
{
    CTIME_TIME_S now;
    if (CTIME_GetRTC(&now) < 0) {
        // The date command must not run on a time that could not be read.
        printf("\033[1;31mGET RTC ERROR !\n\n\033[0;39m");
        return 0;
    }
    printf("\033[1;32mREAD RTC TIME : %04d/%02d/%02d %02d:%02d:%02d\n\033[0;39m", now.year, now.month,
           now.day, now.hour, now.minute, now.second);
    char line[96];
    snprintf(line, sizeof line, "date %02d%02d%02d%02d%04d.%02d", now.month, now.day, now.hour, now.minute,
             now.year, now.second);
    zep::run_shell(line);
    return 0;
}
