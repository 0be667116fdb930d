// The server of device files, with a test in the kernel's place.
#include "sim/base/state.hpp"
#include "sim/cuse/device.hpp"
#include "tests/support/temp_folder.hpp"

#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <semaphore>
#include <sys/socket.h>
#include <unistd.h>

namespace vcam::cuse {
namespace {

class Waits final : public Model {
public:
    Waits() : Model("/dev/waits", "waits") {}
    ssize_t read(int, void*, size_t) override
    {
        gate.acquire();
        return 0;
    }
    std::counting_semaphore<> gate{0};
};

class Cuse : public testing::Test {
protected:
    Cuse()
    {
        state::set_dir(folder.path());
        int ends[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
        kernel = zep::Fd(ends[0]);
        server = zep::Fd(ends[1]);
    }
    ~Cuse() override { state::set_dir(""); }

    template<class Body> void ask(uint32_t operation, uint64_t unique, const Body& body) const
    {
        struct {
            fuse_in_header head;
            Body body;
        } request = {{}, body};
        request.head.len = sizeof request;
        request.head.opcode = operation;
        request.head.unique = unique;
        request.head.pid = uint32_t(getpid());
        EXPECT_EQ(write(kernel.get(), &request, sizeof request), ssize_t(sizeof request));
    }
    struct Answer {
        fuse_out_header head;
        char body[64];
    };
    Answer answer() const
    {
        Answer out = {};
        pollfd wait = {kernel.get(), POLLIN, 0};
        if (poll(&wait, 1, 10'000) != 1) return out;
        EXPECT_GE(read(kernel.get(), &out, sizeof out), ssize_t(sizeof out.head));
        return out;
    }

    TempFolder folder;
    zep::Fd kernel, server;
};

// The kernel takes none of these, and the program would wait for ever.
TEST_F(Cuse, AnAnswerThatTheKernelWouldRefuseIsAnInputOutputErrorAndSaysSo)
{
    const Channel channel(std::move(server));
    for (const auto& [given, sent] :
         {std::pair(-EBUSY, -EBUSY), {-511, -511}, {-512, -EIO}, {-1610612734, -EIO}}) {
        channel.answer(7, given);
        EXPECT_EQ(answer().head.error, sent) << given;
    }
    const std::string journal = read_file(folder / "journal");
    EXPECT_NE(journal.find(" cuse the answer -512 is the kernel's own and becomes EIO\n"), std::string::npos);
    EXPECT_EQ(std::count(journal.begin(), journal.end(), '\n'), 2);
}

TEST_F(Cuse, RequestsThatWaitKeepNoFurtherOneFromItsAnswer)
{
    constexpr uint64_t kWaiting = 9, kFlush = 100;
    static auto& model = *new Waits; // threads of a server end with it
    static auto& views = *new GuestViews;
    static auto& device = *new Device(model, views, Channel(std::move(server)));
    device.answer();
    fuse_open_in open = {};
    open.flags = O_RDWR;
    ask(FUSE_OPEN, 1, open);
    fuse_open_out opened = {};
    const Answer first = answer();
    memcpy(&opened, first.body, sizeof opened);
    fuse_read_in read = {};
    read.fh = opened.fh;
    read.size = 8;
    for (uint64_t i = 1; i <= kWaiting; ++i) ask(FUSE_READ, 1 + i, read);
    ask(FUSE_FLUSH, kFlush, fuse_flush_in{});
    EXPECT_EQ(answer().head.unique, kFlush);
    model.gate.release(kWaiting);
    for (uint64_t i = 1; i <= kWaiting; ++i) EXPECT_EQ(answer().head.error, 0);
}

} // namespace
} // namespace vcam::cuse
