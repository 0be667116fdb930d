// Worker threads: steps, starts and stops.
#include "service/cthread.h"
#include "tests/support/socket_helpers.hpp"

#include <atomic>
#include <thread>

namespace {

using std::string;
using namespace std::chrono_literals;

struct Worker : testing::Test {
    std::atomic<int> starts{0}, ticks{0}, ends{0};
    std::atomic<int> start_result{0}, tick_result{0};
    std::atomic<bool> starting{false}, hold{false}; // keep the start step and the tick from their ends
    CTHREAD thread;

    static int32_t start(void* context)
    {
        auto& job = *static_cast<Worker*>(context);
        do std::this_thread::sleep_for(5ms);
        while (job.starting);
        ++job.starts;
        return job.start_result;
    }
    static int32_t tick(void* context)
    {
        auto& job = *static_cast<Worker*>(context);
        do std::this_thread::sleep_for(5ms);
        while (job.hold);
        ++job.ticks;
        return job.tick_result;
    }
    static int32_t end(void* context)
    {
        ++static_cast<Worker*>(context)->ends;
        return -1; // of no interest
    }
    void SetUp() override { ASSERT_EQ(CTHREAD_Init(&thread, this, start, tick, end), 0); }

    // What an operation prints. It has to give `expected`, and to take `least` seconds or more.
    string timed(int expected, int (*operation)(CTHREAD*), double least)
    {
        string text;
        EXPECT_GE(seconds_of([&] { text = printed([&] { EXPECT_EQ(operation(&thread), expected); }); }),
                  least);
        return text;
    }
    void wait_for_state(int32_t wanted)
    {
        while (thread.state != wanted) std::this_thread::sleep_for(10ms);
    }
};

const string kStopTimeout = "[CTHREAD_Stop] error, reason(timeout)\n";

} // namespace

TEST_F(Worker, TicksFromStartToStop)
{
    EXPECT_EQ(thread.state, CTHREAD_INITIALISED);
    EXPECT_EQ(timed(0, thread.Start, 0.1), "");
    EXPECT_EQ(thread.state, CTHREAD_RUNNING);
    EXPECT_EQ(starts, 1);
    EXPECT_EQ(timed(0, thread.Release, 0.1), "");
    EXPECT_EQ(thread.state, CTHREAD_ENDED);
    const int ticked = ticks;
    EXPECT_GT(ticked, 1);
    EXPECT_EQ(ends, 1);
    EXPECT_EQ(timed(-1, thread.Stop, 2.9), kStopTimeout) << "it has ended already";
    EXPECT_EQ(ticks, ticked);
    EXPECT_EQ(thread.state, CTHREAD_STOPPING);
}

TEST_F(Worker, AFailingStepEndsIt)
{
    start_result = -1;
    EXPECT_EQ(timed(-2, thread.Start, 2.9), "[CTHREAD_Start] error, reason(timeout)\n");
    EXPECT_EQ(thread.state, CTHREAD_ENDED);
    EXPECT_EQ(ticks, 0);
    EXPECT_EQ(ends, 1);
    start_result = 0;
    EXPECT_EQ(timed(0, thread.Start, 0.1), "");
    tick_result = -1;
    wait_for_state(CTHREAD_ENDED);
    EXPECT_EQ(ends, 2);
}

TEST_F(Worker, ATickLongerThanTheLimitIsNotWaitedFor)
{
    hold = true;
    EXPECT_EQ(timed(0, thread.Start, 0.1), "");
    EXPECT_EQ(timed(-1, thread.Stop, 2.9), kStopTimeout);
    hold = false;
    wait_for_state(CTHREAD_ENDED); // by itself
    EXPECT_EQ(ticks, 1);
}

TEST_F(Worker, AStopDuringTheStartStepIsNotLostAndOneTickRuns)
{
    starting = true;
    std::thread starter([&] { CTHREAD_Start(&thread); });
    wait_for_state(CTHREAD_STARTING);
    thread.state = CTHREAD_STOPPING;
    starting = false;
    wait_for_state(CTHREAD_ENDED);
    EXPECT_EQ(ticks, 1);
    EXPECT_EQ(ends, 1);
    thread.state = CTHREAD_RUNNING; // lets the starter go
    starter.join();
}

TEST_F(Worker, OneThatNeverRanCannotBeStoppedAndWithoutATickNotStarted)
{
    EXPECT_EQ(timed(-1, thread.Stop, 2.9), kStopTimeout);
    EXPECT_EQ(CTHREAD_Init(&thread, nullptr, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(timed(-1, thread.Start, 0), "[CTHREAD_Start] error, reason(pthread_create failed)\n");
    EXPECT_EQ(thread.state, CTHREAD_NOT_CREATED);
    EXPECT_EQ(timed(-1, thread.Stop, 0), "[CTHREAD_Stop] error, reason(error)\n");
}
