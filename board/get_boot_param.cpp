// get_boot_param: MAC address, serial number and product code for the start-up scripts.
#include "board/applets.h"
#include "board/bootenv.h"

#include "common/base/shell.hpp"

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

constexpr char kError[] = "\033[1;31m";
constexpr char kInfo[] = "\033[1;32m";
constexpr char kEnd[] = "\n\033[0;39m";

constexpr char kDefaultMac[] = "02:11:22:00:00:00";

// Characters that are kept of each value: a MAC address as text, the digits of a serial number, and room for any
// product code. The reader itself keeps 255.
constexpr uint32_t kMacLimit = 17;
constexpr uint32_t kSerialLimit = 10;
constexpr uint32_t kProductLimit = 512;
static_assert(sizeof kDefaultMac == kMacLimit + 1);

// A value and a path, each character of which may get a backslash, and what stands around them: the command, the
// name, the redirection and the quotes have fewer than 64 characters.
constexpr size_t kAround = 64;
constexpr size_t kCommandLine = 2 * kProductLimit + 2 * size_t(PATH_MAX) + kAround;

// Appends `text`, with a backslash before each character of `special`, to what `line` holds.
void append_escaped(char* line, size_t size, const char* text, const char* special)
{
    size_t used = strlen(line);
    for (; *text && used + 2 < size; ++text) {
        if (strchr(special, *text)) line[used++] = '\\';
        line[used++] = *text;
    }
    line[used] = '\0';
}

bool plain_path(const char* path)
{
    constexpr char kPlain[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_./-";
    return path[strspn(path, kPlain)] == '\0' && *path != '\0';
}

// Runs: echo "NAME=value" > path. Plain values and paths stand as they are; what the shell would
// interpret is escaped, so that the file receives the bytes of the environment and nothing runs. Some
// shells' echo interprets backslashes once more: a value that has some is printed instead.
void write_line(const char* name, const char* value, const char* redirection, const char* path)
{
    char line[kCommandLine];
    const char* command = strchr(value, '\\') ? "printf '%s\\n'" : "echo";
    snprintf(line, sizeof line, "%s \"%s=", command, name);
    append_escaped(line, sizeof line, value, "\"$`\\");
    append_escaped(line, sizeof line, "\" ", "");
    append_escaped(line, sizeof line, redirection, "");
    append_escaped(line, sizeof line, " ", "");
    if (plain_path(path)) {
        append_escaped(line, sizeof line, path, "");
    } else {
        append_escaped(line, sizeof line, "\"", "");
        append_escaped(line, sizeof line, path, "\"$`\\");
        append_escaped(line, sizeof line, "\"", "");
    }
    zep::run_shell(line);
}

} // namespace

int get_boot_param_main(int argc, char** argv)
{
    if (argc != 2) {
        printf("%s[GET_BOOT_PARAM] ERROR ! argc is %d\n%s", kError, argc, kEnd);
        return -1;
    }
    char mac[kMacLimit + 1] = "";
    char serial[kSerialLimit + 1] = "";
    char product[kProductLimit + 1] = "";
    BOOTENV_GetValue("ethaddr=", kMacLimit, mac, sizeof mac);
    BOOTENV_GetValue("serial_no=", kSerialLimit, serial, sizeof serial);
    BOOTENV_GetValue("product_code=", kProductLimit, product, sizeof product);

    printf("%sGET BOOT PARAM%s", kInfo, kEnd);
    if (mac[0] == '\0') {
        printf("%s    Invalid mac address ... set to default%s", kInfo, kEnd);
        strcpy(mac, kDefaultMac);
    }
    printf("%s    MAC [%s]%s", kInfo, mac, kEnd);
    printf("%s    SERIAL_NO [%s]%s", kInfo, serial, kEnd);
    printf("%s    PRODUCT_CODE [%s]%s", kInfo, product, kEnd);

    write_line("MAC", mac, ">", argv[1]);
    write_line("SERIAL_NO", serial, ">>", argv[1]);
    write_line("PRODUCT_CODE", product, ">>", argv[1]);
    return 0;
}
