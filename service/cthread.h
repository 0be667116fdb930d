#ifndef SERVICE_CTHREAD_H
#define SERVICE_CTHREAD_H

/**
 * A job in a thread of its own: a start step, a tick step repeated until it fails or a stop is asked for, and
 * an end step. Nothing joins the thread; the record must outlive it.
 *
 * The steps run on the worker's thread. Start and stop belong to one thread of the caller's. errno has no
 * meaning after any of these functions.
 */

#include <stdint.h>

#ifdef __cplusplus
#include <atomic>
typedef std::atomic<int32_t> CTHREAD_STATE; /* same size and layout in both languages */
extern "C" {
#else
#include <stdatomic.h>
typedef _Atomic(int32_t) CTHREAD_STATE;
#endif

/** Values of CTHREAD::state; behind each, what sets it. */
enum {
    CTHREAD_INITIALISED = 0, /* CTHREAD_Init */
    CTHREAD_STARTING = 1,    /* CTHREAD_Start */
    CTHREAD_RUNNING = 2,     /* the worker */
    CTHREAD_STOPPING = 3,    /* CTHREAD_Stop */
    CTHREAD_ENDED = 4,       /* the worker */
    CTHREAD_NOT_CREATED = 5  /* CTHREAD_Start */
};

typedef struct CTHREAD CTHREAD;

/** A step of the job. Negative: the start failed, or no further tick. */
typedef int32_t (*CTHREAD_STEP)(void* context);

struct CTHREAD {
    CTHREAD_STATE state;
    void* context;         /* the caller's, given to every step */
    CTHREAD_STEP on_start; /* may be null */
    CTHREAD_STEP on_tick;
    CTHREAD_STEP on_end;             /* may be null; its result is not used */
    int (*Release)(CTHREAD* thread); /* the same as Stop */
    int (*Start)(CTHREAD* thread);
    int (*Stop)(CTHREAD* thread);
};

/**
 * Fill in a record. Nothing runs yet.
 *
 * @return 0; -1 when `on_tick` is null, the record is filled in all the same but must not be started
 */
int CTHREAD_Init(CTHREAD* thread, void* context, CTHREAD_STEP on_start, CTHREAD_STEP on_tick,
                 CTHREAD_STEP on_end);

/**
 * Start the worker and wait, at least 100 ms and up to 3 s, until it is seen running.
 *
 * A worker whose start step or first tick fails is most likely not seen running: the result is -2 then. It is
 * left as it is.
 *
 * @return 0; -1 when the thread cannot be created or there is no tick step; -2 when the time is up. The
 *         failures print a line on standard output.
 */
int CTHREAD_Start(CTHREAD* thread);

/**
 * Ask the worker to stop and wait, at least 100 ms and up to 3 s, until it has ended. The tick that runs is
 * waited for. After a time-out the worker still ends by itself later.
 *
 * @return 0; -1 with a line on standard output when the thread was never created, never started, has not
 * ended in time, and also when it had ended by itself before
 */
int CTHREAD_Stop(CTHREAD* thread);

#ifdef __cplusplus
}
#endif

#endif
