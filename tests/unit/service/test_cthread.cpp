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
    int last_tick = 0; // the tick that fails; 0: none
    std::chrono::milliseconds start_time = 0ms, tick_time = 5ms;
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
    std::this_thread::sleep_for(job.tick_time);
    return ++job.ticks == job.last_tick ? -1 : 0;
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

    string timed(int expected, int (*operation)(CTHREAD*), double least, double most)
    {
        auto begin = std::chrono::steady_clock::now();
        string text = printed([&] { EXPECT_EQ(operation(&thread), expected); });
        double taken = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        EXPECT_GE(taken, least);
        EXPECT_LT(taken, most);
        return text;
    }
    void wait_for_state(int32_t wanted)
    {
        for (int i = 0; i < 1000 && thread.state != wanted; ++i) std::this_thread::sleep_for(10ms);
        EXPECT_EQ(thread.state, wanted);
    }
};

const string kStopTimeout = "[CTHREAD_Stop] error, reason(timeout)\n";

} // namespace

TEST_F(Worker, TicksFromStartToStop)
{
    EXPECT_EQ(thread.state, CTHREAD_INITIALISED);
    EXPECT_EQ(timed(0, thread.Start, 0.1, 2), "");
    EXPECT_EQ(thread.state, CTHREAD_RUNNING);
    EXPECT_EQ(job.starts, 1);
    EXPECT_EQ(timed(0, thread.Release, 0.1, 2), "");
    EXPECT_EQ(thread.state, CTHREAD_ENDED);
    EXPECT_GT(job.ticks, 1);
    EXPECT_EQ(job.ends, 1);
    int ticks = job.ticks;
    EXPECT_EQ(timed(-1, thread.Stop, 2.9, 5), kStopTimeout) << "it has ended already";
    EXPECT_EQ(job.ticks, ticks);
    EXPECT_EQ(thread.state, CTHREAD_STOPPING);
}

TEST_F(Worker, AFailingStartStepEndsItAndTheStarterWaitsInVain)
{
    job.start_result = -1;
    EXPECT_EQ(timed(-2, thread.Start, 2.9, 5), "[CTHREAD_Start] error, reason(timeout)\n");
    EXPECT_EQ(thread.state, CTHREAD_ENDED);
    EXPECT_EQ(job.ticks, 0);
    EXPECT_EQ(job.ends, 1);
}

TEST_F(Worker, AFailingTickEndsIt)
{
    job.last_tick = 60; // some 300 ms: seen running first
    EXPECT_EQ(timed(0, thread.Start, 0.1, 2), "");
    wait_for_state(CTHREAD_ENDED);
    EXPECT_EQ(job.ticks, 60);
    EXPECT_EQ(job.ends, 1);
}

TEST_F(Worker, ATickLongerThanTheLimitIsNotWaitedFor)
{
    job.tick_time = 3500ms;
    EXPECT_EQ(timed(0, thread.Start, 0.1, 2), "");
    EXPECT_EQ(timed(-1, thread.Stop, 2.9, 3.4), kStopTimeout);
    wait_for_state(CTHREAD_ENDED); // by itself
    EXPECT_EQ(job.ticks, 1);
}

TEST_F(Worker, AStopDuringTheStartStepIsNotLostAndOneTickRuns)
{
    job.start_time = 500ms;
    std::thread starter([&] { CTHREAD_Start(&thread); });
    wait_for_state(CTHREAD_STARTING);
    EXPECT_EQ(timed(0, thread.Stop, 0.1, 3), "");
    EXPECT_EQ(job.ticks, 1);
    EXPECT_EQ(job.ends, 1);
    thread.state = CTHREAD_RUNNING; // lets the starter go
    starter.join();
}

TEST_F(Worker, OneThatNeverRanCannotBeStoppedAndWithoutATickNotStarted)
{
    EXPECT_EQ(timed(-1, thread.Stop, 2.9, 5), kStopTimeout);
    EXPECT_EQ(CTHREAD_Init(&thread, nullptr, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(timed(-1, thread.Start, 0, 1), "[CTHREAD_Start] error, reason(pthread_create failed)\n");
    EXPECT_EQ(thread.state, CTHREAD_NOT_CREATED);
    EXPECT_EQ(timed(-1, thread.Stop, 0, 1), "[CTHREAD_Stop] error, reason(error)\n");
}
