#ifndef SERVICE_CFDEVENT_H
#define SERVICE_CFDEVENT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Registry of the descriptors that an event loop waits on. The occupied slots stay packed at the front, so
 * that a loop can walk them until the first empty one. The descriptors stay the caller's. The record has no
 * lock: one thread at a time. errno has a meaning only where a function says so.
 */

#define CFDEVENT_SLOTS 128

/** Descriptors that read_set has a bit for: 0 to CFDEVENT_SET_SIZE - 1. */
#define CFDEVENT_SET_SIZE 1024

typedef struct {
    int32_t verbose;                         /*   0  non-zero: every change prints the registry */
    int32_t slots[CFDEVENT_SLOTS];           /*   4  -1 marks an empty slot */
    uint8_t read_set[CFDEVENT_SET_SIZE / 8]; /* 516  bit n of byte n / 8: descriptor n was readable */
    int32_t reg_count;                       /* 644  occupied slots */
} CFDEVENT_S;

/**
 * Empty the registry. Cannot fail.
 *
 * @param verbose  not 0: every change prints the registry on standard output
 */
void CFDEVENT_Init(CFDEVENT_S* registry, int32_t verbose);

/**
 * Store a descriptor in the first empty slot.
 *
 * @param fd  0 to CFDEVENT_SET_SIZE - 1 can be waited for; another number is stored and counted all the
 *            same, and a negative one leaves its slot empty
 * @return the slot's index; -1 when all slots are taken (a message only when reg_count is above
 *         CFDEVENT_SLOTS)
 */
int32_t CFDEVENT_Add(CFDEVENT_S* registry, int32_t fd);

/**
 * Remove the first slot that holds `fd`, never a negative one. The slots behind it move up.
 *
 * @return 0, found or not
 */
int32_t CFDEVENT_Del(CFDEVENT_S* registry, int32_t fd);

/**
 * Wait until a registered descriptor is readable; read_set then says which.
 *
 * @param timeout_us  microseconds
 * @return 0; -1 when the time is up; -2 when the wait fails, as it does for a negative time, a closed
 *         descriptor or one of CFDEVENT_SET_SIZE or more, errno says why; -3 when reg_count is below 1
 */
int32_t CFDEVENT_Wait(CFDEVENT_S* registry, int32_t timeout_us);

/**
 * Tell whether the last wait found a descriptor readable.
 *
 * @return 1 or 0; 0 for a number outside 0 to CFDEVENT_SET_SIZE - 1
 */
int32_t CFDEVENT_IsSet(const CFDEVENT_S* registry, int32_t fd);

#ifdef __cplusplus
}
#endif

#endif
