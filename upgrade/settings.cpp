// Saves the settings files and service ports before an upgrade and puts them back after it.
#include "upgrade/settings.hpp"

#include "common/cutil_conf.h"
#include "common/base/parse_int.hpp"
#include "common/base/shell.hpp"

#include <cstdio>
#include <unistd.h>

namespace zep {
namespace {

constexpr const char* kSaveCommands[] = {
    "/bin/cp -dpR /etc/network/network.conf /tmp/network.conf",
    "cp -dpR /etc/network/wireless.conf /tmp/wireless.conf",
    "cp -dpR /etc/system.conf /tmp/system.conf",
    "cp -dpR /etc/serverinfo.conf /tmp/serverinfo.conf",
    "cp -dpR /etc/cam_model.conf /tmp/cam_model.conf",
};

constexpr const char* kRestoreCommands[] = {
    "/bin/rm -f /etc/network/network.conf",
    "/bin/cp -dpR /tmp/network.conf /etc/network/network.conf",
    "/bin/cp -dpR /tmp/wireless.conf /etc/network/wireless.conf",
    "/bin/cp -dpR /tmp/system.conf /etc/system.conf",
    "/bin/cp -dpR /tmp/serverinfo.conf /etc/serverinfo.conf",
    "/bin/cp -dpR /tmp/cam_model.conf /etc/cam_model.conf",
};

struct Number {
    const char* file; // null: that of the web server
    const char* key;
    int otherwise; // when the file cannot be read
};

constexpr Number kNumbers[] = {
    {"/etc/tcp_server.conf", "server_port", 1852}, {"/etc/stream.conf", "stream_1_port", 1852},
    {"/etc/stream.conf", "stream_2_port", 1853},   {"/etc/stream.conf", "stream_3_port", 1854},
    {"/etc/videodecoder.conf", "video_type", 0},   {nullptr, nullptr, 80},
};
static_assert(sizeof kNumbers / sizeof kNumbers[0] == sizeof KeptSettings{}.value / sizeof(int));

struct Place {
    const char* file;
    const char* key;
};

Place place(const Number& number, const KeptSettings& kept)
{
    if (number.file) return {number.file, number.key};
    return {kept.web_file, kept.web_key};
}

} // namespace

void save_settings(KeptSettings& kept)
{
    for (const char* command : kSaveCommands) run_shell(command);
    bool webs = access("/bin/webs", R_OK) == 0;
    kept.web_file = webs ? "/etc/web.conf" : "/etc/lighttpd/lighttpd.conf";
    kept.web_key = webs ? "port" : "server.port";
    int* value = kept.value;
    for (const Number& number : kNumbers) {
        char text[CUTIL_CONF_VALUE_SIZE];
        Place from = place(number, kept);
        bool read = CUTIL_GetConfValue(from.file, from.key, text) == 0;
        *value++ = read ? parse_int(text) : number.otherwise;
    }
}

void restore_settings(const KeptSettings& kept)
{
    // A writer of the old system may have left its lock in the new image, and every value
    // would be refused.
    unlink(CUTIL_CONF_TEMP_PATH);
    for (const char* command : kRestoreCommands) run_shell(command);
    const int* value = kept.value;
    for (const Number& number : kNumbers) {
        char text[16];
        snprintf(text, sizeof text, "%d", *value++);
        Place to = place(number, kept);
        CUTIL_SetConfValue(to.file, to.key, text);
    }
}

} // namespace zep
