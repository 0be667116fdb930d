/*
 * The model of a light sensor's driver, /dev/light, for the virtual camera.
 *
 * How bright it is stands in devices/light.input of the camera's folder: lines "SECONDS LUX" in the order of camera
 * time, each from its second on. Before the first it is 300 lux.
 */
#include "light_uapi.h"
#include "vcam_device.h"

#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>

enum { DAYLIGHT_LUX = 300, UNKNOWN = 0, DARK = 1, BRIGHT = 2 };

/* One block for all programs of the camera; all zero when it is switched on. */
struct light_state {
    struct light_limit limit;
    uint32_t percent;                   /* 0: not calibrated, as 100 */
    uint8_t told[VCAM_DEVICE_OPENINGS]; /* what each opening has read */
};

/* The sensor's brightness, and in changes_ns when it will be another. */
static uint32_t lux_now(struct vcam_call* call)
{
    char text[4096];
    uint32_t lux = DAYLIGHT_LUX, next;
    double second;
    int length;

    call->input(call, text, sizeof text);
    for (const char* at = text;
         sscanf(at, "%lf %u%n", &second, &next, &length) == 2;
         at += length) {
        const int64_t from_ns = (int64_t)(second * 1e9);
        if (from_ns > call->now_ns) {
            call->changes_ns = from_ns;
            break;
        }
        lux = next;
    }
    const uint32_t percent = ((struct light_state*)call->state)->percent;
    return percent ? lux * percent / 100 : lux;
}

/* Between the limits it stays what it was. */
static uint8_t brightness(const struct light_state* state, uint32_t lux,
                          uint8_t before)
{
    const struct light_limit usual = {50, 100};
    const struct light_limit* limit =
        state->limit.bright_lux ? &state->limit : &usual;
    if (lux < limit->dark_lux) return DARK;
    return lux >= limit->bright_lux || before == UNKNOWN ? BRIGHT : before;
}

static int32_t light_open(struct vcam_call* call)
{
    ((struct light_state*)call->state)->told[call->opening] = UNKNOWN;
    return 0;
}

static int32_t light_read(struct vcam_call* call, void* data, uint32_t size)
{
    struct light_state* state = call->state;
    uint8_t* told = &state->told[call->opening];
    const uint32_t lux = lux_now(call);
    const uint8_t now = brightness(state, lux, *told);
    const struct light_event event = {lux, now == DARK};

    if (size < sizeof event) return -EINVAL;
    if (now == *told) return VCAM_DEVICE_WAIT;
    *told = now;
    memcpy(data, &event, sizeof event);
    return sizeof event;
}

static uint32_t light_ready(struct vcam_call* call)
{
    const struct light_state* state = call->state;
    const uint8_t told = state->told[call->opening];
    return brightness(state, lux_now(call), told) != told ? POLLIN : 0;
}

static int32_t light_request(struct vcam_call* call, uint32_t number,
                             void* record)
{
    struct light_state* state = call->state;
    const struct light_limit* limit = record;
    char line[64];

    switch (number) {
    case LIGHT_GET_LIMIT:
        memcpy(record, &state->limit, sizeof state->limit);
        return 0;
    case LIGHT_SET_LIMIT:
        if (limit->bright_lux == 0 || limit->dark_lux > limit->bright_lux)
            return -EINVAL;
        state->limit = *limit;
        snprintf(line, sizeof line, "dark below %u lux, bright from %u",
                 limit->dark_lux, limit->bright_lux);
        call->journal(call, line);
        return 0;
    default: /* LIGHT_CALIBRATE: others do not come */
        if (call->value < 50 || call->value > 200) return -ERANGE;
        state->percent = (uint32_t)call->value;
        return 0;
    }
}

const struct vcam_device vcam_model = {
    .abi = VCAM_DEVICE_ABI,
    .state_size = sizeof(struct light_state),
    .name = "light",
    .path = "/dev/light",
    .requests = {{.number = LIGHT_SET_LIMIT, .name = "setlimit"},
                 {.number = LIGHT_GET_LIMIT, .name = "getlimit"},
                 {.number = LIGHT_CALIBRATE, .name = "calibrate"}},
    .open = light_open,
    .read = light_read,
    .request = light_request,
    .ready = light_ready,
};
