// Camera time: pauses cost nothing when nothing runs, order is kept, and work is waited for.
#include "tests/sim/preload/camera.hpp"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <poll.h>
#include <sys/select.h>
#include <sys/time.h>
#include <thread>

using namespace vcam;

namespace {

// Host time, past the interposers.
double host_seconds()
{
    std::ifstream in("/proc/uptime");
    double value = 0;
    in >> value;
    return value;
}

class Time : public test::CameraTest {
protected:
    double start = seconds(), host = host_seconds();
    // Camera time since the case began.
    [[nodiscard]] double passed() const { return seconds() - start; }
    // How long it takes on a loaded machine is open, but camera time ran ahead of the host's.
    void expect_skips() const { EXPECT_GT(passed(), host_seconds() - host + 1); }
};

// Those that have several names are in spelling.c.
TEST_F(Time, ASleepTakesCameraTimeOnly)
{
    ::sleep(100);
    EXPECT_NEAR(passed(), 100, 0.5);
    ::usleep(50'000'000);
    EXPECT_NEAR(passed(), 150, 0.5);
    timespec at{};
    ::clock_gettime(CLOCK_REALTIME, &at);
    at.tv_sec += 20;
    ::clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &at, nullptr);
    EXPECT_NEAR(passed(), 170, 0.5);
    expect_skips();
}

// HZ=100: a program that polls with usleep(0) sees time go on.
TEST_F(Time, TheShortestSleepIsOneTick)
{
    for (int i = 0; i < 100; ++i) ::usleep(0);
    EXPECT_GE(passed(), 1.0);
    EXPECT_LT(passed(), 2.0);
}

TEST_F(Time, SleepersWakeInTheOrderOfTheirTimes)
{
    std::mutex lock;
    std::vector<int> order;
    std::vector<std::thread> threads;
    for (int s : {7, 1, 30, 4, 300})
        threads.emplace_back([&, s] {
            ::sleep(unsigned(s));
            const std::lock_guard hold(lock);
            order.push_back(s);
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(order, (std::vector<int>{1, 4, 7, 30, 300}));
    EXPECT_NEAR(passed(), 300, 1);
    expect_skips();
}

// A time limit must not run out while the one waited for is at work.
TEST_F(Time, ARunningThreadHoldsTimeBack)
{
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    std::thread worker([&] {
        const double until = host_seconds() + 0.3;
        while (host_seconds() < until) {
        }
        EXPECT_EQ(::write(pipe[1], "x", 1), 1);
    });
    pollfd fd = {pipe[0], POLLIN, 0};
    EXPECT_EQ(::poll(&fd, 1, 3000), 1);
    EXPECT_LT(passed(), 2.5);
    worker.join();
    // Nobody writes any more: the limit passes, and costs the grace for outside peers only.
    char byte;
    ASSERT_EQ(::read(pipe[0], &byte, 1), 1);
    fd_set in;
    FD_ZERO(&in);
    FD_SET(pipe[0], &in);
    timeval limit = {60, 0};
    EXPECT_EQ(::select(pipe[0] + 1, &in, nullptr, nullptr, &limit), 0);
    EXPECT_FALSE(FD_ISSET(pipe[0], &in));
    EXPECT_NEAR(passed(), 60, 3);
    ::close(pipe[0]);
    ::close(pipe[1]);
    expect_skips();
}

// A child at work counts as well, and its own pauses pass with the rest.
TEST_F(Time, ChildrenShareTheClock)
{
    std::atomic<bool> over = false;
    std::thread keeper([&] {
        while (!over) ::sleep(1);
    });
    ASSERT_EQ(run("sh -c 'sleep 50; sleep 25'"), 0);
    over = true;
    keeper.join();
    EXPECT_NEAR(passed(), 76, 3);
    expect_skips();
}

// Each pause of the worker ends in front of a mutex that the waiting one may hold just then.
TEST_F(Time, ConditionsKeepTheirLimitAndHearTheirSignal)
{
    std::mutex lock;
    std::condition_variable condition;
    int rounds = 0;
    std::unique_lock hold(lock);
    EXPECT_FALSE(condition.wait_for(hold, std::chrono::seconds(90), [&] { return rounds != 0; }));
    EXPECT_NEAR(passed(), 90, 1);
    std::thread worker([&] {
        for (int i = 0; i < 200; ++i) {
            ::usleep(500000);
            const std::lock_guard inner(lock);
            ++rounds;
            condition.notify_one();
        }
    });
    EXPECT_TRUE(condition.wait_for(hold, std::chrono::seconds(5000), [&] { return rounds == 200; }));
    EXPECT_NEAR(passed(), 190, 5);
    hold.unlock();
    worker.join();
    expect_skips();
}

TEST_F(Time, ASignalEndsASleepWithTheRestOfIt)
{
    struct sigaction action {};
    action.sa_handler = [](int) {};
    ::sigaction(SIGUSR1, &action, nullptr);
    const pthread_t sleeper = ::pthread_self();
    std::thread waker([&] {
        ::sleep(10);
        ::pthread_kill(sleeper, SIGUSR1);
    });
    timespec rest{};
    const timespec length = {100, 0};
    EXPECT_EQ(::nanosleep(&length, &rest), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_NEAR(double(rest.tv_sec), 90, 2);
    waker.join();
}

TEST_F(Time, SettingTheCalendarMovesTheCamerasAndNothingElse)
{
    const timeval wanted = {1348028640, 250000}; // 2012-09-19 04:24:00.25
    ASSERT_EQ(::settimeofday(&wanted, nullptr), 0);
    ::sleep(60);
    timeval now{};
    ::gettimeofday(&now, nullptr);
    EXPECT_NEAR(double(now.tv_sec), 1348028700.0, 1);
    EXPECT_NEAR(double(::time(nullptr)), 1348028700.0, 1);
    EXPECT_NEAR(passed(), 60, 0.5); // the monotonic clock did not jump
    EXPECT_NE(journal().find(" settimeofday 1348028640.250000\n"), std::string::npos);
    ASSERT_EQ(run("sh -c 'test $(date -u +%Y) = 2012'"), 0); // every program of the camera sees it
    vcamsim_stop();
    EXPECT_GT(::time(nullptr), 1700000000); // the machine's own
}

} // namespace
