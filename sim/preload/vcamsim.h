/**
 * The simulated drivers inside one process: for test programs that are linked with libvcamsim.so, named
 * before the C library. Their own calls of open, ioctl, sleep and the like then reach the same models
 * that the unmodified executable meets in the virtual camera.
 *
 * Not thread-safe among each other; the simulated devices and clocks are.
 */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Powers the camera of a state folder on, for this process and its children. The folder holds camera.conf
 * with a line for each flash partition (mtd1=nor,1M,64K,1) and a folder flash/; missing images are made,
 * erased. Leaves a camera that was on before.
 *
 * @param realtime 0: waits take camera time only; else they take their time
 * @return 0; -1 when the folder cannot hold the clock, said on standard error
 */
int vcamsim_start(const char* state_folder, int realtime);

/** Powers it off. Device files, clocks and waits are the machine's own again. */
void vcamsim_stop(void);

/**
 * Adds a line to the fault plan: "<device or call> [<operation>[@<block>]] <skip> <times> <effect>".
 * @return 0; -1 for a line that means nothing, said on standard error
 */
int vcamsim_fault(const char* line);
void vcamsim_clear_faults(void);

/** How often this process has asked a device for an operation since the start, by name ("mtd1", "erase"). */
int vcamsim_count(const char* device, const char* operation);

/** Camera time in microseconds. */
int64_t vcamsim_now_us(void);

/** 0 after a simulated power cut or watchdog reset: the devices answer EIO until the next start. */
int vcamsim_has_power(void);

struct vcamsim_watchdog {
    int32_t armed, fired;  /* counting down; has reset the camera */
    int32_t timeout_units; /* in force, in units of two seconds */
    int32_t feeds;
    int64_t longest_gap_us; /* between opening, feeds and closing */
    int64_t since_feed_us;  /* while armed */
};
void vcamsim_read_watchdog(struct vcamsim_watchdog* out);

#ifdef __cplusplus
}
#endif
