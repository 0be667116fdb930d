// The registry of descriptors: slots, waits and the trace.
#include "service/cfdevent.h"
#include "tests/support/socket_helpers.hpp"

#include <cerrno>
#include <cstring>

namespace {

using std::string;

constexpr char kFull[] = "[CFDEVENT_Add] rror, reason(_this->reg_count is full [129])\n";

struct Registry : testing::Test {
    CFDEVENT_S registry;
    SocketPair quiet, busy;

    Registry() { CFDEVENT_Init(&registry, 0); }
    int32_t add(int32_t fd) { return CFDEVENT_Add(&registry, fd); }
    int32_t wait(int32_t timeout_us)
    {
        errno = 0;
        return CFDEVENT_Wait(&registry, timeout_us);
    }
};

} // namespace

TEST_F(Registry, StaysPackedWhenOneInTheMiddleGoesAndTracesEveryChangeFoundOrNot)
{
    registry.verbose = 1;
    EXPECT_EQ(printed([&] {
                  EXPECT_EQ(add(5), 0);
                  EXPECT_EQ(add(12), 1);
                  EXPECT_EQ(add(7), 2);
                  for (int fd : {12, 12, -1}) EXPECT_EQ(CFDEVENT_Del(&registry, fd), 0);
                  EXPECT_EQ(add(9), 2);
              }),
              "ADD        5, CNT   1 : 5 \nADD       12, CNT   2 : 5 12 \nADD        7, CNT   3 : 5 12 7 \n"
              "DEL       12, CNT   2 : 5 7 \nDEL       12, CNT   2 : 5 7 \nDEL       -1, CNT   2 : 5 7 \n"
              "ADD        9, CNT   3 : 5 7 9 \n");
    EXPECT_EQ(registry.slots[3], -1);
}

TEST_F(Registry, FullIsSilentAtOneHundredAndTwentyEightButForTheTraceAndSaysSoAbove)
{
    string slots;
    for (int i = 0; i < CFDEVENT_SLOTS; ++i) {
        ASSERT_EQ(add(i), i);
        slots += std::to_string(i) + " ";
    }
    EXPECT_EQ(printed([&] { EXPECT_EQ(add(500), -1); }), "");
    registry.verbose = 1;
    EXPECT_EQ(printed([&] { EXPECT_EQ(add(12345678), -1); }), "ADD 12345678, CNT 128 : " + slots + "\n");
    registry.reg_count = 129;
    EXPECT_EQ(printed([&] { EXPECT_EQ(add(500), -1); }), kFull);
}

TEST_F(Registry, WaitTellsReadableTimeOutAndFailureApart)
{
    EXPECT_EQ(wait(-5), -3) << "nothing to wait on comes first";
    add(quiet.near.get());
    add(busy.near.get());
    EXPECT_EQ(wait(1000), -1);
    ASSERT_EQ(write(busy.far.get(), "x", 1), 1);
    EXPECT_EQ(wait(1'500'000), 0);
    EXPECT_EQ(CFDEVENT_IsSet(&registry, busy.near.get()), 1);
    EXPECT_EQ(CFDEVENT_IsSet(&registry, quiet.near.get()), 0);
    EXPECT_EQ(wait(-1), -2);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(CFDEVENT_IsSet(&registry, busy.near.get()), 0) << "nothing is left of an earlier wait";
    quiet.near.reset();
    EXPECT_EQ(wait(1000), -2);
    EXPECT_EQ(errno, EBADF);
}

// Set bits of such numbers would lie behind the set: in the count, and behind the record.
TEST_F(Registry, DescriptorsBeyondTheSetAreAFailedWaitAndTouchNothing)
{
    ASSERT_EQ(write(busy.far.get(), "x", 1), 1);
    struct {
        CFDEVENT_S registry;
        char behind[4096];
    } guarded;
    const string untouched(sizeof guarded.behind, '\x11');
    for (int fd : {CFDEVENT_SET_SIZE, 1999, 100'000, INT32_MAX}) {
        memcpy(guarded.behind, untouched.data(), sizeof guarded.behind);
        CFDEVENT_Init(&guarded.registry, 0);
        EXPECT_EQ(CFDEVENT_Add(&guarded.registry, busy.near.get()), 0);
        EXPECT_EQ(CFDEVENT_Add(&guarded.registry, fd), 1);
        EXPECT_EQ(CFDEVENT_Wait(&guarded.registry, 0), -2);
        EXPECT_EQ(errno, EBADF);
        EXPECT_EQ(guarded.registry.reg_count, 2);
        EXPECT_EQ(guarded.registry.slots[127], -1);
        EXPECT_EQ(CFDEVENT_IsSet(&guarded.registry, fd), 0);
        EXPECT_EQ(string(guarded.behind, sizeof guarded.behind), untouched);
        CFDEVENT_Del(&guarded.registry, fd);
        EXPECT_EQ(CFDEVENT_Wait(&guarded.registry, 0), 0) << "the others can be waited for again";
        EXPECT_EQ(guarded.registry.read_set[busy.near.get() / 8], 1 << busy.near.get() % 8);
    }
}

TEST_F(Registry, ANegativeDescriptorIsCountedButLeavesItsSlotEmpty)
{
    EXPECT_EQ(add(-1), 0);
    EXPECT_EQ(add(9), 0);
    EXPECT_EQ(registry.reg_count, 2);
    CFDEVENT_Del(&registry, 9);
    EXPECT_EQ(wait(1000), -1) << "one counted, none to wait on: the time passes";
    for (int i = 0; i < CFDEVENT_SLOTS; ++i) add(-5);
    EXPECT_EQ(printed([&] { EXPECT_EQ(add(1), -1); }), kFull);
}
