// The client of the configuration daemon, where the wall clock can be set.
#include "common/cconfd.h"
#include "common/qrn_uds.h"
#include "tests/camera/libs/inside.hpp"

#include <cerrno>
#include <chrono>
#include <sys/time.h>
#include <thread>

namespace {

void move_clock(int seconds)
{
    timeval now;
    gettimeofday(&now, nullptr);
    now.tv_sec += seconds;
    EXPECT_EQ(settimeofday(&now, nullptr), 0);
}

} // namespace

// As a time server does while the daemon is silent.
TEST(Confd, AClockThatIsSetBackDoesNotLengthenTheWait)
{
    using namespace std::chrono;
    const int listener = QRN_BindUDSSocket("/tmp/confd.sock");
    CCONFD_CLIENT_S client;
    ASSERT_EQ(CCONFD_Init(&client, "/tmp/confd.sock"), 0);
    std::thread setter([] {
        std::this_thread::sleep_for(milliseconds(300));
        move_clock(-3600);
    });
    char value[8];
    const auto begin = steady_clock::now();
    EXPECT_EQ(CCONFD_Get(&client, "k", value, sizeof value), CCONFD_NO_ANSWER);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_LT(duration_cast<seconds>(steady_clock::now() - begin).count(), 60);
    setter.join();
    move_clock(3600);
    CCONFD_Close(&client);
    close(listener);
}
