// The client of the configuration daemon against one that the test plays.
#include "common/cconfd.h"
#include "common/qrn_uds.h"
#include "tests/support/socket_helpers.hpp"
#include "tests/support/temp_folder.hpp"

#include <cstring>
#include <functional>
#include <optional>
#include <poll.h>
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

void say(int fd, const string& bytes) { (void)!::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL); }

string hear(int fd, size_t length)
{
    string bytes(length, '\0');
    ssize_t got = length > 0 ? recv(fd, bytes.data(), length, MSG_WAITALL) : 0;
    bytes.resize(size_t(std::max<ssize_t>(got, 0)));
    return bytes;
}

// The next request; empty when the client has hung up.
string request(int fd)
{
    string header = hear(fd, 8);
    if (header.size() < 8) return "";
    uint32_t length;
    memcpy(&length, header.data() + 4, 4);
    return header + hear(fd, length);
}

// What the daemon does with one connection.
using Visit = std::function<void(int fd)>;

// Expects requests, an empty text stands for any, and answers each; then leaves, or stays until the client hangs up.
struct Turn {
    string wanted, answer;
};
Visit turns(const std::vector<Turn>& list, bool stay = false)
{
    return [list, stay](int fd) {
        for (const Turn& turn : list) {
            const string got = request(fd);
            EXPECT_TRUE(turn.wanted.empty() || got == turn.wanted) << got;
            say(fd, turn.answer);
        }
        while (stay && !request(fd).empty()) {
        }
    };
}
Visit stays(const string& answer) { return turns({{"", answer}}, true); }
Visit leaves(const string& answer) { return turns({{"", answer}}); }

// Answers one visitor after the other, then is gone.
class Daemon {
public:
    Daemon(const string& path, std::vector<Visit> visits) : listener_(QRN_BindUDSSocket(path.c_str()))
    {
        thread_ = std::thread([this, visits] {
            for (const Visit& visit : visits) {
                Fd peer(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
                if (!peer) return;
                ++visited;
                visit(peer.get());
            }
            shutdown(listener_.get(), SHUT_RDWR);
        });
    }
    ~Daemon()
    {
        shutdown(listener_.get(), SHUT_RDWR);
        thread_.join();
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
    std::optional<Daemon> daemon;
    CCONFD_CLIENT_S client;
    char value[4096] = "old";
    char key[CCONFD_KEY_SIZE] = "";

    Confd()
    {
        EXPECT_EQ(CCONFD_Init(&client, path.c_str()), 0);
        client.limit_s = 600;
        client.pause_s = 0;
    }
    ~Confd() override
    {
        CCONFD_Close(&client);
        daemon.reset();
        EXPECT_EQ(open_files(), open_before) << "a descriptor is left open";
    }
    static size_t open_files()
    {
        auto begin = std::filesystem::directory_iterator("/proc/self/fd");
        return size_t(std::distance(begin, std::filesystem::directory_iterator()));
    }
    void serve(std::vector<Visit> visits) { daemon.emplace(path, std::move(visits)); }
    int32_t get(const char* wanted = "k", int32_t room = 16)
    {
        return CCONFD_Get(&client, wanted, value, room);
    }
    void gets(const string& expected)
    {
        EXPECT_EQ(get(), 0);
        EXPECT_EQ(value, expected);
    }
    void no_answer(int error)
    {
        strcpy(value, "old");
        printed([&] {
            EXPECT_EQ(get(), CCONFD_NO_ANSWER);
            EXPECT_EQ(errno, error) << strerror(errno);
        });
        EXPECT_STREQ(value, "old");
    }
    int32_t next(int32_t timeout_ms = 600'000) { return CCONFD_NextNotice(&client, key, timeout_ms); }
    void notices(std::initializer_list<const char*> expected)
    {
        for (const char* text : expected) {
            EXPECT_EQ(next(), 1);
            EXPECT_STREQ(key, text);
        }
    }
    void no_notice(int32_t timeout_ms, int error)
    {
        printed([&] { EXPECT_EQ(next(timeout_ms), CCONFD_NO_ANSWER); });
        EXPECT_EQ(errno, error);
    }
};

const string kWatchAll = frame(4, "");

} // namespace

TEST_F(Confd, RequestsAreFramedAndAnsweredOnOneConnection)
{
    serve({turns({{frame(1, "/etc/web.conf:port"), reply(1, 0, "8080")},
                  {frame(2, "web.conf:port\0"s + "81"), reply(2)},
                  {frame(2, "empty\0"s), reply(2)},
                  {frame(3, "cam"), reply(3)},
                  {frame(1, "none"), reply(1, -2, "text behind a refusal")},
                  {frame(2, "k\0v"s), reply(2, -13)},
                  {frame(1, "nothing"), reply(1)}})});
    EXPECT_EQ(get("/etc/web.conf:port"), 0);
    EXPECT_STREQ(value, "8080");
    EXPECT_EQ(CCONFD_Set(&client, "web.conf:port", "81"), 0);
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
    serve({[](int fd) {
        request(fd);
        for (char c : notice("a") + reply(1, 0, "whole")) {
            say(fd, string(1, c));
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }});
    gets("whole");
}

// Each notice is on time, the answer never comes; half an answer; an answer to the request before.
TEST_F(Confd, NeitherAFloodOfNoticesNorHalfAnAnswerHoldsTheClient)
{
    serve({[](int fd) {
               request(fd);
               pollfd gone = {fd, POLLIN, 0};
               while (poll(&gone, 1, 1) == 0) say(fd, notice("again"));
           },
           stays(reply(1, 0, "late").substr(0, 14)), leaves(reply(1, 0, "in time"))});
    client.limit_s = 1;
    for (int i = 0; i < 2; ++i) no_answer(ETIMEDOUT);
    client.limit_s = 600;
    gets("in time");
}

TEST_F(Confd, ALongValueIsPassedOverAndTheNextAnswerIsInPlace)
{
    const struct {
        size_t length;
        int32_t room, result;
    } cases[] = {{15, 16, 0},
                 {16, 16, CCONFD_TOO_LONG},
                 {2048, 16, CCONFD_TOO_LONG},
                 {CCONFD_FRAME_SIZE - 4, 16, CCONFD_TOO_LONG},
                 {2047, 4096, 0},
                 {2048, 4096, CCONFD_TOO_LONG}};
    std::vector<Turn> list;
    for (const auto& c : cases) list.push_back({"", reply(1, 0, string(c.length, 'v'))});
    serve({turns(list)});
    for (const auto& c : cases) {
        const string before = value;
        EXPECT_EQ(get("k", c.room), c.result) << c.length;
        EXPECT_EQ(value, c.result == 0 ? string(c.length, 'v') : before);
    }
}

TEST_F(Confd, NonsenseEndsTheConnectionAndIsNotAskedForTwice)
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
    std::vector<Visit> visits;
    for (const string& bytes : nonsense) visits.push_back(stays(bytes));
    serve(visits);
    for (size_t i = 0; i < nonsense.size(); ++i) {
        SCOPED_TRACE(i);
        no_answer(EPROTO);
        EXPECT_EQ(client.fd, -1);
        EXPECT_EQ(daemon->visited, int(i + 1));
    }
}

TEST_F(Confd, ADaemonThatDiesInMidReplyIsAskedOnceMore)
{
    const string whole = reply(1, 0, "alive");
    serve(
        {leaves(""), leaves(whole), leaves(whole.substr(0, 5)), leaves(whole.substr(0, 13)), leaves(whole)});
    gets("alive");
    EXPECT_EQ(daemon->visited, 2);
    no_answer(EPIPE);
    EXPECT_EQ(daemon->visited, 3) << "the second had gone, the third went: no more is tried";
    gets("alive");
    EXPECT_EQ(daemon->visited, 5);
}

// The daemon is gone before the request, with and without notices that nobody has read.
TEST_F(Confd, ARestartBetweenRequestsPrintsNothing)
{
    const string alive = reply(1, 0, "alive");
    serve({leaves(alive), leaves(alive + notice("a")), leaves(alive)});
    for (int i = 1; i <= 3; ++i) {
        EXPECT_EQ(printed([&] { gets("alive"); }), "");
        pollfd gone = {client.fd, POLLRDHUP, 0};
        ASSERT_EQ(poll(&gone, 1, -1), 1);
    }
    EXPECT_EQ(daemon->visited, 3);
}

TEST_F(Confd, AWatchThatARestartedDaemonRefusesIsTold)
{
    const Turn good = {frame(4, "cam"), reply(4)};
    serve({turns({good}), turns({{good.wanted, reply(4, -13)}}),
           turns({good, {"", reply(1, 0, "alive")}}, true)});
    EXPECT_EQ(CCONFD_Watch(&client, "cam"), 0);
    EXPECT_EQ(next(), CCONFD_REFUSED);
    EXPECT_EQ(next(), CCONFD_REFUSED) << "until a connection that watches";
    gets("alive");
    notices({""});
    EXPECT_EQ(next(0), 0);
}

TEST_F(Confd, AfterAFailureNothingIsTriedUntilThePauseIsOver)
{
    client.pause_s = 600;
    EXPECT_EQ(printed([&] { EXPECT_EQ(get(), CCONFD_NO_ANSWER); }),
              "[QRN_ConnectUDSSocket] Error Number : 2, Error String : No such file or directory\n");
    EXPECT_EQ(errno, ENOENT);
    serve({leaves(reply(1, 0, "here"))});
    no_answer(EAGAIN);
    EXPECT_EQ(daemon->visited, 0);
    client.retry_ms -= 600'000;
    gets("here");
}

TEST_F(Confd, AListenerThatDoesNotAcceptIsNotWaitedForForEver)
{
    Fd listener(QRN_BindUDSSocket(path.c_str()));
    ASSERT_EQ(listen(listener.get(), 0), 0);
    Fd first(QRN_ConnectUDSSocket(path.c_str()));
    client.limit_s = 1;
    no_answer(ETIMEDOUT);
}

TEST_F(Confd, NoticesAreKeptInOrderAndTooManyBecomeOne)
{
    string many;
    for (int i = 0; i < CCONFD_PENDING + 3; ++i) many += notice("n" + std::to_string(i));
    serve({turns(
        {{frame(4, "/etc/"), notice("/etc/a") + reply(4) + notice("/etc/b")}, {"", many + reply(1, 0, "v")}},
        true)});
    EXPECT_EQ(next(0), CCONFD_REFUSED) << "none were asked for";
    EXPECT_EQ(CCONFD_Watch(&client, "/etc/"), 0);
    notices({"/etc/a", "/etc/b"});
    EXPECT_GE(seconds_of([&] { EXPECT_EQ(next(50), 0); }), 0.045);
    gets("v");
    notices({"", "n9", "n10"});
    EXPECT_EQ(next(0), 0);
}

TEST_F(Confd, AfterARestartNoticesAreAskedForAgainAndOneTellsThatSomeMayBeLost)
{
    client.pause_s = 1;
    printed([&] { EXPECT_EQ(CCONFD_Watch(&client, ""), CCONFD_NO_ANSWER); });
    serve({turns({{kWatchAll, reply(4)}})});
    notices({""}); // waits out the pause, finds the daemon, which then goes
    daemon.reset();
    client.pause_s = 600;
    no_notice(0, ECONNREFUSED);
    EXPECT_GE(seconds_of([&] { no_notice(100, EAGAIN); }), 0.095) << "a caller that loops does not spin";
    client.retry_ms -= 600'000;
    serve({turns({{kWatchAll, reply(4) + notice("first")}}, true)});
    notices({"", "first"});
}

// A caller that acts on every notice would never rest.
TEST_F(Confd, ADaemonThatHangsUpBehindEveryWatchIsConnectedToOnceAPause)
{
    const Visit leave = turns({{kWatchAll, reply(4)}});
    client.pause_s = 600;
    serve({leave, leave, leave});
    EXPECT_EQ(CCONFD_Watch(&client, ""), 0);
    notices({""}); // the first time at once
    no_notice(50, EAGAIN);
    EXPECT_EQ(daemon->visited, 2);
    client.retry_ms -= 600'000;
    notices({""});
    EXPECT_EQ(daemon->visited, 3);
}

TEST_F(Confd, ArgumentsThatNoFrameCanCarryAreRefusedUnsent)
{
    const string longest(CCONFD_KEY_SIZE - 1, 'k'), longer = longest + 'k';
    const string big(CCONFD_VALUE_SIZE - 1, 'v'), bigger = big + 'v';
    for (const char* bad : {"", "a\nb", "a\tb", "\x7f", longer.c_str(), static_cast<const char*>(nullptr)})
        EXPECT_EQ(get(bad), CCONFD_REFUSED) << bad;
    EXPECT_EQ(get("k", 0), CCONFD_REFUSED);
    EXPECT_EQ(CCONFD_Get(nullptr, "k", value, 1), CCONFD_REFUSED);
    EXPECT_EQ(CCONFD_Get(&client, "k", nullptr, 1), CCONFD_REFUSED);
    for (const char* bad : {"a\nport=81", bigger.c_str(), static_cast<const char*>(nullptr)})
        EXPECT_EQ(CCONFD_Set(&client, "k", bad), CCONFD_REFUSED);
    EXPECT_EQ(CCONFD_Watch(&client, longer.c_str()), CCONFD_REFUSED);
    EXPECT_EQ(CCONFD_Changed(&client, ""), CCONFD_REFUSED);
    EXPECT_EQ(CCONFD_Init(nullptr, "/x"), CCONFD_REFUSED);
    EXPECT_EQ(client.fd, -1);
    serve({turns({{frame(2, longest + '\0' + big), reply(2)}})});
    EXPECT_EQ(CCONFD_Set(&client, longest.c_str(), big.c_str()), 0);
    CCONFD_Close(&client);
    EXPECT_EQ(CCONFD_Init(&client, string(108, 'p').c_str()), CCONFD_REFUSED);
    no_answer(ENAMETOOLONG);
    EXPECT_EQ(CCONFD_Init(&client, nullptr), 0);
    EXPECT_STREQ(client.path, "/var/confd.sock");
}
