// The registry of descriptors: slots, waits and the record's layout.
#include "service/cfdevent.h"

#include "tests/support/socket_helpers.hpp"
#include "tests/support/run.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using std::string;

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
    EXPECT_EQ(printed([&] { EXPECT_EQ(CFDEVENT_Add(&registry, 500), -1); }), "");
    EXPECT_EQ(registry.reg_count, CFDEVENT_SLOTS);
    registry.reg_count = 129;
    EXPECT_EQ(printed([&] { EXPECT_EQ(CFDEVENT_Add(&registry, 500), -1); }),
              "[CFDEVENT_Add] rror, reason(_this->reg_count is full [129])\n");
}

TEST_F(Registry, TraceShowsEveryChangeFoundOrNot)
{
    registry.verbose = 1;
    EXPECT_EQ(printed([&] {
                  CFDEVENT_Add(&registry, 5);
                  CFDEVENT_Add(&registry, 12);
                  CFDEVENT_Del(&registry, 5);
                  CFDEVENT_Del(&registry, 5);
              }),
              "ADD        5, CNT   1 : 5 \n"
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

// Set bits of such numbers would lie behind the set: in the count, and behind the record.
TEST_F(Registry, DescriptorsBeyondTheSetAreAFailedWaitAndTouchNothing)
{
    struct {
        CFDEVENT_S registry;
        uint8_t behind[4096];
    } guarded;
    Pipe busy;
    ASSERT_EQ(write(busy.ends[1], "x", 1), 1);
    struct rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    int high = limit.rlim_cur > 2000 ? fcntl(busy.ends[0], F_DUPFD_CLOEXEC, 1999) : 1999;
    for (int fd : {CFDEVENT_SET_SIZE, high, 100'000, INT32_MAX}) {
        memset(&guarded, 0x11, sizeof guarded);
        CFDEVENT_Init(&guarded.registry, 0);
        EXPECT_EQ(CFDEVENT_Add(&guarded.registry, busy.ends[0]), 0);
        EXPECT_EQ(CFDEVENT_Add(&guarded.registry, fd), 1);
        EXPECT_EQ(CFDEVENT_Wait(&guarded.registry, 0), -2);
        EXPECT_EQ(errno, EBADF);
        EXPECT_EQ(guarded.registry.reg_count, 2);
        EXPECT_EQ(guarded.registry.slots[127], -1);
        EXPECT_EQ(CFDEVENT_IsSet(&guarded.registry, fd), 0);
        EXPECT_EQ(std::count(std::begin(guarded.behind), std::end(guarded.behind), 0x11), 4096);
        CFDEVENT_Del(&guarded.registry, fd);
        EXPECT_EQ(CFDEVENT_Wait(&guarded.registry, 0), 0) << "the others can be waited for again";
        EXPECT_EQ(guarded.registry.read_set[busy.ends[0] / 8], 1 << busy.ends[0] % 8);
    }
    if (high != 1999 || limit.rlim_cur > 2000) close(high);
}

TEST_F(Registry, ANegativeDescriptorIsCountedButLeavesItsSlotEmpty)
{
    EXPECT_EQ(CFDEVENT_Add(&registry, -1), 0);
    EXPECT_EQ(CFDEVENT_Add(&registry, 9), 0);
    EXPECT_EQ(registry.reg_count, 2);
    CFDEVENT_Del(&registry, 9);
    EXPECT_EQ(CFDEVENT_Wait(&registry, 1000), -1) << "one counted, none to wait on: the time passes";
    for (int i = 0; i < CFDEVENT_SLOTS; ++i) CFDEVENT_Add(&registry, -5);
    EXPECT_EQ(printed([&] { EXPECT_EQ(CFDEVENT_Add(&registry, 1), -1); }),
              "[CFDEVENT_Add] rror, reason(_this->reg_count is full [129])\n");
}

TEST_F(Registry, TheTraceOfAFullRegistryIsPrintedAllTheSame)
{
    registry.verbose = 1;
    string slots;
    std::fill(std::begin(registry.slots), std::end(registry.slots), 3);
    for (int i = 0; i < CFDEVENT_SLOTS; ++i) slots += "3 ";
    registry.reg_count = CFDEVENT_SLOTS;
    EXPECT_EQ(printed([&] { EXPECT_EQ(CFDEVENT_Add(&registry, 12345678), -1); }),
              "ADD 12345678, CNT 128 : " + slots + "\n");
}

TEST_F(Registry, AClosedDescriptorFailsTheWait)
{
    {
        Pipe gone;
        CFDEVENT_Add(&registry, gone.ends[0]);
    }
    EXPECT_EQ(CFDEVENT_Wait(&registry, 1000), -2);
    EXPECT_EQ(errno, EBADF);
}
