/* The atomic functions that the compiler calls for a processor without such instructions, each in a section of its
 * own. The compiler's library has all of them in one: 4 KB in a program that needs three. Names and meaning are those
 * of GCC's manual ("Legacy __sync Built-in Functions"); the kernel's helpers at the end of the address space do the
 * work (Documentation/arm/kernel_user_helpers.rst). */
#include <stdint.h>

static int kernel_swap(uint32_t is, uint32_t to, volatile uint32_t* at) /* 0: stored */
{
    return ((int (*)(uint32_t, uint32_t, volatile uint32_t*))0xffff0fc0)(is, to, at);
}

void synchronize(void) __asm__("__sync_synchronize");
void synchronize(void) { ((void (*)(void))0xffff0fa0)(); }

/* A value of 1, 2 or 4 bytes is a field of its aligned word. The compiler extends a small argument by its sign or by
 * zeros, so it arrives as 32 bits, of which the lowest count. */
#define FIELD(size)                                                                                          \
    volatile uint32_t* const word = (volatile uint32_t*)((uintptr_t)at & ~(uintptr_t)3);                     \
    const unsigned shift = 8 * ((uintptr_t)at & (4 - (size)));                                               \
    const uint32_t mask = (0xffffffff >> (32 - 8 * (size))) << shift

#define SWAP(size, type)                                                                                     \
    type val_compare_and_swap_##size(volatile void* at, uint32_t old,                                        \
                                     uint32_t to) __asm__("__sync_val_compare_and_swap_" #size);             \
    type val_compare_and_swap_##size(volatile void* at, uint32_t old, uint32_t to)                           \
    {                                                                                                        \
        FIELD(size);                                                                                         \
        for (;;) {                                                                                           \
            const uint32_t is = *word;                                                                       \
            const type field = (type)((is & mask) >> shift);                                                 \
            if (field != (type)old || !kernel_swap(is, (is & ~mask) | (uint32_t)(type)to << shift, word))    \
                return field;                                                                                \
        }                                                                                                    \
    }                                                                                                        \
    _Bool bool_compare_and_swap_##size(volatile void* at, uint32_t old,                                      \
                                       uint32_t to) __asm__("__sync_bool_compare_and_swap_" #size);          \
    _Bool bool_compare_and_swap_##size(volatile void* at, uint32_t old, uint32_t to)                         \
    {                                                                                                        \
        return val_compare_and_swap_##size(at, old, to) == (type)old;                                        \
    }                                                                                                        \
    void lock_release_##size(volatile type* at) __asm__("__sync_lock_release_" #size);                       \
    void lock_release_##size(volatile type* at)                                                              \
    {                                                                                                        \
        synchronize();                                                                                       \
        *at = 0;                                                                                             \
    }

#define CHANGE(name, size, type, result, value)                                                              \
    type name##_##size(volatile void* at, uint32_t by) __asm__("__sync_" #name "_" #size);                   \
    type name##_##size(volatile void* at, uint32_t by)                                                       \
    {                                                                                                        \
        FIELD(size);                                                                                         \
        for (;;) {                                                                                           \
            const uint32_t is = *word;                                                                       \
            const type old = (type)((is & mask) >> shift), to = (type)(value);                               \
            if (!kernel_swap(is, (is & ~mask) | (uint32_t)to << shift, word)) return result;                 \
        }                                                                                                    \
    }

#define BOTH(op, size, type, value)                                                                          \
    CHANGE(fetch_and_##op, size, type, old, value)                                                           \
    CHANGE(op##_and_fetch, size, type, to, value)

#define ALL(size, type)                                                                                      \
    SWAP(size, type)                                                                                         \
    CHANGE(lock_test_and_set, size, type, old, by)                                                           \
    BOTH(add, size, type, old + by)                                                                          \
    BOTH(sub, size, type, old - by)                                                                          \
    BOTH(or, size, type, old | by)                                                                           \
    BOTH(and, size, type, old& by)                                                                           \
    BOTH(xor, size, type, old ^ by)                                                                          \
    BOTH(nand, size, type, ~(old & by))

ALL(1, uint8_t)
ALL(2, uint16_t)
ALL(4, uint32_t)
