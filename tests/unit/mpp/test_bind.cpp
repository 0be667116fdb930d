// The binder: registrations, bindings, and how data walks them.
#include "mkp/bind/sys_bind.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <functional>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr int32_t sys(uint32_t number) { return MPP_ERROR(HI_ID_SYS, number); }

struct Received {
    int32_t device, channel, type;
    void* data;
    bool operator==(const Received&) const = default;
};
std::vector<Received> received;
int32_t answer = 0;

int32_t receive(int32_t device, int32_t channel, int32_t type, void* data)
{
    received.push_back({device, channel, type, data});
    return answer;
}
int32_t count_only(int32_t, int32_t, int32_t, void*) { return 0; }

std::string stderr_of(const std::function<void()>& f)
{
    testing::internal::CaptureStderr();
    f();
    return testing::internal::GetCapturedStderr();
}

class Bind : public testing::Test {
protected:
    Bind()
    {
        received.clear();
        answer = 0;
        SYS_BIND_Init();
        const SYS_BIND_SENDER_S sender = {HI_ID_ADEC, 1, 32};
        const SYS_BIND_RECEIVER_S receiver = {HI_ID_AO, 3, 16, receive};
        EXPECT_EQ(SYS_BIND_RegisterSender(&sender), 0);
        EXPECT_EQ(SYS_BIND_RegisterReceiver(&receiver), 0);
    }
    ~Bind() override { SYS_BIND_DeInit(); }

    static int32_t bind(int32_t from, MPP_CHN_S to)
    {
        const MPP_CHN_S source = {HI_ID_ADEC, 0, from};
        return SYS_Bind(&source, &to);
    }
    static int32_t unbind(MPP_CHN_S to) { return SYS_UnBind(&to); }
    static MPP_CHN_S ao(int32_t device, int32_t channel) { return {HI_ID_AO, device, channel}; }
    static int32_t send(int32_t channel, void* data, int32_t type = MPP_DATA_AUDIO_FRAME)
    {
        return SYS_BIND_SendData(HI_ID_ADEC, 0, channel, type, data);
    }
    int item = 0;
};

TEST_F(Bind, DataReachesEveryReceiverInTheOrderOfBinding)
{
    EXPECT_EQ(send(0, &item), 0) << "nobody bound";
    for (int32_t channel : {4, 0, 9}) EXPECT_EQ(bind(7, ao(0, channel)), 0);
    EXPECT_EQ(bind(8, ao(2, 11)), 0);
    EXPECT_EQ(send(7, &item), 0);
    std::vector<Received> expected = {{0, 4, 2, &item}, {0, 0, 2, &item}, {0, 9, 2, &item}};
    EXPECT_EQ(received, expected);
    received.clear();
    EXPECT_EQ(unbind(ao(0, 0)), 0);
    answer = -1;
    EXPECT_EQ(send(7, &item, 0), 0) << "what a receiver returns is its own affair";
    EXPECT_EQ(received, (std::vector<Received>{{0, 4, 0, &item}, {0, 9, 0, &item}}));
    const SYS_BIND_RECEIVER_S willing = {5, 1, 4, count_only};
    EXPECT_EQ(SYS_BIND_RegisterReceiver(&willing), 0);
    uint32_t taken = 99;
    const auto counted = [&](int32_t channel) {
        return SYS_BIND_SendDataCounted(HI_ID_ADEC, 0, channel, 2, &item, &taken);
    };
    EXPECT_EQ(std::pair(counted(7), taken), std::pair(0, 0u)) << "both refuse";
    EXPECT_EQ(bind(7, {5, 0, 1}), 0);
    EXPECT_EQ(std::pair(counted(7), taken), std::pair(0, 1u));
    EXPECT_EQ(std::pair(counted(0), taken), std::pair(0, 0u)) << "nothing is bound";
    EXPECT_EQ(SYS_BIND_SendDataCounted(HI_ID_ADEC, 0, 7, 2, &item, nullptr), sys(MPP_ERR_NULL));
    // A sender with one device is not asked for it.
    EXPECT_EQ(SYS_BIND_SendData(HI_ID_ADEC, 99, 8, 2, &item), 0);
    EXPECT_EQ(received.back(), (Received{2, 11, 2, &item}));
}

TEST_F(Bind, ADestinationHasOneSource)
{
    EXPECT_EQ(bind(5, ao(0, 0)), 0);
    EXPECT_EQ(stderr_of([] { EXPECT_EQ(bind(6, ao(0, 0)), sys(MPP_ERR_NOT_PERM)); }),
              "Dest have bind Src:(adec,0,5) !\n");
    MPP_CHN_S source = {}, destination = ao(0, 0);
    EXPECT_EQ(SYS_GetBindByDest(&destination, &source), 0);
    EXPECT_EQ(source.s32ModId, HI_ID_ADEC);
    EXPECT_EQ(source.s32ChnId, 5);
    EXPECT_EQ(unbind(ao(0, 0)), 0);
    EXPECT_EQ(unbind(ao(0, 0)), 0) << "not bound any more";
    EXPECT_EQ(stderr_of([&] { EXPECT_EQ(SYS_GetBindByDest(&destination, &source), sys(MPP_ERR_PARAM)); }),
              "Dest have not bind any Src \n");
}

TEST_F(Bind, DestinationsWhoseStridesMeetShareAPlace)
{
    const std::pair<MPP_CHN_S, MPP_CHN_S> shared[] = {{ao(1, 0), ao(0, 3)},
                                                      {ao(0, 3), ao(1, 0)},
                                                      {ao(2, 0), ao(1, 3)},
                                                      {ao(2, 0), ao(0, 6)},
                                                      {ao(1, 12), ao(0, 15)}};
    for (const auto& [one, other] : shared) {
        EXPECT_EQ(bind(0, one), 0);
        EXPECT_EQ(bind(1, other), sys(MPP_ERR_NOT_PERM));
        EXPECT_EQ(unbind(one), 0);
    }
    EXPECT_EQ(bind(0, ao(1, 0)), 0);
    EXPECT_EQ(bind(1, ao(0, 1)), 0) << "places beside each other stay apart";
    // Bound as one of the pair, unbound as the other: the table cannot know, and says so.
    EXPECT_EXIT(unbind(ao(0, 3)), testing::ExitedWithCode(255), "");
}

TEST_F(Bind, AFailedAssertionPrintsItsPlaceAndEndsTheProcess)
{
    const std::pair<std::function<void()>, const char*> faults[] = {
        {[&] { SYS_BIND_SendData(41, 0, 0, 2, &item); }, "enModId < HI_ID_BUTT"},
        {[&] { SYS_BIND_SendData(-1, 0, 0, 2, &item); }, "enModId < HI_ID_BUTT"},
        {[&] { SYS_BIND_SendData(HI_ID_ADEC, 0, 0, 3, &item); }, "enDataType < MPP_DATA_BUTT"},
        {[&] { SYS_BIND_SendData(HI_ID_ADEC, 0, 0, -1, &item); }, "enDataType < MPP_DATA_BUTT"},
    };
    for (const auto& [fault, condition] : faults) {
        // The block goes to standard output; a death test looks at standard error.
        EXPECT_EXIT((dup2(STDERR_FILENO, STDOUT_FILENO), fault()), testing::ExitedWithCode(255),
                    std::string("^\nASSERT failed at:\n  >File name: mpp/code/mkp/bind/sys_bind\n"
                                "  >Function : SYS_BIND_SendData\n  >Line No. : [0-9]+\n  >Condition: ") +
                        condition + "\n$");
    }
}

TEST_F(Bind, WhatCannotBeIsRefusedAndSaysWhy)
{
    struct Case {
        std::function<int32_t()> call;
        uint32_t number;
        std::string message;
    };
    const SYS_BIND_SENDER_S again = {HI_ID_ADEC, 1, 32}, above = {41, 1, 1}, none = {3, 0, 5},
                            wraps = {3, 0x80000001u, 2};
    const SYS_BIND_RECEIVER_S deaf = {3, 1, 1, nullptr}, negative = {-1, 1, 1, receive};
    const MPP_CHN_S good = {HI_ID_ADEC, 0, 0}, to = ao(0, 0);
    const auto bind_two = [](MPP_CHN_S from, MPP_CHN_S destination) { return SYS_Bind(&from, &destination); };
    const Case cases[] = {
        {[&] { return SYS_BIND_RegisterSender(nullptr); }, MPP_ERR_NULL, "Null point \n"},
        {[&] { return SYS_BIND_RegisterReceiver(&deaf); }, MPP_ERR_NULL, "Null point \n"},
        {[&] { return SYS_BIND_RegisterSender(&above); }, MPP_ERR_PARAM, ""},
        {[&] { return SYS_BIND_RegisterReceiver(&negative); }, MPP_ERR_PARAM, ""},
        {[&] { return SYS_BIND_RegisterSender(&again); }, MPP_ERR_NOT_PERM, "Mod 24 have register !\n"},
        {[&] { return SYS_BIND_RegisterSender(&none); }, MPP_ERR_PARAM,
         "u32MaxDevCnt or u32MaxChnCnt invalid !\n"},
        {[&] { return SYS_BIND_RegisterSender(&wraps); }, MPP_ERR_PARAM,
         "u32MaxDevCnt or u32MaxChnCnt invalid !\n"},
        {[&] { return SYS_BIND_UnRegisterSender(3); }, MPP_ERR_NOT_PERM, "Mod:3 have not register ! \n"},
        {[&] { return SYS_BIND_UnRegisterReceiver(41); }, MPP_ERR_PARAM, ""},
        {[&] {
             return bind_two({41, 0, 0}, to);
         },
         MPP_ERR_PARAM, "ModId:41 is invalid !\n"},
        {[&] {
             return bind_two({HI_ID_AENC, 0, 0}, to);
         },
         MPP_ERR_PARAM, "ModId:23(aenc) is not supported !\n"},
        {[&] {
             return bind_two(good, {HI_ID_ADEC, 0, 0});
         },
         MPP_ERR_PARAM, "ModId:24(adec) is not supported !\n"},
        {[&] {
             return bind_two({HI_ID_ADEC, 1, 0}, to);
         },
         MPP_ERR_PARAM, "Bind dev or chn is invalid, dev:1, chn:0 !\n"},
        {[&] {
             return bind_two({HI_ID_ADEC, 0, 32}, to);
         },
         MPP_ERR_PARAM, "Bind dev or chn is invalid, dev:0, chn:32 !\n"},
        {[&] { return bind_two(good, ao(3, 0)); }, MPP_ERR_PARAM,
         "Bind dev or chn is invalid, dev:3, chn:0 !\n"},
        {[&] { return bind_two(good, ao(0, -1)); }, MPP_ERR_PARAM,
         "Bind dev or chn is invalid, dev:0, chn:-1 !\n"},
        {[&] { return unbind(ao(0, INT_MAX)); }, MPP_ERR_PARAM,
         "Bind dev or chn is invalid, dev:0, chn:2147483647 !\n"},
        {[&] { return send(0, nullptr); }, MPP_ERR_NULL, "Null point \n"},
        {[&] { return send(32, &item); }, MPP_ERR_PARAM, ""},
        {[&] { return SYS_BIND_SendData(HI_ID_AI, 0, 0, 2, &item); }, MPP_ERR_NOT_PERM,
         "Mod 21 have not register !\n"},
    };
    for (const Case& c : cases) {
        int32_t result = 0;
        EXPECT_EQ(stderr_of([&] { result = c.call(); }), c.message);
        EXPECT_EQ(result, sys(c.number)) << c.message;
    }
}

TEST_F(Bind, TakingARegistrationBackTakesItsBindingsToo)
{
    ASSERT_EQ(bind(0, ao(0, 0)), 0);
    const SYS_BIND_RECEIVER_S other = {5, 1, 4, receive};
    ASSERT_EQ(SYS_BIND_RegisterReceiver(&other), 0);
    ASSERT_EQ(bind(0, {5, 0, 2}), 0);
    EXPECT_EQ(SYS_BIND_UnRegisterReceiver(HI_ID_AO), 0);
    EXPECT_EQ(stderr_of([&] { EXPECT_EQ(send(0, &item), sys(MPP_ERR_NOT_PERM)); }),
              "Mod 22 have not register !\n");
    EXPECT_TRUE(received.empty()) << "the walk stops at the first that is missing";
    const SYS_BIND_RECEIVER_S receiver = {HI_ID_AO, 3, 16, receive};
    ASSERT_EQ(SYS_BIND_RegisterReceiver(&receiver), 0);
    EXPECT_EQ(send(0, &item), 0);
    EXPECT_EQ(received.size(), 1u) << "the new registration starts unbound";
    ASSERT_EQ(bind(0, ao(0, 0)), 0);
    EXPECT_EQ(SYS_BIND_UnRegisterSender(HI_ID_ADEC), 0);
    const SYS_BIND_SENDER_S sender = {HI_ID_ADEC, 1, 32};
    ASSERT_EQ(SYS_BIND_RegisterSender(&sender), 0);
    EXPECT_EQ(bind(1, ao(0, 0)), 0) << "the receiver is free again";
}

TEST_F(Bind, ATableIsAsLargeAsItsCountsUpToWhatMemoryMayHold)
{
    const SYS_BIND_RECEIVER_S wide = {5, 1, 100000, count_only}, deep = {6, 400, 1, receive},
                              vast = {7, 0xFFFF, 0x10000, receive}, square = {7, 0x80000000u, 1, receive};
    ASSERT_EQ(SYS_BIND_RegisterReceiver(&wide), 0);
    ASSERT_EQ(SYS_BIND_RegisterReceiver(&deep), 0);
    EXPECT_EQ(bind(0, {5, 0, 99999}), 0);
    EXPECT_EQ(SYS_BIND_UnRegisterReceiver(5), 0);
    const MPP_CHN_S source = {HI_ID_ADEC, 0, 1}, last = {6, 399, 0};
    EXPECT_EQ(SYS_Bind(&source, &last), 0);
    EXPECT_EQ(send(1, &item), 0);
    EXPECT_EQ(received, (std::vector<Received>{{399, 0, 2, &item}}));
    for (const auto* too_much : {&vast, &square})
        EXPECT_EQ(stderr_of([&] { EXPECT_EQ(SYS_BIND_RegisterReceiver(too_much), sys(MPP_ERR_NO_MEMORY)); }),
                  "No memory for bind table!\n");
}

// The walk takes no lock, so what it meets of a binding being made must be whole.
TEST_F(Bind, AChannelMayBeBoundWhileItSends)
{
    static std::atomic<int> arrived;
    arrived = 0;
    const SYS_BIND_RECEIVER_S receiver = {5, 1, 2000,
                                          [](int32_t, int32_t, int32_t, void*) { return ++arrived; }};
    ASSERT_EQ(SYS_BIND_RegisterReceiver(&receiver), 0);
    std::atomic<bool> done = false;
    std::thread sender([&] {
        while (!done) send(0, &item);
    });
    for (int32_t i = 0; i < 2000; ++i) EXPECT_EQ(bind(0, {5, 0, i}), 0);
    done = true;
    sender.join();
    arrived = 0;
    EXPECT_EQ(send(0, &item), 0);
    EXPECT_EQ(arrived, 2000);
}

// Each receiver costs the same; what a large factor catches is a walk of the whole table for each.
TEST_F(Bind, SendingIsLinearInTheReceivers)
{
    const SYS_BIND_RECEIVER_S receiver = {5, 1, 64, count_only};
    ASSERT_EQ(SYS_BIND_RegisterReceiver(&receiver), 0);
    const auto cost = [&](int32_t from, int32_t first, int32_t count) {
        for (int32_t i = 0; i < count; ++i) EXPECT_EQ(bind(from, {5, 0, first + i}), 0);
        auto best = std::chrono::nanoseconds::max();
        for (int run = 0; run < 5; ++run) {
            const auto start = std::chrono::steady_clock::now();
            for (int i = 0; i < 20'000; ++i) send(from, &item);
            best = std::min(best, std::chrono::nanoseconds(std::chrono::steady_clock::now() - start));
        }
        return double(best.count());
    };
    const double one = cost(0, 0, 1), four = cost(1, 1, 4), sixteen = cost(2, 5, 16);
    EXPECT_LT(four, one * 4 * 3);
    EXPECT_LT(sixteen, one * 16 * 3);
}

} // namespace
