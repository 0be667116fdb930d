// The client of the configuration daemon against one that the test plays.
#include "common/cconfd.h"
#include "common/qrn_uds.h"
#include "tests/support/socket_helpers.hpp"
#include "tests/support/temp_folder.hpp"

#include <chrono>
#include <cstring>
#include <functional>
#include <poll.h>
#include <random>
#include <sys/un.h>
#include <thread>

namespace {

using std::string;
using zep::Fd;
using namespace std::string_literals;

string word(uint32_t value) { return {reinterpret_cast<const char*>(&value), 4}; }
string frame(uint32_t command, const string& data)
{
    return word(command) + word(uint32_t(data.size())) + data;
}
string reply(uint32_t command, int32_t status = 0, const string& value = "")
{
    return frame(command | CCONFD_REPLY, word(uint32_t(status)) + value);
}
string notice(const string& key) { return frame(CCONFD_COMMAND_NOTICE, key); }

// One connection as the daemon sees it.
struct Visit {
    int fd;

    void say(const string& bytes) const { (void)!::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL); }
    string hear(size_t length) const
    {
        string bytes(length, '\0');
        ssize_t got = length > 0 ? recv(fd, bytes.data(), length, MSG_WAITALL) : 0;
        bytes.resize(size_t(std::max<ssize_t>(got, 0)));
        return bytes;
    }
    // The next request; empty when the client has hung up.
    string request() const
    {
        string header = hear(8);
        if (header.size() < 8) return "";
        uint32_t length;
        memcpy(&length, header.data() + 4, 4);
        return header + hear(length);
    }
    void expect(const string& bytes) const { EXPECT_EQ(request(), bytes); }
    void until_hung_up() const
    {
        while (!request().empty()) {
        }
    }
};

// Answers one visitor after the other as told, then is gone.
class Daemon {
public:
    using Visits = std::vector<std::function<void(Visit)>>;

    Daemon(const string& path, Visits visits) : listener_(QRN_BindUDSSocket(path.c_str()))
    {
        thread_ = std::thread([this, list = std::move(visits)] {
            for (const auto& visit : list) {
                Fd peer(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
                if (!peer) return;
                ++visited;
                visit({peer.get()});
            }
            shutdown(listener_.get(), SHUT_RDWR);
        });
    }
    ~Daemon() { stop(); }
    void stop()
    {
        shutdown(listener_.get(), SHUT_RDWR);
        if (thread_.joinable()) thread_.join();
        listener_.reset();
    }

    std::atomic<int> visited = 0;

private:
    Fd listener_;
    std::thread thread_;
};

struct Confd : testing::Test {
    TempFolder folder;
    string path = folder / "confd.sock";
    size_t open_before = open_files();
    CCONFD_CLIENT_S client;
    char value[16] = "old";
    char key[CCONFD_KEY_SIZE] = "";

    Confd()
    {
        EXPECT_EQ(CCONFD_Init(&client, path.c_str()), 0);
        client.limit_s = 1;
        client.pause_s = 0;
    }
    ~Confd() override
    {
        CCONFD_Close(&client);
        EXPECT_EQ(open_files(), open_before) << "a descriptor is left open";
    }
    static size_t open_files()
    {
        auto begin = std::filesystem::directory_iterator("/proc/self/fd");
        return size_t(std::distance(begin, std::filesystem::directory_iterator()));
    }
    int32_t get(const char* wanted = "k") { return CCONFD_Get(&client, wanted, value, sizeof value); }
    void no_answer(int error)
    {
        printed([&] {
            EXPECT_EQ(get(), CCONFD_NO_ANSWER);
            EXPECT_EQ(errno, error) << strerror(errno);
        });
        EXPECT_STREQ(value, "old");
    }
};

double seconds(auto&& action)
{
    auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

TEST_F(Confd, RequestsAreFramedAndAnsweredOnOneConnection)
{
    Daemon daemon(path, {[](Visit visit) {
                      visit.expect(frame(1, "/etc/web.conf:port"));
                      visit.say(reply(1, 0, "8080"));
                      visit.expect(frame(2, "/etc/web.conf:port\0"
                                            "81"s));
                      visit.say(reply(2));
                      visit.expect(frame(2, "empty\0"s));
                      visit.say(reply(2));
                      visit.expect(frame(3, "cam"));
                      visit.say(reply(3));
                      visit.expect(frame(1, "none"));
                      visit.say(reply(1, -2, "text behind a refusal"));
                      visit.expect(frame(2, "k\0v"s));
                      visit.say(reply(2, -13));
                      visit.expect(frame(1, "nothing"));
                      visit.say(reply(1));
                  }});
    EXPECT_EQ(get("/etc/web.conf:port"), 0);
    EXPECT_STREQ(value, "8080");
    EXPECT_EQ(CCONFD_Set(&client, "/etc/web.conf:port", "81"), 0);
    EXPECT_EQ(CCONFD_Set(&client, "empty", ""), 0);
    EXPECT_EQ(CCONFD_Changed(&client, "cam"), 0);
    EXPECT_EQ(get("none"), CCONFD_NO_KEY);
    EXPECT_EQ(CCONFD_Set(&client, "k", "v"), CCONFD_REFUSED);
    EXPECT_STREQ(value, "8080");
    EXPECT_EQ(get("nothing"), 0);
    EXPECT_STREQ(value, "");
}

TEST_F(Confd, AnAnswerInPiecesIsPutTogether)
{
    Daemon daemon(path, {[](Visit visit) {
                      visit.request();
                      for (char c : notice("a") + reply(1, 0, "whole")) {
                          visit.say(string(1, c));
                          std::this_thread::sleep_for(std::chrono::milliseconds(2));
                      }
                      visit.until_hung_up();
                  }});
    EXPECT_EQ(get(), 0);
    EXPECT_STREQ(value, "whole");
    CCONFD_Close(&client);
}

TEST_F(Confd, ALateAnswerIsNotTakenForTheNextOne)
{
    Daemon daemon(path, {[](Visit visit) {
                             visit.request();
                             visit.say(reply(1, 0, "late").substr(0, 14));
                             visit.until_hung_up();
                             visit.say(reply(1, 0, "late").substr(14));
                         },
                         [](Visit visit) {
                             visit.request();
                             visit.say(reply(1, 0, "in time"));
                         }});
    EXPECT_LT(seconds([&] { no_answer(ETIMEDOUT); }), 60);
    EXPECT_EQ(get(), 0);
    EXPECT_STREQ(value, "in time");
}

// Each notice is on time, the answer never comes.
TEST_F(Confd, AFloodOfNoticesDoesNotHoldTheClient)
{
    Daemon daemon(path, {[](Visit visit) {
                      visit.request();
                      pollfd gone = {visit.fd, POLLIN, 0};
                      while (poll(&gone, 1, 1) == 0) visit.say(notice("again"));
                  }});
    EXPECT_LT(seconds([&] { no_answer(ETIMEDOUT); }), 60);
}

TEST_F(Confd, ALongValueIsPassedOverAndTheNextAnswerIsInPlace)
{
    Daemon daemon(path, {[](Visit visit) {
                      for (size_t length : {15, 16, 2048, CCONFD_FRAME_SIZE - 4, 2047, 2048}) {
                          visit.request();
                          visit.say(reply(1, 0, string(length, 'v')));
                      }
                  }});
    EXPECT_EQ(get(), 0);
    EXPECT_EQ(value, string(15, 'v'));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(get(), CCONFD_TOO_LONG);
    EXPECT_EQ(value, string(15, 'v'));
    char large[4096] = "";
    EXPECT_EQ(CCONFD_Get(&client, "k", large, sizeof large), 0);
    EXPECT_EQ(large, string(2047, 'v'));
    EXPECT_EQ(CCONFD_Get(&client, "k", large, sizeof large), CCONFD_TOO_LONG) << "whatever the room";
}

TEST_F(Confd, NonsenseEndsTheConnection)
{
    const std::vector<string> nonsense = {
        word(1 | CCONFD_REPLY) + word(CCONFD_FRAME_SIZE + 1), // longer than a frame
        word(1 | CCONFD_REPLY) + word(0xFFFFFFFF),
        word(CCONFD_COMMAND_NOTICE) + word(0x80000008),
        notice(string(CCONFD_KEY_SIZE, 'k')),
        notice("a\nb"),
        frame(1 | CCONFD_REPLY, "abc"), // no whole status
        reply(2),                       // to another request
        frame(1, word(0)),              // no reply at all
        reply(1, 0, "a\0b"s),
        reply(1, 0, "a\nb=c"),
    };
    Daemon::Visits visits;
    for (const string& bytes : nonsense)
        visits.push_back([bytes](Visit visit) {
            visit.request();
            visit.say(bytes);
            visit.until_hung_up();
        });
    Daemon daemon(path, visits);
    for (size_t i = 0; i < nonsense.size(); ++i) {
        SCOPED_TRACE(i);
        no_answer(EPROTO);
        EXPECT_EQ(client.fd, -1);
    }
    EXPECT_EQ(daemon.visited, int(nonsense.size())) << "nonsense is not asked for twice";
}

TEST_F(Confd, ADaemonThatDiesInMidReplyIsAskedOnceMore)
{
    auto die = [](const string& last) {
        return [last](Visit visit) {
            visit.request();
            visit.say(last);
        };
    };
    const string whole = reply(1, 0, "alive");
    Daemon daemon(path, {die(""), die(whole), die(whole.substr(0, 5)), die(whole.substr(0, 13)), die(whole)});
    EXPECT_EQ(get(), 0);
    EXPECT_STREQ(value, "alive");
    EXPECT_EQ(daemon.visited, 2);
    strcpy(value, "old");
    no_answer(EPIPE);
    EXPECT_EQ(daemon.visited, 3) << "the second had gone, the third went: no more is tried";
    EXPECT_EQ(get(), 0);
    EXPECT_STREQ(value, "alive");
    EXPECT_EQ(daemon.visited, 5);
}

// The daemon is gone before the request, with and without notices that nobody has read.
TEST_F(Confd, ARestartBetweenRequestsPrintsNothing)
{
    auto serve = [](const string& last) {
        return [last](Visit visit) {
            visit.request();
            visit.say(reply(1, 0, "alive") + last);
        };
    };
    Daemon daemon(path, {serve(""), serve(notice("a")), serve("")});
    for (int i = 1; i <= 3; ++i) {
        EXPECT_EQ(printed([&] { EXPECT_EQ(get(), 0); }), "");
        pollfd gone = {client.fd, POLLRDHUP, 0};
        ASSERT_EQ(poll(&gone, 1, 5000), 1);
    }
    EXPECT_EQ(daemon.visited, 3);
}

TEST_F(Confd, AWatchThatARestartedDaemonRefusesIsTold)
{
    auto answer = [](int32_t status) {
        return [status](Visit visit) {
            visit.expect(frame(4, "cam"));
            visit.say(reply(4, status));
        };
    };
    Daemon daemon(path, {answer(0), answer(-13), [&](Visit visit) {
                             answer(0)(visit);
                             visit.request();
                             visit.say(reply(1, 0, "alive"));
                             visit.until_hung_up();
                         }});
    EXPECT_EQ(CCONFD_Watch(&client, "cam"), 0);
    EXPECT_EQ(CCONFD_NextNotice(&client, key, 5000), CCONFD_REFUSED);
    EXPECT_EQ(CCONFD_NextNotice(&client, key, 5000), CCONFD_REFUSED) << "until a connection that watches";
    EXPECT_EQ(get(), 0);
    EXPECT_EQ(CCONFD_NextNotice(&client, key, 5000), 1);
    EXPECT_STREQ(key, "");
    EXPECT_EQ(CCONFD_NextNotice(&client, key, 0), 0);
    CCONFD_Close(&client);
}

TEST_F(Confd, AfterAFailureNothingIsTriedUntilThePauseIsOver)
{
    client.pause_s = 1;
    string line = printed([&] {
        EXPECT_EQ(get(), CCONFD_NO_ANSWER);
        EXPECT_EQ(errno, ENOENT);
    });
    EXPECT_EQ(line, "[QRN_ConnectUDSSocket] Error Number : 2, Error String : No such file or directory\n");
    Daemon daemon(path, {[](Visit visit) {
                      visit.request();
                      visit.say(reply(1, 0, "here"));
                  }});
    no_answer(EAGAIN);
    EXPECT_EQ(daemon.visited, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    EXPECT_EQ(get(), 0);
    EXPECT_STREQ(value, "here");
}

TEST_F(Confd, AListenerThatDoesNotAcceptIsNotWaitedForForEver)
{
    Fd listener(QRN_BindUDSSocket(path.c_str()));
    ASSERT_EQ(listen(listener.get(), 0), 0);
    Fd first(QRN_ConnectUDSSocket(path.c_str()));
    EXPECT_LT(seconds([&] { no_answer(ETIMEDOUT); }), 60);
}

TEST_F(Confd, NoticesAreKeptInOrderAndTooManyBecomeOne)
{
    Daemon daemon(path, {[](Visit visit) {
                      visit.expect(frame(4, "/etc/"));
                      visit.say(notice("/etc/a") + reply(4) + notice("/etc/b"));
                      visit.request();
                      string many;
                      for (int i = 0; i < CCONFD_PENDING + 3; ++i) many += notice("n" + std::to_string(i));
                      visit.say(many + reply(1, 0, "v"));
                      visit.until_hung_up();
                  }});
    EXPECT_EQ(CCONFD_NextNotice(&client, key, 0), CCONFD_REFUSED) << "none were asked for";
    EXPECT_EQ(CCONFD_Watch(&client, "/etc/"), 0);
    for (const char* expected : {"/etc/a", "/etc/b"}) {
        EXPECT_EQ(CCONFD_NextNotice(&client, key, 1000), 1);
        EXPECT_STREQ(key, expected);
    }
    double waited = seconds([&] { EXPECT_EQ(CCONFD_NextNotice(&client, key, 50), 0); });
    EXPECT_GE(waited, 0.045);
    EXPECT_EQ(get(), 0);
    for (const char* expected : {"", "n9", "n10"}) {
        EXPECT_EQ(CCONFD_NextNotice(&client, key, 0), 1);
        EXPECT_STREQ(key, expected);
    }
    EXPECT_EQ(CCONFD_NextNotice(&client, key, 0), 0);
    CCONFD_Close(&client);
}

TEST_F(Confd, AfterARestartNoticesAreAskedForAgainAndOneTellsThatSomeMayBeLost)
{
    auto serve = [](Visit visit) {
        visit.expect(frame(4, ""));
        visit.say(reply(4) + notice("first"));
        visit.hear(1);
    };
    client.pause_s = 1;
    printed([&] { EXPECT_EQ(CCONFD_Watch(&client, ""), CCONFD_NO_ANSWER); });
    Daemon before(path, {[&](Visit visit) {
                      visit.expect(frame(4, ""));
                      visit.say(reply(4));
                  }});
    // Waits out the pause, finds the daemon, which then goes.
    EXPECT_EQ(CCONFD_NextNotice(&client, key, 5000), 1);
    EXPECT_STREQ(key, "");
    before.stop();
    printed([&] {
        double waited = seconds([&] { EXPECT_EQ(CCONFD_NextNotice(&client, key, 0), CCONFD_NO_ANSWER); });
        EXPECT_EQ(errno, ECONNREFUSED);
        EXPECT_LT(waited, 0.5);
        waited = seconds([&] { EXPECT_EQ(CCONFD_NextNotice(&client, key, 100), CCONFD_NO_ANSWER); });
        EXPECT_EQ(errno, EAGAIN);
        EXPECT_GE(waited, 0.095) << "a caller that loops does not spin";
    });
    Daemon after(path, {serve});
    for (const char* expected : {"", "first"}) {
        EXPECT_EQ(CCONFD_NextNotice(&client, key, 5000), 1);
        EXPECT_STREQ(key, expected);
    }
    CCONFD_Close(&client);
}

// A caller that acts on every notice would never rest.
TEST_F(Confd, ADaemonThatHangsUpBehindEveryWatchIsConnectedToOnceAPause)
{
    auto leave = [](Visit visit) {
        visit.expect(frame(4, ""));
        visit.say(reply(4));
    };
    client.pause_s = 1;
    Daemon daemon(path, {leave, leave, leave});
    EXPECT_EQ(CCONFD_Watch(&client, ""), 0);
    EXPECT_EQ(CCONFD_NextNotice(&client, key, 5000), 1) << "the first time at once";
    EXPECT_EQ(CCONFD_NextNotice(&client, key, 50), CCONFD_NO_ANSWER);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(daemon.visited, 2);
    EXPECT_EQ(CCONFD_NextNotice(&client, key, 5000), 1);
    EXPECT_EQ(daemon.visited, 3);
    CCONFD_Close(&client);
}

TEST_F(Confd, ArgumentsThatNoFrameCanCarryAreRefusedUnsent)
{
    const string longest(CCONFD_KEY_SIZE - 1, 'k'), longer = longest + 'k', big(CCONFD_VALUE_SIZE - 1, 'v');
    for (const char* bad : {"", "a\nb", "a\tb", "\x7f", longer.c_str()})
        EXPECT_EQ(get(bad), CCONFD_REFUSED) << bad;
    EXPECT_EQ(CCONFD_Get(nullptr, "k", value, 1), CCONFD_REFUSED);
    EXPECT_EQ(CCONFD_Get(&client, nullptr, value, 1), CCONFD_REFUSED);
    EXPECT_EQ(CCONFD_Get(&client, "k", nullptr, 1), CCONFD_REFUSED);
    EXPECT_EQ(CCONFD_Get(&client, "k", value, 0), CCONFD_REFUSED);
    EXPECT_EQ(CCONFD_Set(&client, "k", "a\nport=81"), CCONFD_REFUSED);
    EXPECT_EQ(CCONFD_Set(&client, "k", (big + 'v').c_str()), CCONFD_REFUSED);
    EXPECT_EQ(CCONFD_Set(&client, "k", nullptr), CCONFD_REFUSED);
    EXPECT_EQ(CCONFD_Watch(&client, longer.c_str()), CCONFD_REFUSED);
    EXPECT_EQ(CCONFD_Changed(&client, ""), CCONFD_REFUSED);
    EXPECT_EQ(CCONFD_Init(nullptr, "/x"), CCONFD_REFUSED);
    EXPECT_EQ(client.fd, -1);
    Daemon daemon(path, {[&](Visit visit) {
                      visit.expect(frame(2, longest + '\0' + big));
                      visit.say(reply(2));
                  }});
    EXPECT_EQ(CCONFD_Set(&client, longest.c_str(), big.c_str()), 0);
    CCONFD_Close(&client);
    EXPECT_EQ(CCONFD_Init(&client, string(108, 'p').c_str()), CCONFD_REFUSED);
    EXPECT_EQ(get(), CCONFD_NO_ANSWER);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(CCONFD_Init(&client, nullptr), 0);
    EXPECT_STREQ(client.path, "/var/confd.sock");
}
