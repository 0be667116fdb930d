// What happens when: frames in camera time, readiness, waiting, what is lost or late. Camera time goes on with the
// host's, so that a busy host makes things later than they need be: a time has a lower bound only.
#include "tests/camera/media/media.hpp"

#include <poll.h>
#include <thread>

namespace {

using Time = Platform;

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

TEST_F(Time, AFrameIsThereWhenItsLastSampleHasBeenTaken)
{
    const int64_t begin = now_ms();
    open_input(attributes(8000, 800)); // 100 ms
    const int fd = HI_MPI_AI_GetFd(kDev, 0);
    AUDIO_FRAME_S frame = {}, second = {};
    const bool early = HI_MPI_AI_GetFrame(kDev, 0, &frame, nullptr, 0) != (kAi | 0xE) || ready(fd, POLLIN, 0);
    EXPECT_TRUE(!early || now_ms() - begin >= 100) << "nothing yet, and no waiting";
    EXPECT_EQ(release(frame), stamp_of(frame) ? 0 : kAi | 3);
    EXPECT_TRUE(ready(fd, POLLIN, -1));
    EXPECT_GE(now_ms() - begin, 99);
    EXPECT_EQ(HI_MPI_AI_GetFrame(kDev, 0, &frame, nullptr, 0), 0);
    EXPECT_EQ(get(second), 0);
    EXPECT_GE(now_ms() - begin, 199) << "waited in the driver";
    EXPECT_EQ(stamp_of(second) - stamp_of(frame), 100000u);
    EXPECT_EQ(second.au32Pass[2], frame.au32Pass[2] + 1);
    EXPECT_EQ(release(frame), 0);
    EXPECT_EQ(release(second), 0);
}

// The driver keeps as many frames as the attributes say; those that find no room are lost, not the old ones.
TEST_F(Time, FramesThatNobodyFetchesAreLost)
{
    const Samples heard = ramp(8000 * 3);
    microphone(heard, 8000);
    open_input(attributes(8000, 160, AUDIO_SOUND_MONO, 5));
    usleep(1000000); // 50 frames
    EXPECT_EQ(capture(5), part(heard, 0, 5 * 160));
    AUDIO_FRAME_S next = {};
    ASSERT_EQ(get(next), 0);
    EXPECT_GE(next.au32Pass[2], 50u);
    EXPECT_EQ(samples_of(next), part(heard, next.au32Pass[2] * 160, 160))
        << "the place in the file is the time";
    EXPECT_EQ(release(next), 0);
}

// Frames that a program holds take room as well.
TEST_F(Time, AProgramThatHoldsAllBlocksGetsNoMore)
{
    AIO_ATTR_S attr = attributes(8000, 160, AUDIO_SOUND_MONO, 2);
    attr.u32ChnCnt = 1;
    open_input(attr);
    AUDIO_FRAME_S frames[2] = {}, more = {};
    for (auto& frame : frames) ASSERT_EQ(get(frame), 0);
    usleep(200000);
    EXPECT_EQ(HI_MPI_AI_GetFrame(kDev, 0, &more, nullptr, 0), kAi | 0xE);
    EXPECT_EQ(release(frames[0]), 0);
    EXPECT_EQ(get(more), 0);
    EXPECT_EQ(release(frames[1]), 0);
    EXPECT_EQ(release(more), 0);
}

TEST_F(Time, AFullOutputRefusesOrWaitsPauseHoldsAndClearDropsWhatHasNotPlayed)
{
    open_output(attributes(8000, 800, AUDIO_SOUND_MONO, 4)); // frames of 100 ms
    const Samples sound = ramp(4800);
    const int fd = HI_MPI_AO_GetFd(kDev, 0);
    const auto expect_full = [&] {
        EXPECT_EQ(send(part(sound, 0, 800), 0), kAo | 0xF);
        EXPECT_FALSE(ready(fd, POLLOUT, 0));
        EXPECT_EQ(speaker().samples.size(), 3200u) << "the refused frame is not there";
    };
    EXPECT_TRUE(ready(fd, POLLOUT, 0));
    // Nothing plays while the queue is filled, however long that takes, nor later.
    for (int twice = 0; twice < 2; ++twice) ASSERT_EQ(HI_MPI_AO_PauseChn(kDev, 0), 0);
    for (size_t at = 0; at < 3200; at += 800) EXPECT_EQ(send(part(sound, at, 800), 0), 0);
    expect_full();
    usleep(1000000);
    expect_full();
    const int64_t begin = now_ms();
    ASSERT_EQ(HI_MPI_AO_ResumeChn(kDev, 0), 0);
    EXPECT_TRUE(ready(fd, POLLOUT, -1));
    EXPECT_GE(now_ms() - begin, 99);
    for (size_t at = 3200; at < 4800; at += 800) EXPECT_EQ(send(part(sound, at, 800)), 0);
    EXPECT_GE(now_ms() - begin, 199) << "waited in the driver";
    usleep(50000);
    ASSERT_EQ(HI_MPI_AO_PauseChn(kDev, 0), 0);
    const int64_t paused = now_ms();
    usleep(1000000);
    ASSERT_EQ(HI_MPI_AO_ClearChnBuf(kDev, 0), 0);
    const Samples heard = speaker().samples;
    EXPECT_EQ(heard, part(sound, 0, heard.size()));
    EXPECT_GE(heard.size(), 8u * 248) << "250 ms have played at least";
    EXPECT_LE(heard.size(), 8u * size_t(paused - begin + 1)) << "and not more than time went by";
    EXPECT_TRUE(ready(fd, POLLOUT, 0));
}

// Blocked callers come back when the channel goes away under them.
TEST_F(Time, DisablingAChannelEndsTheWaitForIt)
{
    open_input(attributes(8000, 2000));
    open_output(attributes(8000, 800, AUDIO_SOUND_MONO, 2));
    const Samples sound = ramp(800);
    ASSERT_EQ(HI_MPI_AO_PauseChn(kDev, 0), 0);
    ASSERT_EQ(send(sound), 0);
    ASSERT_EQ(send(sound), 0);
    int32_t got = 0, sent = 0;
    std::thread reader([&] {
        AUDIO_FRAME_S frame = {};
        while ((got = get(frame)) == 0) release(frame);
    });
    std::thread writer([&] { sent = send(sound); });
    usleep(300000);
    EXPECT_EQ(HI_MPI_AO_DisableChn(kDev, 0), 0);
    EXPECT_EQ(HI_MPI_AI_DisableChn(kDev, 0), 0);
    reader.join();
    writer.join();
    EXPECT_EQ(got, kAi | 9);
    EXPECT_EQ(sent, kAo | 9);
}

TEST_F(Time, StampsFollowTheBase)
{
    uint64_t first = 0, second = 0;
    ASSERT_EQ(HI_MPI_SYS_SetPtsBase(uint64_t(5) << 32), 0);
    const int64_t begin = now_ms();
    ASSERT_EQ(HI_MPI_SYS_GetCurPts(&first), 0);
    usleep(500000);
    ASSERT_EQ(HI_MPI_SYS_GetCurPts(&second), 0);
    EXPECT_EQ(first >> 32, 5u);
    EXPECT_GE(second - first, 500000u);
    EXPECT_LE(second - first, uint64_t(now_ms() - begin + 1) * 1000);
    ASSERT_EQ(HI_MPI_SYS_SyncPtsBase(1000), 0);
    ASSERT_EQ(HI_MPI_SYS_GetCurPts(&second), 0);
    EXPECT_LT(second, uint64_t(5) << 32);
}

} // namespace
