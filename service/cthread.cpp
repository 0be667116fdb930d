// A job in a thread of its own.
#include "service/cthread.h"
#include "common/base/report.hpp"

#include <cstddef>
#include <pthread.h>
#include <unistd.h>

namespace {

using zep::report_reason;

constexpr int kPolls = 30;
constexpr useconds_t kPollUs = 100000;
constexpr int kTimeUp = -2;

// The compiler does not call it lock free on ARMv5, where a helper of the kernel makes the exchange.
static_assert(sizeof(CTHREAD_STATE) == 4);
static_assert(sizeof(void*) != 4 || sizeof(CTHREAD) == 32, "the device's other programs share the record");

void run_ticks(CTHREAD* thread)
{
    // A stop asked for during the start step stays asked for.
    int32_t starting = CTHREAD_STARTING;
    thread->state.compare_exchange_strong(starting, CTHREAD_RUNNING);
    while (thread->on_tick(thread->context) >= 0 && thread->state.load() == CTHREAD_RUNNING) {
    }
}

void* body(void* argument)
{
    auto* thread = static_cast<CTHREAD*>(argument);
    if (!thread->on_start || thread->on_start(thread->context) >= 0) run_ticks(thread);
    if (thread->on_end) thread->on_end(thread->context);
    thread->state.store(CTHREAD_ENDED); // the last access: the caller may drop the record now
    return nullptr;
}

bool create_detached(CTHREAD* thread)
{
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) return false;
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t id;
    int result = pthread_create(&id, &attributes, body, thread);
    pthread_attr_destroy(&attributes);
    return result == 0;
}

bool wait_for(const CTHREAD* thread, int32_t wanted)
{
    for (int i = 0; i < kPolls; ++i) {
        usleep(kPollUs);
        if (thread->state.load() == wanted) return true;
    }
    return false;
}

} // namespace

int CTHREAD_Init(CTHREAD* thread, void* context, CTHREAD_STEP on_start, CTHREAD_STEP on_tick,
                 CTHREAD_STEP on_end)
{
    thread->state.store(CTHREAD_INITIALISED);
    thread->context = context;
    thread->on_start = on_start;
    thread->on_tick = on_tick;
    thread->on_end = on_end;
    thread->Release = CTHREAD_Stop;
    thread->Start = CTHREAD_Start;
    thread->Stop = CTHREAD_Stop;
    return on_tick ? 0 : -1;
}

int CTHREAD_Start(CTHREAD* thread)
{
    thread->state.store(CTHREAD_STARTING);
    if (!thread->on_tick || !create_detached(thread)) {
        report_reason(__func__, "pthread_create failed");
        thread->state.store(CTHREAD_NOT_CREATED);
        return -1;
    }
    if (wait_for(thread, CTHREAD_RUNNING)) return 0;
    report_reason(__func__, "timeout");
    return kTimeUp;
}

int CTHREAD_Stop(CTHREAD* thread)
{
    if (thread->state.load() == CTHREAD_NOT_CREATED) {
        report_reason(__func__, "error");
        return -1;
    }
    // Also over the state of a worker that has ended by itself: callers take the -1 that follows as the sign
    // that the job had failed before it was stopped.
    thread->state.store(CTHREAD_STOPPING);
    if (wait_for(thread, CTHREAD_ENDED)) return 0;
    report_reason(__func__, "timeout");
    return -1;
}
