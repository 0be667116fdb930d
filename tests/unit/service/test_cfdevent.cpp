#include "service/cfdevent.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace {

struct Pipe {
    int ends[2];
    Pipe() { EXPECT_EQ(pipe(ends), 0); }
    ~Pipe()
    {
        close(ends[0]);
        close(ends[1]);
    }
};

struct Registry : testing::Test {
    CFDEVENT_S registry;
    Registry() { CFDEVENT_Init(&registry, 0); }
};

} // namespace

TEST_F(Registry, StaysPackedWhenOneInTheMiddleGoes)
{
    EXPECT_EQ(CFDEVENT_Add(&registry, 5), 0);
    EXPECT_EQ(CFDEVENT_Add(&registry, 6), 1);
    EXPECT_EQ(CFDEVENT_Add(&registry, 7), 2);
    EXPECT_EQ(CFDEVENT_Del(&registry, 6), 0);
    EXPECT_EQ(registry.slots[0], 5);
    EXPECT_EQ(registry.slots[1], 7);
    EXPECT_EQ(registry.slots[2], -1);
    EXPECT_EQ(CFDEVENT_Add(&registry, 9), 2);
    EXPECT_EQ(CFDEVENT_Del(&registry, 1234), 0);
    EXPECT_EQ(CFDEVENT_Del(&registry, -1), 0);
    EXPECT_EQ(registry.reg_count, 3);
}

TEST_F(Registry, FullIsSilentAtOneHundredAndTwentyEightAndSaysSoAbove)
{
    for (int i = 0; i < CFDEVENT_SLOTS; ++i) ASSERT_EQ(CFDEVENT_Add(&registry, i), i);
    testing::internal::CaptureStdout();
    EXPECT_EQ(CFDEVENT_Add(&registry, 500), -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(registry.reg_count, CFDEVENT_SLOTS);
    registry.reg_count = 129;
    testing::internal::CaptureStdout();
    EXPECT_EQ(CFDEVENT_Add(&registry, 500), -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "[CFDEVENT_Add] rror, reason(_this->reg_count is full [129])\n");
}

TEST_F(Registry, TraceShowsEveryChangeFoundOrNot)
{
    registry.verbose = 1;
    testing::internal::CaptureStdout();
    CFDEVENT_Add(&registry, 5);
    CFDEVENT_Add(&registry, 12);
    CFDEVENT_Del(&registry, 5);
    CFDEVENT_Del(&registry, 5);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "ADD        5, CNT   1 : 5 \n"
                                                      "ADD       12, CNT   2 : 5 12 \n"
                                                      "DEL        5, CNT   1 : 12 \n"
                                                      "DEL        5, CNT   1 : 12 \n");
}

TEST_F(Registry, WaitTellsReadableTimeOutAndFailureApart)
{
    EXPECT_EQ(CFDEVENT_Wait(&registry, -5), -3) << "nothing to wait on comes first";
    Pipe quiet;
    Pipe busy;
    CFDEVENT_Add(&registry, quiet.ends[0]);
    CFDEVENT_Add(&registry, busy.ends[0]);
    EXPECT_EQ(CFDEVENT_Wait(&registry, 1000), -1);
    ASSERT_EQ(write(busy.ends[1], "x", 1), 1);
    EXPECT_EQ(CFDEVENT_Wait(&registry, 1'500'000), 0);
    EXPECT_EQ(CFDEVENT_IsSet(&registry, busy.ends[0]), 1);
    EXPECT_EQ(CFDEVENT_IsSet(&registry, quiet.ends[0]), 0);
    EXPECT_EQ(CFDEVENT_Wait(&registry, -1), -2);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(CFDEVENT_IsSet(&registry, busy.ends[0]), 0) << "nothing is left of an earlier wait";
}

TEST_F(Registry, DescriptorsBeyondTheSetAreAFailedWait)
{
    CFDEVENT_Add(&registry, CFDEVENT_SET_SIZE);
    EXPECT_EQ(CFDEVENT_Wait(&registry, 0), -2);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(registry.reg_count, 1);
}
