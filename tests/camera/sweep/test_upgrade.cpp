// The promise of both upgrade applets: whatever single call fails and wherever the power fails, each kept file is
// whole afterwards, the user's or the package's own, and what was not kept is named in the log. Every call of
// the settings' phases fails in turn, every copying command leaves an empty or a half file in turn, and the power
// fails before every call and inside the writes to the flash.
#include "tests/support/firmware.hpp"

#include <algorithm>
#include <atomic>
#include <map>
#include <thread>

namespace {

using Texts = std::map<std::string, std::string>; // what each file under /etc holds

struct Kept {
    const char* file;
    const char* key; // null: the whole file is kept
    const char* user;
};
constexpr Kept kKept[] = {
    {"network/network.conf", nullptr, "ip_address=10.9.8.7\nnetmask=255.0.0.0\n"},
    {"network/wireless.conf", nullptr, "ssid=\"mine\"\nchannel=11\n"},
    {"system.conf", nullptr, "device_name=gate\nlocation=north\n"},
    {"serverinfo.conf", nullptr, "serial_no=4711\nregion=1\n"},
    {"cam_model.conf", nullptr, "cam_model=ZM131\nhw=2\n"},
    {"tcp_server.conf", "server_port", "4321"},
    {"stream.conf", "stream_1_port", "7001"},
    {"stream.conf", "stream_2_port", "7002"},
    {"stream.conf", "stream_3_port", "7003"},
    {"videodecoder.conf", "video_type", "1"},
    {"web.conf", "port", "8080"},
};

std::string of_package(const std::string& file)
{
    for (auto& [name, content] : kNewSettings)
        if (name == file) return content;
    return "";
}

struct Case {
    int call;
    const char* how;
    std::string what; // the call, or a line of the fault plan
};

// What one run left: the files, and what it said on standard error.
struct Left {
    Texts settings;
    std::string err;
};

// Calls of the sweep in one camera, which is brought back to the same state for each.
class Bench {
public:
    explicit Bench(std::string applet) : applet_(std::move(applet))
    {
        // A writer that died in the old firmware may have left its lock in the image of the new one.
        write_file(camera_.folder() / "etc/temp.conf", "half");
        Firmware firmware = make_firmware(camera_.folder());
        firmware.kernel = Kernel{}.image();
        firmware.root = "root";
        package_ = firmware.pack();
        std::string line = "cp -a /etc /tmp/user; cd /tmp/user;";
        for (const Kept& kept : kKept)
            if (kept.key)
                line += std::string("sed -i 's/^") + kept.key + "=.*/" + kept.key + "=" + kept.user + "/' " +
                        kept.file + ";";
            else
                line += std::string("printf '") + kept.user + "' > " + kept.file + ";";
        camera_.shell(line);
        fs::rename(camera_.root("/tmp/user"), camera_.root("/user"));
        power_up();
    }

    // One boot for all: after each run a line with the case's number, its words, and the settings.
    std::vector<Left> run(const std::vector<Case>& cases)
    {
        std::string script = "export FAIL_LOOP=1\n";
        for (const Case& c : cases) script += reset() + upgrade(c) + " 2>/tmp/err >/dev/null\n" + show();
        write_file(camera_.root("/tmp/script"), script);
        std::vector<Left> all;
        parse(boot("sh /tmp/script").out, all);
        return all;
    }

    // Cuts the power and gives the same command again; what was in memory is gone, the package has come again.
    // Empty when there was no cut.
    std::vector<Left> cut(const Case& c)
    {
        power_up();
        if (c.call < 0) camera_.faults(c.what);
        Outcome first = boot(reset() + upgrade(c));
        EXPECT_EQ(first.ending, "powercut") << c.what;
        power_up();
        std::vector<Left> all;
        parse(boot("FAIL_LOOP=1 " + upgrade({-1, "", ""}) + " 2>/tmp/err >/dev/null\n" + show()).out, all);
        return all;
    }

    [[nodiscard]] Lines calls() const
    {
        std::istringstream in(read_file(camera_.root("/tmp/calls")));
        Lines lines;
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        return lines;
    }

private:
    static std::string reset() { return "rm -rf /tmp/*.conf /etc/*; cp -a /user/. /etc/\n"; }
    // Each line of each file with the file's name in front.
    static std::string show()
    {
        return "grep -q ' /etc ' /proc/mounts || mount -t jffs2 /dev/mtdblock3 /etc\n"
               "echo RUN; cat /tmp/err; grep -r '' /etc; find /etc -type f -size 0 -printf '%p:\\n'\n";
    }
    [[nodiscard]] std::string upgrade(const Case& c) const
    {
        return "LD_PRELOAD=\"/run/bin/libsweep_faults.so $LD_PRELOAD\" FAIL_HOW=" + std::string(c.how) +
               " FAIL_CALL=" + std::to_string(c.call) + " " + applet_;
    }
    Outcome boot(const std::string& script)
    {
        return camera_.run({"sh", "-c", script}, {"--bind", SWEEP_FAULTS, "--timeout", "250"});
    }
    void power_up()
    {
        fs::remove_all(camera_.root("/tmp"));
        write_file(camera_.root("/tmp/flash3"), package_);
        camera_.faults("");
    }
    static void parse(const std::string& out, std::vector<Left>& all)
    {
        std::istringstream in(out);
        for (std::string line; std::getline(in, line);) {
            size_t colon = line.find(':');
            if (line == "RUN")
                all.emplace_back();
            else if (line.rfind("/etc/", 0) == 0 && colon != std::string::npos)
                all.back().settings[line.substr(5, colon - 5)] += line.substr(colon + 1) + "\n";
            else if (!all.empty())
                all.back().err += line + "\n";
        }
    }

    Camera camera_{{"--size", "mtd1=64K", "--size", "mtd2=64K"}}; // less to erase
    const std::string applet_;
    std::string package_;
};

bool named(const std::string& err, const Kept& kept)
{
    return err.find(std::string("/etc/") + kept.file + (kept.key ? std::string(": ") + kept.key : " ")) !=
           std::string::npos;
}

// After a cut nothing is said of what is named: the second run finds what the first has left.
void expect_whole(const Left& left, const std::string& what, bool after_cut)
{
    for (const Kept& kept : kKept) {
        auto found = left.settings.find(kept.file);
        ASSERT_NE(found, left.settings.end()) << kept.file << " is missing: " << what;
        const std::string& text = found->second;
        std::string setting = "\n" + std::string(kept.key ? kept.key : "") + "=" + kept.user + "\n";
        bool users = kept.key ? ("\n" + text).find(setting) != std::string::npos : text == kept.user;
        EXPECT_TRUE(users || kept.key || text == of_package(kept.file)) << kept.file << ": " << what << text;
        EXPECT_TRUE(after_cut || users != named(left.err, kept))
            << kept.file << ": " << what << left.err << text;
    }
    for (auto& [file, text] : left.settings) {
        fs::path name = file;
        if (left.err.find("could not be mounted") != std::string::npos) continue; // as in the package
        bool temporary = name == "temp.conf" || name.extension() == ".new" || name.extension() == ".kept";
        EXPECT_FALSE(temporary) << file << ": " << what;
    }
}

// Runs the cases on some cameras at once: a run waits more than it works.
template<class Check> void sweep(const std::string& applet, const std::vector<Case>& cases, Check check)
{
    constexpr size_t kCameras = 4, kChunk = 16;
    std::atomic<size_t> next = 0;
    std::vector<std::thread> threads;
    for (size_t i = 0; i < kCameras; ++i)
        threads.emplace_back([&] {
            Bench bench(applet);
            for (size_t n; (n = next.fetch_add(kChunk)) < cases.size();)
                check(bench, std::vector<Case>(cases.begin() + long(n),
                                               cases.begin() + long(std::min(n + kChunk, cases.size()))));
        });
    for (std::thread& thread : threads) thread.join();
}

class UpgradeSweep : public testing::TestWithParam<const char*> {
protected:
    UpgradeSweep()
    {
        Bench bench(GetParam());
        auto left = bench.run({{-1, "", ""}});
        calls = bench.calls();
        EXPECT_EQ(left.at(0).err, "");
        expect_whole(left.at(0), "all goes well", false);
    }
    Lines calls; // of a run in which all goes well
};

} // namespace

TEST_P(UpgradeSweep, ASingleFailureLosesNothingWithoutAWord)
{
    std::vector<Case> cases;
    for (size_t i = 0; i < calls.size(); ++i) {
        cases.push_back({int(i), "error", calls[i]});
        if (calls[i].find("cp ") == std::string::npos) continue;
        cases.push_back({int(i), "empty", calls[i]});
        cases.push_back({int(i), "half", calls[i]});
    }
    ASSERT_GT(cases.size(), 200u);
    sweep(GetParam(), cases, [](Bench& bench, const std::vector<Case>& chunk) {
        std::vector<Left> left = bench.run(chunk);
        ASSERT_EQ(left.size(), chunk.size());
        for (size_t i = 0; i < chunk.size(); ++i)
            expect_whole(left[i], chunk[i].how + (" " + chunk[i].what) + "\n", false);
    });
}

TEST_P(UpgradeSweep, APowerCutAndTheSameCommandAgainLeaveWholeFiles)
{
    std::vector<Case> cases;
    for (size_t i = 0; i < calls.size(); ++i) {
        for (const char* change : {"system", "umount", "unlink", "rename", "write"})
            if (calls[i].rfind(change, 0) == 0) cases.push_back({int(i), "cut", calls[i]});
        if (calls[i].find("cp ") != std::string::npos) cases.push_back({int(i), "half-cut", calls[i]});
    }
    for (const char* plan :
         {"mtd1 write 0", "mtd2 write 0", "mtd3 erase 0", "mtd3 erase 5", "mtd3 write 0", "mtd3 write 1",
          "mtd3 write 2", "mtd3 write 3", "mtd3 write 4", "mtd3 write 6", "mtd3 write 100", "mtd3 read 0"})
        cases.push_back({-1, "", std::string(plan) + " 1 powercut\n"});
    ASSERT_GT(cases.size(), 50u);
    sweep(GetParam(), cases, [](Bench& bench, const std::vector<Case>& chunk) {
        for (const Case& c : chunk) {
            std::vector<Left> left = bench.cut(c);
            ASSERT_EQ(left.size(), 1u) << c.what;
            expect_whole(left[0], c.how + (" " + c.what) + "\n", true);
        }
    });
}

INSTANTIATE_TEST_SUITE_P(Applets, UpgradeSweep, testing::Values("upgrade", "xupgrade"));
