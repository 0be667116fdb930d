// What happens when: frames in camera time, readiness, waiting, what is lost or late.
#include "tests/camera/media/media.hpp"

#include <cmath>
#include <ctime>
#include <poll.h>
#include <thread>

namespace {

struct Time : Platform {};

constexpr int32_t kAi = MPP_ERROR(HI_ID_AI, 0), kAo = MPP_ERROR(HI_ID_AO, 0);

int64_t now_ms()
{
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return int64_t(t.tv_sec) * 1000 + t.tv_nsec / 1000000;
}

bool ready(int fd, short event, int timeout_ms)
{
    pollfd wanted = {fd, event, 0};
    return poll(&wanted, 1, timeout_ms) == 1 && wanted.revents & event;
}

uint64_t stamp_of(const AUDIO_FRAME_S& f) { return uint64_t(f.au32Pass[1]) << 32 | f.au32Pass[0]; }

} // namespace

TEST_F(Time, AFrameIsThereWhenItsLastSampleHasBeenTaken)
{
    open_input(attributes(8000, 800)); // 100 ms
    const int fd = HI_MPI_AI_GetFd(kDev, 0);
    AUDIO_FRAME_S frame = {}, second = {};
    EXPECT_EQ(HI_MPI_AI_GetFrame(kDev, 0, &frame, nullptr, 0), kAi | 0xE) << "nothing yet, and no waiting";
    EXPECT_FALSE(ready(fd, POLLIN, 0));
    const int64_t begin = now_ms();
    EXPECT_TRUE(ready(fd, POLLIN, 1000));
    EXPECT_NEAR(double(now_ms() - begin), 100, 20);
    EXPECT_EQ(HI_MPI_AI_GetFrame(kDev, 0, &frame, nullptr, 0), 0);
    EXPECT_EQ(HI_MPI_AI_GetFrame(kDev, 0, &second, nullptr, 1), 0);
    EXPECT_NEAR(double(now_ms() - begin), 200, 30) << "waited in the driver";
    EXPECT_EQ(stamp_of(second) - stamp_of(frame), 100000u);
    EXPECT_EQ(second.au32Pass[2], frame.au32Pass[2] + 1);
    EXPECT_EQ(HI_MPI_AI_ReleaseFrame(kDev, 0, &frame, nullptr), 0);
    EXPECT_EQ(HI_MPI_AI_ReleaseFrame(kDev, 0, &second, nullptr), 0);
}

// The driver keeps as many frames as the attributes say; those that find no room are lost, not the old ones.
TEST_F(Time, FramesThatNobodyFetchesAreLost)
{
    const Samples heard = ramp(8000 * 3);
    microphone(heard, 8000);
    AIO_ATTR_S attr = attributes();
    attr.u32FrmNum = 5;
    open_input(attr);
    usleep(1000000); // 50 frames
    Samples got = capture(5);
    EXPECT_EQ(got, part(heard, 0, 5 * 160));
    AUDIO_FRAME_S next = {};
    ASSERT_EQ(HI_MPI_AI_GetFrame(kDev, 0, &next, nullptr, 1), 0);
    EXPECT_GE(next.au32Pass[2], 50u);
    EXPECT_EQ(samples_of(next)[0], heard[next.au32Pass[2] * 160]) << "the place in the file is the time";
    EXPECT_EQ(HI_MPI_AI_ReleaseFrame(kDev, 0, &next, nullptr), 0);
}

// Frames that a program holds take room as well.
TEST_F(Time, AProgramThatHoldsAllBlocksGetsNoMore)
{
    AIO_ATTR_S attr = attributes();
    attr.u32FrmNum = 2;
    attr.u32ChnCnt = 1;
    open_input(attr);
    AUDIO_FRAME_S frames[2] = {}, more = {};
    for (auto& frame : frames) ASSERT_EQ(HI_MPI_AI_GetFrame(kDev, 0, &frame, nullptr, 1), 0);
    usleep(200000);
    EXPECT_EQ(HI_MPI_AI_GetFrame(kDev, 0, &more, nullptr, 0), kAi | 0xE);
    EXPECT_EQ(HI_MPI_AI_ReleaseFrame(kDev, 0, &frames[0], nullptr), 0);
    EXPECT_EQ(HI_MPI_AI_GetFrame(kDev, 0, &more, nullptr, 1), 0);
    EXPECT_EQ(HI_MPI_AI_ReleaseFrame(kDev, 0, &frames[1], nullptr), 0);
    EXPECT_EQ(HI_MPI_AI_ReleaseFrame(kDev, 0, &more, nullptr), 0);
}

TEST_F(Time, AFullOutputRefusesOrWaitsUntilAFrameHasPlayed)
{
    AIO_ATTR_S attr = attributes(8000, 800);
    attr.u32FrmNum = 2;
    open_output(attr);
    const Samples sound = ramp(800);
    const int fd = HI_MPI_AO_GetFd(kDev, 0);
    EXPECT_TRUE(ready(fd, POLLOUT, 0));
    const int64_t begin = now_ms();
    EXPECT_EQ(send(sound, 0), 0);
    EXPECT_EQ(send(sound, 0), 0);
    EXPECT_EQ(send(sound, 0), kAo | 0xF);
    EXPECT_EQ(speaker().samples.size(), 1600u) << "the refused frame is not there";
    EXPECT_TRUE(ready(fd, POLLOUT, 1000));
    EXPECT_NEAR(double(now_ms() - begin), 100, 20);
    EXPECT_EQ(send(sound), 0);
    EXPECT_EQ(send(sound), 0);
    EXPECT_NEAR(double(now_ms() - begin), 200, 30);
}

TEST_F(Time, PauseHoldsResumeGoesOnAndClearDropsWhatHasNotPlayed)
{
    AIO_ATTR_S attr = attributes(8000, 800);
    attr.u32FrmNum = 4;
    open_output(attr);
    const Samples sound = ramp(3200);
    for (size_t i = 0; i < 4; ++i) ASSERT_EQ(send(part(sound, i * 800, 800)), 0);
    usleep(150000);
    ASSERT_EQ(HI_MPI_AO_PauseChn(kDev, 0), 0);
    ASSERT_EQ(HI_MPI_AO_PauseChn(kDev, 0), 0);
    usleep(1000000);
    EXPECT_EQ(send(part(sound, 0, 800), 0), 0) << "room for what played before";
    EXPECT_EQ(send(part(sound, 0, 800), 0), kAo | 0xF) << "nothing plays";
    EXPECT_EQ(speaker().samples.size(), 4000u);
    ASSERT_EQ(HI_MPI_AO_ResumeChn(kDev, 0), 0);
    usleep(100000);
    ASSERT_EQ(HI_MPI_AO_ClearChnBuf(kDev, 0), 0);
    const Samples heard = speaker().samples;
    EXPECT_NEAR(double(heard.size()), 2000, 400) << "250 ms have played";
    EXPECT_EQ(heard, part(sound, 0, heard.size()));
    EXPECT_TRUE(ready(HI_MPI_AO_GetFd(kDev, 0), POLLOUT, 0));
}

// Blocked callers come back when the channel goes away under them.
TEST_F(Time, DisablingAChannelEndsTheWaitForIt)
{
    open_input(attributes(8000, 2000));
    AIO_ATTR_S attr = attributes(8000, 800);
    attr.u32FrmNum = 2;
    open_output(attr);
    const Samples sound = ramp(800);
    ASSERT_EQ(HI_MPI_AO_PauseChn(kDev, 0), 0);
    ASSERT_EQ(send(sound), 0);
    ASSERT_EQ(send(sound), 0);
    int32_t got = 0, sent = 0;
    std::thread reader([&] {
        AUDIO_FRAME_S frame = {};
        got = HI_MPI_AI_GetFrame(kDev, 1, &frame, nullptr, 1);
    });
    std::thread writer([&] { sent = send(sound); });
    usleep(300000);
    EXPECT_EQ(HI_MPI_AO_DisableChn(kDev, 0), 0);
    EXPECT_EQ(HI_MPI_AI_DisableChn(kDev, 1), 0);
    reader.join();
    writer.join();
    EXPECT_EQ(got, kAi | 9);
    EXPECT_EQ(sent, kAo | 9);
}

TEST_F(Time, StampsFollowTheBase)
{
    uint64_t first = 0, second = 0;
    ASSERT_EQ(HI_MPI_SYS_SetPtsBase(uint64_t(5) << 32), 0);
    ASSERT_EQ(HI_MPI_SYS_GetCurPts(&first), 0);
    usleep(500000);
    ASSERT_EQ(HI_MPI_SYS_GetCurPts(&second), 0);
    EXPECT_EQ(first >> 32, 5u);
    EXPECT_NEAR(double(second - first), 500000, 50000);
    ASSERT_EQ(HI_MPI_SYS_SyncPtsBase(1000), 0);
    ASSERT_EQ(HI_MPI_SYS_GetCurPts(&second), 0);
    EXPECT_LT(second, 1000000u);
}
