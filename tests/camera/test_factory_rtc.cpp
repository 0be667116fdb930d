// test_rtc: good and broken clocks, and that the true time comes back.
#include "tests/support/factory_board.hpp"

#include <ctime>
#include <gmock/gmock.h>

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

struct Rtc : Board {
    Rtc() { set("--set '2024-12-31 23:59:50'"); }
    void set(const std::string& options) const
    {
        EXPECT_EQ(vcam("rtc " + camera.state("").string() + " " + options).status, 0);
    }
    // The chip's time at camera time 0 in seconds, which stays the same while nobody sets it, and its
    // weekday.
    [[nodiscard]] double origin() const
    {
        tm t = {};
        int weekday = 0;
        double at_ns = 0;
        EXPECT_EQ(sscanf(read_file(camera.state("rtc")).c_str(), "%d-%d-%d %d:%d:%d %d %lf", &t.tm_year,
                         &t.tm_mon, &t.tm_mday, &t.tm_hour, &t.tm_min, &t.tm_sec, &weekday, &at_ns),
                  8);
        t.tm_year -= 1900;
        --t.tm_mon;
        return double(timegm(&t)) - at_ns / 1e9;
    }
};

} // namespace

TEST_F(Rtc, RunsKeepsWhatIsWrittenAndHasTheTrueTimeAgain)
{
    const double before = origin();
    Outcome passed = run("test_rtc");
    EXPECT_EQ(passed.out, kPassed);
    EXPECT_NEAR(origin(), before, 0.05);
    passed = run("test_rtc -v");
    EXPECT_THAT(passed.out, HasSubstr("ADVANCED 2 s : successful\nWRITE 2012/02/28 23:59:58 : successful\n"
                                      "READ 2012/02/29 00:00:00 : successful\nADVANCED 2 s : successful\n"));
    EXPECT_THAT(passed.out, EndsWith(kPassed));
    EXPECT_THAT(passed.of("settimeofday"), IsEmpty()); // the system clock is none of its business
    EXPECT_NEAR(origin(), before, 0.1);
    Outcome read_only = run("test_rtc -n -v");
    EXPECT_THAT(read_only.out, EndsWith(kPassed));
    EXPECT_THAT(read_only.out, Not(HasSubstr("WRITE")));
}

// The weekday goes on from what it was, even where somebody has set it to another day.
TEST_F(Rtc, TheWeekdayIsNotCorrected)
{
    set("--set '2024-12-31 23:59:58'");
    std::string line = read_file(camera.state("rtc"));
    line.replace(line.find(":58 ") + 4, 1, "5");
    write_file(camera.state("rtc"), line);
    Outcome passed = run("test_rtc");
    EXPECT_EQ(passed.out, kPassed);
    EXPECT_THAT(passed.of("ds1339").back(), StartsWith("read 2025-01-01 00:00:0"));
    EXPECT_THAT(passed.of("ds1339").back(), EndsWith("weekday 6"));
}

TEST_F(Rtc, BrokenChipsFailAndKeepTheirTime)
{
    set("--fault no-leap");
    double before = origin();
    EXPECT_THAT(run("test_rtc -v").out, HasSubstr("READ 2012/03/01 00:00:00 : successful\nADVANCED 86402 s"));
    EXPECT_NEAR(origin(), before, 0.05);
    set("--fault none --fault stopped");
    Outcome stopped = run("test_rtc -v");
    EXPECT_THAT(stopped.out, EndsWith("STOPPED : failed\nfailed\n"));
    // 2 % is the limit, fast or slow.
    for (const auto& [drift, verdict] : {std::pair{"10", kPassed},
                                         {"-10", kPassed},
                                         {"30", kFailed},
                                         {"-30", kFailed},
                                         {"220", kFailed},
                                         {"400", kFailed}}) {
        set(std::string("--fault none --fault drift=") + drift);
        Outcome run = this->run("test_rtc");
        EXPECT_EQ(run.out, verdict) << drift;
        EXPECT_EQ(run.err.starts_with("test_rtc: the clock counted "), verdict == kFailed) << run.err;
        EXPECT_EQ(run.of("ds1339").back().starts_with("read 2012"), false);
    }
    set("--fault none --fault bcd --set '2024-12-31 20:00:00'");
    EXPECT_EQ(run("test_rtc").out, kFailed);
    EXPECT_THAT(stopped.of("ds1339"), Not(testing::Contains(StartsWith("write"))));
}

TEST_F(Rtc, DriversThatRefuseLeaveTheTrueTimeOrItIsSaid)
{
    for (const char* fault : {"ds1339 read 0 1 EIO\n", "ds1339 read 3 1 EIO\n", "ds1339 write 0 1 EIO\n",
                              "ds1339 write 1 1 EIO\n"}) {
        set("--set '2024-06-01 12:00:00'");
        const double before = origin();
        camera.faults(fault);
        EXPECT_EQ(run("test_rtc").out, kFailed) << fault;
        EXPECT_NEAR(origin(), before, 0.05) << fault;
    }
    camera.faults("ds1339 write 1 -1 EIO\n");
    Outcome lost = run("test_rtc");
    EXPECT_EQ(lost.out, kFailed);
    EXPECT_EQ(lost.err, "test_rtc: the clock could not be set back to the true time\n");
    EXPECT_THAT(lost.log, testing::ElementsAre(EndsWith("could not be set back to the true time")));
    camera.faults("ds1339 open 0 -1 ENOENT\n");
    Outcome absent = run("test_rtc");
    EXPECT_EQ(absent.status, 255);
    EXPECT_EQ(absent.out, "");
    EXPECT_EQ(absent.err, "test_rtc: /dev/ds1339: No such file or directory\n");
    EXPECT_EQ(run("test_rtc word").out, kFailed);
}
