#ifndef COMMON_DS1339_UAPI_H
#define COMMON_DS1339_UAPI_H

#include <stddef.h>
#include <stdint.h>

/* Driver of the DS1339 real-time clock: its own requests and record, not the generic RTC ones. */

#define DS1339_DEVICE "/dev/ds1339"
#define DS1339_READ 1u
#define DS1339_WRITE 3u

typedef struct {
    int32_t year;    /*  0  full, such as 2012 */
    int32_t month;   /*  4  1 to 12 */
    int32_t day;     /*  8  1 to 31 */
    int32_t hour;    /* 12  0 to 23 */
    int32_t minute;  /* 16  0 to 59 */
    int32_t second;  /* 20  0 to 59 */
    int32_t weekday; /* 24  0 (Sunday) to 6 */
} DS1339_TIME_S;

#ifdef __cplusplus
static_assert(sizeof(DS1339_TIME_S) == 28 && offsetof(DS1339_TIME_S, hour) == 12 &&
              offsetof(DS1339_TIME_S, weekday) == 24);
#endif

#endif
