/**
 * A device of one's own on the virtual camera: the model of a driver, in C.
 *
 * A shared object defines the record `vcam_model`; `vcam new CAMERA --device FILE.so` puts it into a camera, whose
 * programs then find the device file. The same source is linked with the server of the emulated machine's device
 * files. docs/own-device.md has an example and its commands.
 *
 * What the simulator does for every model: descriptors (dup, fork, exec, access mode), copies of a request's record
 * from and to the program, waiting, poll and select, the fault plan, counts, the power. A model says what the driver
 * answers.
 *
 * Processes. On a PC the model is loaded into each program that opens the device; on the emulated machine it is in one
 * server. Variables of the model are therefore not shared and its state is: the simulator hands it to each function.
 *
 * Threads. Each function runs under the device's lock: one at a time in the whole camera, signals held back. It must
 * return at once: no sleep, no lock of its own, no device of the camera.
 *
 * Time is camera time. A model looks at no clock but `now_ns`.
 *
 * Errors. A function gives 0 or a count, or a negative errno number down to -511, the last that a kernel takes from
 * a server. A request may also give a driver's own code below -4095, which becomes its result as it is.
 */
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define VCAM_DEVICE_ABI 1        /* of this header; another one is refused */
#define VCAM_DEVICE_REQUESTS 32  /* of a device */
#define VCAM_DEVICE_OPENINGS 32  /* at a time; one more fails with EBUSY */
#define VCAM_DEVICE_STATE 262144 /* bytes at most */
#define VCAM_DEVICE_BYTES 65536  /* of one read or write: more come in several calls */

/**
 * The function's answer is not there yet, and nothing has changed. A program that waits is asked about again when
 * the state may have changed, at `changes_ns` at the latest; one with O_NONBLOCK gets EAGAIN.
 */
#define VCAM_DEVICE_WAIT INT32_MIN

/**
 * A request (ioctl). Where the number itself has direction and size, as _IOR, _IOW and _IOWR make it, `in` and `out`
 * are 0. Without a size in either the argument is a number, in `value`.
 */
struct vcam_request {
    uint32_t number;
    uint16_t in, out; /* bytes that the program gives and gets, at most 16383 */
    char name[16];    /* in fault plan and journal: a-z 0-9 _, none of open close read write mmap ioctl */
};

/** One call of a program; valid until the function returns. */
struct vcam_call {
    /**
     * state_size bytes, all zero when the camera is switched on. One block for all programs, of whatever word size:
     * its layout is that of fixed-width types, without addresses.
     */
    void* state;
    uint32_t opening; /* 0..VCAM_DEVICE_OPENINGS-1: the same from open to close, through dup, fork and exec */
    int32_t flags;    /* O_RDONLY, O_NONBLOCK and so on, as they are now */
    int32_t process;  /* the program's number */
    int32_t reserved; /* 0 */
    int64_t now_ns;   /* camera time */
    /**
     * Set by `ready`, and with VCAM_DEVICE_WAIT: the camera time at which the answer may change by itself. It comes
     * as INT64_MAX: not by time.
     */
    int64_t changes_ns;
    uint64_t value; /* argument of a request without a record */
    /** A line of the journal, whose source is the device's name. */
    void (*journal)(const struct vcam_call* call, const char* text);
    /**
     * What a person or a test has laid around the device: the text of the file devices/NAME.input in the camera's
     * folder, which may change at any time.
     * @param text  gets at most size - 1 bytes and a final 0; stays the caller's
     * @return bytes of the whole file, without the 0; 0 when there is none
     */
    size_t (*input)(const struct vcam_call* call, char* text, size_t size);
};

/**
 * The record that a shared object exports as `vcam_model`. What stands before the functions is read from the file:
 * `vcam` runs no code of it outside the camera. A function that is NULL: open and close succeed, read and write give
 * EINVAL, requests ENOTTY, and the device is always ready.
 */
struct vcam_device {
    uint32_t abi;        /* VCAM_DEVICE_ABI */
    uint32_t state_size; /* bytes, 0 to VCAM_DEVICE_STATE */
    char name[16]; /* in fault plan, journal and status: a letter, then a-z 0-9 _; none of the camera's own */
    char path[32]; /* in the camera, below /dev/; none of the camera's own */
    struct vcam_request requests[VCAM_DEVICE_REQUESTS]; /* to the first without a name; others give ENOTTY */

    int32_t (*open)(struct vcam_call* call); /* 0; refuses with an error, then no close follows */
    /**
     * The last descriptor of an opening is gone. That of a program which ended without a close is noticed when the
     * device is next opened or closed.
     */
    void (*close)(struct vcam_call* call);
    int32_t (*read)(struct vcam_call* call, void* data, uint32_t size);        /* bytes, 0 at the end */
    int32_t (*write)(struct vcam_call* call, const void* data, uint32_t size); /* bytes taken */
    /**
     * @param record  what the program has given, and room for what it gets, zero behind `in`; aligned for any type.
     *                Goes back unless the result is an error. NULL for a request without a record
     */
    int32_t (*request)(struct vcam_call* call, uint32_t number, void* record);
    uint32_t (*ready)(struct vcam_call* call); /* poll events that hold: POLLIN, POLLOUT, POLLERR */
};

#if defined __GNUC__
__attribute__((visibility("default")))
#endif
extern const struct vcam_device vcam_model;

#ifdef __cplusplus
}
#endif
