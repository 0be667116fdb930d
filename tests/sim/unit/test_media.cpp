// The media drivers' shared page: who may take it, and how much is done for whom.
#include "sim/models/audio.hpp"
#include "sim/base/state.hpp"
#include "tests/support/temp_folder.hpp"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vcam::media {
namespace {

using Wait = Locked::Wait;
constexpr uint32_t kSlot = 2 * kChannels;

struct MediaPage : testing::Test {
    MediaPage() { state::set_dir(folder.path()); }
    ~MediaPage() override { power_on(); }
    TempFolder folder;
};

// An input bound to an output; nothing has been heard yet.
void bind(Page& page)
{
    constexpr Attributes kAttributes = {8000, 1, 0, kMono, 1, 30, 160, 2, 1};
    page.ai_device[2] = {
        .attributes = kAttributes, .configured = 1, .enabled = 0, .pool = 0, .loop_ms = 0, .start_ns = 0};
    page.ao_device[2] = {kAttributes, 1, 1};
    page.sys.ready = page.vb.ready = 1;
    page.sys.binds[0] = {{int(kModAi), 2, 0}, {int(kModAo), 2, 0}, 1, 0, 0};
    ASSERT_EQ(start_playing(page, kSlot), 0);
    ASSERT_EQ(start_input(page, 2), 0);
    ASSERT_EQ(start_capture(page, kSlot, 0), 0);
}

} // namespace

TEST_F(MediaPage, IsTakenFromTheDeadAloneByOneWhoMustNotWait)
{
    Page* page = nullptr;
    {
        Locked first;
        page = &*first;
        EXPECT_FALSE(Locked(Wait::no)) << "its holder lives";
    }
    const pid_t dead = ::fork();
    if (dead == 0) ::_exit(0);
    ::waitpid(dead, nullptr, 0);
    page->head.owner = uint32_t(dead);
    EXPECT_TRUE(Locked(Wait::no));
    EXPECT_EQ(page->head.owner, 0u);
}

// An hour's sound takes seconds to write.
TEST_F(MediaPage, FlowsAMomentForOneWhoMustNotWaitAndWhollyForTheOthers)
{
    constexpr Ns kHour = 3600 * clock::kSecond;
    Locked page;
    bind(*page);
    flow(*page, kHour, Wait::no);
    const uint32_t once = page->ai[kSlot].passed;
    EXPECT_GE(once, 1u);
    EXPECT_LE(next_frame(*page, kSlot), kHour);
    flow(*page, kHour, Wait::no);
    EXPECT_GT(page->ai[kSlot].passed, once) << "where the last look ended";
    const uint32_t far = page->ai[kSlot].passed + 50;
    flow(*page, Ns(far) * 20'000'000, Wait::yes);
    EXPECT_EQ(page->ai[kSlot].passed, far);
    EXPECT_EQ(page->sys.binds[0].frames, far);
    EXPECT_EQ(page->ao[kSlot].written, far * 160);
    EXPECT_EQ(std::filesystem::file_size(folder / "speaker.wav"), 44 + far * 320);
}

} // namespace vcam::media
