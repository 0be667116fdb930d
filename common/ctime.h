#ifndef COMMON_CTIME_H
#define COMMON_CTIME_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Wall clock, real-time clock, network time. The system clock and the RTC hold local time: the
 * zone's offset is added before the clock is set, not when the time is shown.
 */

/** Broken-down time as CTIME_GetRTC gives it. */
typedef struct {
    int32_t second; /* 0 to 59 */
    int32_t minute; /* 0 to 59 */
    int32_t hour;   /* 0 to 23 */
    int32_t day;    /* 1 to 31 */
    int32_t month;  /* 1 to 12 */
    int32_t year;   /* full, such as 2012 */
} CTIME_TIME_S;

/** Bytes of an SNTP packet. */
#define CTIME_NTP_PACKET_SIZE 48

/**
 * Read the real-time clock.
 *
 * @param time  receives the time; zeroed when the driver refuses to read
 * @return 0; -1 for a null pointer, when "/dev/ds1339" cannot be opened (one line on standard
 *         output) or when the driver refuses
 */
int32_t CTIME_GetRTC(CTIME_TIME_S* time);

/**
 * Set the system clock, then the real-time clock (with weekday 0). The system clock stays set when
 * the RTC cannot be written.
 *
 * @param month  1 to 12
 * @param year   full, such as 2012
 * @return 0; -1 when the RTC cannot be opened or written (messages on standard output and error)
 */
int32_t CTIME_SetRTC(int32_t second, int32_t minute, int32_t hour, int32_t day, int32_t month, int32_t year);

/**
 * Ask a time server (SNTP version 3, RFC 1769, UDP port 123) and set the system clock and the RTC.
 *
 * Sends up to 50 requests a second apart, the first about a second after the call, and gives up about
 * a second after the last. No reply is authenticated. Waits; uses the resolver's static storage, so
 * one caller at a time.
 *
 * @param host  name or dotted address; when the look-up fails it is reported and this host is asked
 * @param dst   non-zero adds an hour of daylight-saving time
 * @param zone  index into the 56 zones of the key "timezone" of "/etc/timezone.conf"; an index
 *              outside the table has offset 0
 * @return 0 when both clocks are set, else -1
 */
int32_t CTIME_NTPSync(const char* host, int32_t dst, int32_t zone);

/**
 * Apply a server's reply: only its transmit timestamp is looked at. The 32-bit seconds are taken
 * modulo their era, so times from 1970 to 2106 are right; to 2038 where time_t has 32 bits.
 *
 * @param reply  CTIME_NTP_PACKET_SIZE bytes
 * @return 0; -1 when the system clock or the RTC cannot be set
 */
int32_t setTime(const uint8_t* reply, int32_t dst, int32_t zone);

/**
 * Measure the time since a start taken with gettimeofday.
 *
 * @return microseconds; 1,000,000 too many from the first change of the second on: callers' time-outs are
 *         tuned to it
 */
int64_t CTIME_ElapsedUs(int64_t start_seconds, int64_t start_microseconds);

/**
 * Whether a time limit has passed since a start taken with gettimeofday. Up to a second early: once
 * the microseconds have wrapped, the borrowed second is counted twice.
 *
 * @param limit_ms  milliseconds
 * @return 0 when it has passed, -1 while it has not
 */
int32_t CTIME_IsExpired(int64_t start_seconds, int64_t start_microseconds, int32_t limit_ms);

#ifdef __cplusplus
}
#endif

#endif
