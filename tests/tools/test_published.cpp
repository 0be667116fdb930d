// A camera that the host reaches, and what the tools write for programs: each form against its schema.
#include "tests/support/camera.hpp"

#include <chrono>
#include <gmock/gmock.h>
#include <thread>

using testing::HasSubstr;

namespace {

constexpr char kEcho[] = R"(import socket
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
s.bind(('127.0.0.1', 6000))
while True:
    data, peer = s.recvfrom(2000)
    s.sendto(data.upper(), peer)
)";

// Serves audio on 5000, answers datagrams on 6000, and ends with a long answer on 7000.
constexpr char kServe[] = "test_audio 5000 & /usr/bin/python3 /run/bin/echo.py &\n"
                          "busybox nc -l -p 7000 -e head -c 3000000 /dev/zero\n";

class Published : public testing::Test {
protected:
    Published()
    {
        const std::string folder = camera.folder().string();
        write_file(camera.folder() / "echo.py", kEcho);
        write_file(camera.folder() / "serve", kServe);
        run = std::thread([folder, this] {
            ended =
                say("cd " + folder + "; " + VCAM +
                    " run camera --loop 40 --publish 0:5000 --publish 0:6000 --publish 0:7000 --bind serve "
                    "--bind echo.py -- sh /run/bin/serve > out 2> said");
        });
        while (port(7000).empty()) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }

    // Of the host, as vcam has said.
    [[nodiscard]] std::string port(int inside) const
    {
        const std::string said = read_file(camera.folder() / "said");
        const size_t at = said.find(" leads to the camera's port " + std::to_string(inside) + "\n");
        if (at == std::string::npos) return "";
        const size_t colon = said.rfind(':', at);
        return said.substr(colon + 1, at - colon - 1);
    }
    [[nodiscard]] Said in_bash(const std::string& line) const
    {
        return say("cd " + camera.folder().string() + "; bash -c '" + line + "' 2>&1");
    }
    void expect_valid(const std::string& command, const std::string& schema) const
    {
        const Said said = in_bash(command + " > json; python3 -W ignore -m jsonschema -i json " SCHEMAS "/" +
                                  schema + ".json");
        EXPECT_EQ(said.text, "") << command << "\n" << read_file(camera.folder() / "json");
        EXPECT_EQ(said.status, 0) << command;
    }

    Camera camera;
    Said ended;
    std::thread run;
};

} // namespace

TEST_F(Published, ACameraTalksWithTheHostAndItsJsonFitsTheSchemas)
{
    const std::string station = std::string(ZEP_AUDIO) + " ", audio = " --limit 100 127.0.0.1 " + port(5000);
    EXPECT_THAT(in_bash(station + "record -t 0.4" + audio + " heard.wav").text, HasSubstr("heard.wav: 0."));
    expect_valid(station + "status --json" + audio, "zep-audio-status");
    expect_valid(station + "verdict --json" + audio, "zep-audio-verdict");
    EXPECT_EQ(in_bash("exec 3<>/dev/udp/127.0.0.1/" + port(6000) +
                      "; until timeout 1 head -n 1 <&3 | grep OUT; do echo out >&3; done")
                  .text,
              "OUT\n");
    EXPECT_THAT(in_bash("exec 3<>/dev/tcp/127.0.0.1/" + port(6000) + "; cat <&3").text,
                HasSubstr("Connection reset by peer"));
    // What the camera sends before its end arrives.
    EXPECT_EQ(in_bash("cat < /dev/tcp/127.0.0.1/" + port(7000) + " | wc -c").text, "3000000\n");
    run.join();
    EXPECT_EQ(ended.status, 0) << read_file(camera.folder() / "said");

    const std::string vcam = std::string(VCAM) + " ", fwpkg = std::string(FWPKG) + " ";
    EXPECT_EQ(in_bash(vcam + "run camera -- sh -c \"logger hello; echo x=1 > /etc/x.conf\"; " + vcam +
                      "fault camera \"umount 0 1 EBUSY\"; echo x > image; " + fwpkg +
                      "build --force --manifest manifest -o package image image image 2>/dev/null; "
                      "head -c 700 package > short; mkimage -A arm -C none -d image kernel > /dev/null; " +
                      fwpkg + "build --force -o good kernel image image 2>/dev/null")
                  .text,
              "");
    const std::pair<std::string, const char*> forms[] = {
        {vcam + "status --json camera", "vcam-status"},
        {vcam + "diff --json camera", "vcam-diff"},
        {vcam + "journal --json camera", "vcam-journal"},
        {vcam + "log --json camera", "vcam-log"},
        {vcam + "fault --json camera", "vcam-fault"},
        {fwpkg + "info --json good", "fwpkg-info"},
        {fwpkg + "info --json short", "fwpkg-info"},
        {fwpkg + "check --json package", "fwpkg-check"},
        {fwpkg + "check --json short", "fwpkg-check"},
        {"cat manifest", "fwpkg-manifest"},
#ifdef ZEP_STATION
        {ZEP_STATION " run vcam:camera --yes -v --json -", "zep-station"},
#endif
    };
    for (const auto& [command, schema] : forms) expect_valid(command, schema);
}
