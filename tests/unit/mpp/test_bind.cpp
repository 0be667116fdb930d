// The binder: registrations, bindings, and how data walks them.
#include "mkp/bind/sys_bind.h"

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <string>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace bind_test {
namespace {

constexpr int32_t sys(uint32_t number) { return MPP_ERROR(HI_ID_SYS, number); }

struct Received {
    int32_t device, channel, type;
    void* data;
    bool operator==(const Received&) const = default;
};
using All = std::vector<Received>;
All received;
int32_t answer = 0;

int32_t receive(int32_t device, int32_t channel, int32_t type, void* data)
{
    received.push_back({device, channel, type, data});
    return answer;
}
int32_t accept(int32_t, int32_t, int32_t, void*) { return 0; }

int32_t sender(SYS_BIND_SENDER_S record) { return SYS_BIND_RegisterSender(&record); }
int32_t receiver(SYS_BIND_RECEIVER_S record) { return SYS_BIND_RegisterReceiver(&record); }
int32_t bind_from(MPP_CHN_S from, MPP_CHN_S to) { return SYS_Bind(&from, &to); }
int32_t bind(int32_t from, MPP_CHN_S to) { return bind_from({HI_ID_ADEC, 0, from}, to); }
int32_t unbind(MPP_CHN_S to) { return SYS_UnBind(&to); }
MPP_CHN_S ao(int32_t device, int32_t channel) { return {HI_ID_AO, device, channel}; }
int32_t send(int32_t channel, void* data, int32_t type = MPP_DATA_AUDIO_FRAME)
{
    return SYS_BIND_SendData(HI_ID_ADEC, 0, channel, type, data);
}

class Bind : public testing::Test {
protected:
    Bind()
    {
        received.clear();
        answer = 0;
        SYS_BIND_Init();
        EXPECT_EQ(sender({HI_ID_ADEC, 1, 32}), 0);
        EXPECT_EQ(receiver({HI_ID_AO, 3, 16, receive}), 0);
        testing::internal::CaptureStderr();
    }
    ~Bind() override
    {
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        SYS_BIND_DeInit();
    }
    // What a call returned, and what has been said since the last check.
    static void expect(int32_t result, uint32_t number, const std::string& message)
    {
        EXPECT_EQ(testing::internal::GetCapturedStderr(), message);
        EXPECT_EQ(result, sys(number)) << message;
        testing::internal::CaptureStderr();
    }
    // The process ends; its last words, on either stream, match the pattern.
    static void expect_end(auto&& fault, const std::string& pattern)
    {
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        EXPECT_EXIT((dup2(STDERR_FILENO, STDOUT_FILENO), fault()), testing::ExitedWithCode(255), pattern);
        testing::internal::CaptureStderr();
    }
    int item = 0;
};

TEST_F(Bind, DataReachesEveryReceiverInTheOrderOfBinding)
{
    EXPECT_EQ(send(0, &item), 0) << "nobody bound";
    for (int32_t channel : {4, 0, 9}) EXPECT_EQ(bind(7, ao(0, channel)), 0);
    EXPECT_EQ(bind(8, ao(2, 11)), 0);
    EXPECT_EQ(send(7, &item), 0);
    EXPECT_EQ(received, (All{{0, 4, 2, &item}, {0, 0, 2, &item}, {0, 9, 2, &item}}));
    received.clear();
    EXPECT_EQ(unbind(ao(0, 0)), 0);
    answer = -1;
    EXPECT_EQ(send(7, &item, 0), 0) << "what a receiver returns is its own affair";
    EXPECT_EQ(received, (All{{0, 4, 0, &item}, {0, 9, 0, &item}}));
    // A sender with one device is not asked for it.
    EXPECT_EQ(SYS_BIND_SendData(HI_ID_ADEC, 99, 8, 2, &item), 0);
    EXPECT_EQ(received.back(), (Received{2, 11, 2, &item}));

    EXPECT_EQ(receiver({5, 1, 4, accept}), 0);
    uint32_t taken = 99;
    const auto counted = [&](int32_t channel) {
        EXPECT_EQ(SYS_BIND_SendDataCounted(HI_ID_ADEC, 0, channel, 2, &item, &taken), 0);
        return taken;
    };
    EXPECT_EQ(counted(7), 0u) << "both refuse";
    EXPECT_EQ(bind(7, {5, 0, 1}), 0);
    EXPECT_EQ(counted(7), 1u);
    EXPECT_EQ(counted(0), 0u) << "nothing is bound";
}

TEST_F(Bind, ADestinationHasOneSource)
{
    EXPECT_EQ(bind(5, ao(0, 0)), 0);
    expect(bind(6, ao(0, 0)), MPP_ERR_NOT_PERM, "Dest have bind Src:(adec,0,5) !\n");
    MPP_CHN_S source = {}, destination = ao(0, 0);
    EXPECT_EQ(SYS_GetBindByDest(&destination, &source), 0);
    EXPECT_EQ(source.s32ModId, HI_ID_ADEC);
    EXPECT_EQ(source.s32ChnId, 5);
    EXPECT_EQ(unbind(ao(0, 0)), 0);
    EXPECT_EQ(unbind(ao(0, 0)), 0) << "not bound any more";
    expect(SYS_GetBindByDest(&destination, &source), MPP_ERR_PARAM, "Dest have not bind any Src \n");
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
        expect(bind(1, other), MPP_ERR_NOT_PERM, "Dest have bind Src:(adec,0,0) !\n");
        EXPECT_EQ(unbind(one), 0);
    }
    EXPECT_EQ(bind(0, ao(1, 0)), 0);
    EXPECT_EQ(bind(1, ao(0, 1)), 0) << "places beside each other stay apart";
    // Bound as one of the pair, unbound as the other: the table cannot know, and says so.
    expect_end([] { unbind(ao(0, 3)); }, "");
}

TEST_F(Bind, AFailedAssertionPrintsItsPlaceAndEndsTheProcess)
{
    const std::tuple<int32_t, int32_t, const char*> faults[] = {
        {41, 2, "enModId < HI_ID_BUTT"},
        {-1, 2, "enModId < HI_ID_BUTT"},
        {HI_ID_ADEC, 3, "enDataType < MPP_DATA_BUTT"},
        {HI_ID_ADEC, -1, "enDataType < MPP_DATA_BUTT"}};
    for (const auto& [module, type, condition] : faults)
        expect_end([&, m = module, t = type] { SYS_BIND_SendData(m, 0, 0, t, &item); },
                   std::string("^\nASSERT failed at:\n  >File name: mpp/code/mkp/bind/sys_bind\n"
                               "  >Function : SYS_BIND_SendData\n  >Line No. : [0-9]+\n  >Condition: ") +
                       condition + "\n$");
}

TEST_F(Bind, WhatCannotBeIsRefusedAndSaysWhy)
{
    const std::string null = "Null point \n", counts = "u32MaxDevCnt or u32MaxChnCnt invalid !\n";
    const auto beside = [](const char* numbers) {
        return std::string("Bind dev or chn is invalid, ") + numbers + " !\n";
    };
    const MPP_CHN_S good = {HI_ID_ADEC, 0, 0}, to = ao(0, 0);
    expect(SYS_BIND_RegisterSender(nullptr), MPP_ERR_NULL, null);
    expect(receiver({3, 1, 1, nullptr}), MPP_ERR_NULL, null);
    expect(sender({41, 1, 1}), MPP_ERR_PARAM, "");
    expect(receiver({-1, 1, 1, receive}), MPP_ERR_PARAM, "");
    expect(sender({HI_ID_ADEC, 1, 32}), MPP_ERR_NOT_PERM, "Mod 24 have register !\n");
    expect(sender({3, 0, 5}), MPP_ERR_PARAM, counts);
    expect(sender({3, 0x80000001u, 2}), MPP_ERR_PARAM, counts);
    expect(SYS_BIND_UnRegisterSender(3), MPP_ERR_NOT_PERM, "Mod:3 have not register ! \n");
    expect(SYS_BIND_UnRegisterReceiver(41), MPP_ERR_PARAM, "");
    expect(bind_from({41, 0, 0}, to), MPP_ERR_PARAM, "ModId:41 is invalid !\n");
    expect(bind_from({HI_ID_AENC, 0, 0}, to), MPP_ERR_PARAM, "ModId:23(aenc) is not supported !\n");
    expect(bind_from(good, {HI_ID_ADEC, 0, 0}), MPP_ERR_PARAM, "ModId:24(adec) is not supported !\n");
    expect(bind_from({HI_ID_ADEC, 1, 0}, to), MPP_ERR_PARAM, beside("dev:1, chn:0"));
    expect(bind_from({HI_ID_ADEC, 0, 32}, to), MPP_ERR_PARAM, beside("dev:0, chn:32"));
    expect(bind_from(good, ao(3, 0)), MPP_ERR_PARAM, beside("dev:3, chn:0"));
    expect(bind_from(good, ao(0, -1)), MPP_ERR_PARAM, beside("dev:0, chn:-1"));
    expect(unbind(ao(0, INT_MAX)), MPP_ERR_PARAM, beside("dev:0, chn:2147483647"));
    expect(send(0, nullptr), MPP_ERR_NULL, null);
    expect(SYS_BIND_SendDataCounted(HI_ID_ADEC, 0, 7, 2, &item, nullptr), MPP_ERR_NULL, null);
    expect(send(32, &item), MPP_ERR_PARAM, "");
    expect(SYS_BIND_SendData(HI_ID_AI, 0, 0, 2, &item), MPP_ERR_NOT_PERM, "Mod 21 have not register !\n");
}

TEST_F(Bind, TakingARegistrationBackTakesItsBindingsToo)
{
    ASSERT_EQ(bind(0, ao(0, 0)), 0);
    ASSERT_EQ(receiver({5, 1, 4, receive}), 0);
    ASSERT_EQ(bind(0, {5, 0, 2}), 0);
    EXPECT_EQ(SYS_BIND_UnRegisterReceiver(HI_ID_AO), 0);
    expect(send(0, &item), MPP_ERR_NOT_PERM, "Mod 22 have not register !\n");
    EXPECT_TRUE(received.empty()) << "the walk stops at the first that is missing";
    ASSERT_EQ(receiver({HI_ID_AO, 3, 16, receive}), 0);
    EXPECT_EQ(send(0, &item), 0);
    EXPECT_EQ(received.size(), 1u) << "the new registration starts unbound";
    ASSERT_EQ(bind(0, ao(0, 0)), 0);
    EXPECT_EQ(SYS_BIND_UnRegisterSender(HI_ID_ADEC), 0);
    ASSERT_EQ(sender({HI_ID_ADEC, 1, 32}), 0);
    EXPECT_EQ(bind(1, ao(0, 0)), 0) << "the receiver is free again";
}

TEST_F(Bind, ATableIsAsLargeAsItsCountsUpToWhatMemoryMayHold)
{
    ASSERT_EQ(receiver({5, 1, 100000, accept}), 0);
    ASSERT_EQ(receiver({6, 400, 1, receive}), 0);
    EXPECT_EQ(bind(0, {5, 0, 99999}), 0);
    EXPECT_EQ(SYS_BIND_UnRegisterReceiver(5), 0);
    EXPECT_EQ(bind(1, {6, 399, 0}), 0);
    EXPECT_EQ(send(1, &item), 0);
    EXPECT_EQ(received, (All{{399, 0, 2, &item}}));
    expect(receiver({7, 0xFFFF, 0x10000, receive}), MPP_ERR_NO_MEMORY, "No memory for bind table!\n");
    expect(receiver({7, 0x80000000u, 1, receive}), MPP_ERR_NO_MEMORY, "No memory for bind table!\n");
}

// The walk takes no lock, so what it meets of a binding being made must be whole.
TEST_F(Bind, AChannelMayBeBoundWhileItSends)
{
    static std::atomic<int> arrived;
    ASSERT_EQ(receiver({5, 1, 2000, [](int32_t, int32_t, int32_t, void*) { return ++arrived; }}), 0);
    std::atomic<bool> done = false;
    std::thread walk([&] {
        while (!done) send(0, &item);
    });
    for (int32_t i = 0; i < 2000; ++i) EXPECT_EQ(bind(0, {5, 0, i}), 0);
    done = true;
    walk.join();
    arrived = 0;
    EXPECT_EQ(send(0, &item), 0);
    EXPECT_EQ(arrived, 2000);
}

} // namespace
} // namespace bind_test
