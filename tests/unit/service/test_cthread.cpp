// Worker threads: steps, starts and stops.
#include "service/cthread.h"
#include "tests/support/run.hpp"

#include <chrono>
#include <gtest/gtest.h>
#include <thread>

namespace {

using std::string;
using namespace std::chrono_literals;

struct Job {
    std::atomic<int> starts{0}, ticks{0}, ends{0};
    int start_result = 0;
    std::chrono::milliseconds start_time = 0ms;
    std::atomic<bool> hold{false}, fail{false}; // keeps the tick from its end; what the tick answers
};

int32_t start(void* context)
{
    auto& job = *static_cast<Job*>(context);
    std::this_thread::sleep_for(job.start_time);
    ++job.starts;
    return job.start_result;
}

int32_t tick(void* context)
{
    auto& job = *static_cast<Job*>(context);
    do std::this_thread::sleep_for(5ms);
    while (job.hold);
    ++job.ticks;
    return job.fail ? -1 : 0;
}

int32_t end(void* context)
{
    ++static_cast<Job*>(context)->ends;
    return -1; // of no interest
}

struct Worker : testing::Test {
    Job job;
    CTHREAD thread;

    void SetUp() override { ASSERT_EQ(CTHREAD_Init(&thread, &job, start, tick, end), 0); }

    string timed(int expected, int (*operation)(CTHREAD*), double least)
    {
        auto begin = std::chrono::steady_clock::now();
        string text = printed([&] { EXPECT_EQ(operation(&thread), expected); });
        double taken = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        EXPECT_GE(taken, least);
        return text;
    }
    void wait_for_state(int32_t wanted)
    {
        for (int i = 0; i < 6000 && thread.state != wanted; ++i) std::this_thread::sleep_for(10ms);
        EXPECT_EQ(thread.state, wanted);
    }
};

const string kStopTimeout = "[CTHREAD_Stop] error, reason(timeout)\n";

} // namespace

TEST_F(Worker, TicksFromStartToStop)
{
    EXPECT_EQ(thread.state, CTHREAD_INITIALISED);
    EXPECT_EQ(timed(0, thread.Start, 0.1), "");
    EXPECT_EQ(thread.state, CTHREAD_RUNNING);
    EXPECT_EQ(job.starts, 1);
    EXPECT_EQ(timed(0, thread.Release, 0.1), "");
    EXPECT_EQ(thread.state, CTHREAD_ENDED);
    EXPECT_GT(job.ticks, 1);
    EXPECT_EQ(job.ends, 1);
    int ticks = job.ticks;
    EXPECT_EQ(timed(-1, thread.Stop, 2.9), kStopTimeout) << "it has ended already";
    EXPECT_EQ(job.ticks, ticks);
    EXPECT_EQ(thread.state, CTHREAD_STOPPING);
}

TEST_F(Worker, AFailingStartStepEndsItAndTheStarterWaitsInVain)
{
    job.start_result = -1;
    EXPECT_EQ(timed(-2, thread.Start, 2.9), "[CTHREAD_Start] error, reason(timeout)\n");
    EXPECT_EQ(thread.state, CTHREAD_ENDED);
    EXPECT_EQ(job.ticks, 0);
    EXPECT_EQ(job.ends, 1);
}

TEST_F(Worker, AFailingTickEndsIt)
{
    EXPECT_EQ(timed(0, thread.Start, 0.1), "");
    job.fail = true;
    wait_for_state(CTHREAD_ENDED);
    EXPECT_EQ(job.ends, 1);
}

TEST_F(Worker, ATickLongerThanTheLimitIsNotWaitedFor)
{
    job.hold = true;
    EXPECT_EQ(timed(0, thread.Start, 0.1), "");
    EXPECT_EQ(timed(-1, thread.Stop, 2.9), kStopTimeout);
    job.hold = false;
    wait_for_state(CTHREAD_ENDED); // by itself
    EXPECT_EQ(job.ticks, 1);
}

TEST_F(Worker, AStopDuringTheStartStepIsNotLostAndOneTickRuns)
{
    job.start_time = 500ms;
    std::thread starter([&] { CTHREAD_Start(&thread); });
    wait_for_state(CTHREAD_STARTING);
    EXPECT_EQ(timed(0, thread.Stop, 0.1), "");
    EXPECT_EQ(job.ticks, 1);
    EXPECT_EQ(job.ends, 1);
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
