// Writing the real-time clock, shared by the clock setters.
#pragma once

#include "common/ds1339_uapi.h"

namespace zep {

// Opens the RTC and writes the record; messages name `function`. 0 or -1.
int write_rtc(const char* function, const DS1339_TIME_S& record);

} // namespace zep
