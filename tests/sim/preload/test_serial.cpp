// The serial ports: bytes that take their time, the direction line, what the far end answers.
#include "tests/sim/preload/camera.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/select.h>
#include <termios.h>

namespace {

using std::string;

constexpr unsigned long kLineStatus = 0x5459;
const string kBlock(10, '\x5A');

class Serial : public vcam::test::CameraTest {
protected:
    void plug(const string& lines) { write_file(folder / "plugs", lines); }
    static int raw_port(const char* name, int flags = O_RDWR | O_NOCTTY | O_NONBLOCK, tcflag_t speed = B9600)
    {
        const int fd = ::open((string("/dev/") + name).c_str(), flags);
        EXPECT_GE(fd, 0);
        termios settings = {};
        settings.c_cflag = speed | CS8 | CREAD | CLOCAL;
        settings.c_cc[VMIN] = 1;
        EXPECT_EQ(::tcsetattr(fd, TCSANOW, &settings), 0);
        return fd;
    }
    static void rts(int fd, bool set)
    {
        int bit = TIOCM_RTS;
        EXPECT_EQ(::ioctl(fd, set ? TIOCMBIS : TIOCMBIC, &bit), 0);
    }
    static bool empty(int fd)
    {
        int status = -1;
        EXPECT_EQ(::ioctl(fd, kLineStatus, &status), 0);
        return status == 1;
    }
    static void send(int fd, const string& bytes)
    {
        EXPECT_EQ(::write(fd, bytes.data(), bytes.size()), ssize_t(bytes.size()));
    }
    // Not earlier, and later only by what the host takes for itself.
    static void expect_since(double start, double least)
    {
        EXPECT_GE(seconds() - start, least);
        EXPECT_LT(seconds() - start, least + 30);
    }
    // What has arrived by then.
    static string after(int fd, useconds_t us)
    {
        if (us) ::usleep(us);
        char data[256];
        const ssize_t n = ::read(fd, data, sizeof data);
        return n < 0 ? "" : string(data, size_t(n));
    }
};

TEST_F(Serial, ABlockTakesItsLineTimeAndComesBackThroughThePlug)
{
    plug("ttyAMA2 loopback\n");
    const int fd = raw_port("ttyAMA2");
    EXPECT_EQ(after(fd, 0), "");
    EXPECT_EQ(errno, EAGAIN);
    // What the host takes for itself comes on top of the line's time: the best of some tries counts.
    double first = 1, whole = 1, start = 0;
    bool filled = false;
    for (int i = 0; i < 100 && (first > 0.0019 || whole > 0.0154 || !filled); ++i) {
        start = seconds();
        send(fd, kBlock);
        filled |= !empty(fd);
        pollfd wanted = {fd, POLLIN, 0};
        EXPECT_EQ(::poll(&wanted, 1, 3000), 1); // the first byte
        first = std::min(first, seconds() - start);
        ASSERT_EQ(::tcdrain(fd), 0);
        whole = std::min(whole, seconds() - start);
        EXPECT_TRUE(empty(fd));
        EXPECT_EQ(after(fd, 10'000), kBlock);
    }
    EXPECT_NEAR(first, 0.00104, 0.0009);
    EXPECT_NEAR(whole, 0.0104, 0.005);
    EXPECT_TRUE(filled);
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    timeval limit = {2, 0};
    EXPECT_EQ(::select(fd + 1, &set, nullptr, nullptr, &limit), 0); // nothing more comes
    expect_since(start, 2.01);
    ::close(fd);
}

// At 1200 baud the block takes 83 ms, and comes back 200 ms after its end.
TEST_F(Serial, OnOnePairOfWiresRtsDecidesWhoIsHeard)
{
    plug("ttyAMA1 loopback\n");
    const int fd = raw_port("ttyAMA1", O_RDWR | O_NOCTTY | O_NONBLOCK, B1200);
    auto exchange = [&](bool clear_before, useconds_t set_after) {
        rts(fd, !clear_before);
        send(fd, kBlock);
        if (set_after) {
            ::usleep(set_after);
            rts(fd, true);
        }
        return after(fd, 800'000);
    };
    EXPECT_EQ(exchange(true, 150'000), kBlock);
    EXPECT_EQ(exchange(false, 0), "") << "sent while receiving";
    EXPECT_EQ(exchange(true, 0), "") << "the answer came while sending";
    EXPECT_EQ(exchange(true, 500'000), "") << "and is not there when RTS is set too late";
    for (useconds_t part : {40'000, 320'000}) { // in the middle of the block, of its answer
        const size_t size = exchange(true, part).size();
        EXPECT_GT(size, 0u) << part;
        EXPECT_LT(size, kBlock.size()) << part;
    }
    ::close(fd);
}

TEST_F(Serial, ThePlugSpoilsLosesAndDelaysBytes)
{
    plug("ttyAMA2 loopback wrong@3 lost@9 late=700\n");
    const int fd = raw_port("ttyAMA2");
    send(fd, kBlock + kBlock);
    EXPECT_EQ(after(fd, 600'000), "");
    string wanted = kBlock + kBlock;
    wanted[3] ^= 1;
    wanted.erase(9, 1);
    EXPECT_EQ(after(fd, 200'000), wanted);
    plug("ttyAMA2 nothing\n");
    send(fd, kBlock);
    EXPECT_EQ(after(fd, 2'000'000), "");
    ::close(fd);
}

TEST_F(Serial, ABlockedReaderWaitsAsItsSettingsSay)
{
    plug("ttyAMA2 loopback late=500\n");
    const int fd = raw_port("ttyAMA2", O_RDWR | O_NOCTTY);
    double start = seconds();
    send(fd, "x");
    EXPECT_EQ(after(fd, 0), "x");
    expect_since(start, 0.5);
    termios settings;
    ASSERT_EQ(::tcgetattr(fd, &settings), 0);
    settings.c_cc[VMIN] = 0;
    settings.c_cc[VTIME] = 3;
    ASSERT_EQ(::tcsetattr(fd, TCSAFLUSH, &settings), 0);
    start = seconds();
    EXPECT_EQ(after(fd, 0), "");
    expect_since(start, 0.3);
    settings.c_lflag = ICANON;
    ASSERT_EQ(::tcsetattr(fd, TCSANOW, &settings), 0);
    send(fd, "one\ntwo");
    ::sleep(1);
    EXPECT_EQ(after(fd, 0), "one\n"); // then only half a line is there
    pollfd wanted = {fd, POLLIN, 0};
    EXPECT_EQ(::poll(&wanted, 1, 500), 0);
    ASSERT_EQ(::tcflush(fd, TCIFLUSH), 0);
    ::close(fd);
}

TEST_F(Serial, TheBlockHearsOnlyWholeRequestsAtItsSpeed)
{
    plug("ttyAMA2 block\n");
    write_file(folder / "ttyAMA2.replies", "# one\nE0: FF E0 16\n5C: +2000 5c\n");
    const int fd = raw_port("ttyAMA2");
    const string ask("\xFF\xE0\x01\0\0\0\0\0\0\xE0", 10), late("\xFF\x5C\x01\0\0\0\0\0\0\x5C", 10);
    string damaged = ask;
    damaged[9] = '\xE1';
    send(fd, "noise" + damaged);
    EXPECT_EQ(after(fd, 500'000), "");
    send(fd, ask);
    EXPECT_EQ(after(fd, 500'000), "\xFF\xE0\x16");
    send(fd, late);
    EXPECT_EQ(after(fd, 1'900'000), "");
    EXPECT_EQ(after(fd, 200'000), "\x5c");
    termios settings;
    ::tcgetattr(fd, &settings);
    ::cfsetspeed(&settings, B19200);
    ::tcsetattr(fd, TCSANOW, &settings);
    send(fd, ask);
    EXPECT_EQ(after(fd, 500'000), "");
    ::close(fd);
    EXPECT_NE(journal().find("ttyAMA2 block got no request: FF E0 01 00 00 00 00 00 00 E1\n"), string::npos);
}

// The queue holds 1024 bytes: a writer that must not wait writes a part, one that may waits.
TEST_F(Serial, AFullQueueHoldsTheWriterUp)
{
    plug("ttyAMA2 loopback\n");
    int fd = raw_port("ttyAMA2");
    const string much(1500, 'a');
    EXPECT_EQ(::write(fd, much.data(), much.size()), 1024);
    EXPECT_EQ(::write(fd, much.data(), much.size()), -1);
    EXPECT_EQ(errno, EAGAIN);
    pollfd room = {fd, POLLOUT, 0};
    EXPECT_EQ(::poll(&room, 1, 2000), 1);
    ::close(fd);
    fd = raw_port("ttyAMA2", O_RDWR | O_NOCTTY);
    ::tcflush(fd, TCIOFLUSH);
    const double start = seconds();
    EXPECT_EQ(::write(fd, much.data(), much.size()), 1500);
    EXPECT_GT(seconds() - start, 0.4);
    ::close(fd);
}

TEST_F(Serial, SettingsOutliveTheProgramAndAreATerminals)
{
    ASSERT_EQ(run("stty -F /dev/ttyAMA1 19200 raw -echo cstopb parenb"), 0);
    EXPECT_NE(journal().find("ttyAMA1 settings 19200 8E2 raw\n"), string::npos);
    const int fd = ::open("/dev/ttyAMA1", O_RDWR);
    EXPECT_EQ(::isatty(fd), 1);
    termios settings;
    ASSERT_EQ(::tcgetattr(fd, &settings), 0);
    EXPECT_EQ(::cfgetospeed(&settings), speed_t(B19200));
    vcamsim_fault("ttyAMA1 getlsr 0 1 ENOTTY");
    int value = 0;
    EXPECT_EQ(::ioctl(fd, kLineStatus, &value), -1);
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_EQ(::lseek(fd, 0, SEEK_SET), -1);
    ::close(fd);
    const int plain = ::open("/dev/null", O_RDWR);
    EXPECT_EQ(::isatty(plain), 0);
    EXPECT_EQ(::tcgetattr(plain, &settings), -1);
    ::close(plain);
}

} // namespace
