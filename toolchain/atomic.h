/* The C library's own locks. Its sources have them for ARM code; for Thumb code of this processor they fall
 * back to plain loads and stores, with which two threads can hold one lock. The compiler's functions ask the
 * kernel, as the ARM code does.
 *
 * Replaces libc/sysdeps/linux/arm/bits/atomic.h of the library and is under the library's licence. */
#ifndef _BITS_ATOMIC_H
#define _BITS_ATOMIC_H 1

#define atomic_compare_and_exchange_val_acq(mem, newval, oldval)                                             \
    __sync_val_compare_and_swap((mem), (oldval), (newval))
#define atomic_compare_and_exchange_bool_acq(mem, newval, oldval)                                            \
    (!__sync_bool_compare_and_swap((mem), (oldval), (newval)))
#define atomic_full_barrier() __sync_synchronize()

#endif
