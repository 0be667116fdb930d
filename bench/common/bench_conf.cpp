// One setting out of a long configuration file, beside grep on the same file.
#include "bench/common/measure.hpp"
#include "common/cutil_conf.h"

#include <cstring>

namespace {

std::string make_file(int lines)
{
    std::string path = "/tmp/zep-bench-conf." + std::to_string(getpid());
    FILE* file = fopen(path.c_str(), "w");
    if (!file) exit(1);
    for (int i = 0; i < lines; ++i) fprintf(file, "stream_%05d_port = \"%d\"\n", i, 1024 + i);
    fclose(file);
    return path;
}

void look_up(const std::string& path, const std::string& key, int lines)
{
    char value[CUTIL_CONF_VALUE_SIZE];
    if (CUTIL_GetConfValue(path.c_str(), key.c_str(), value) != 0 || std::to_string(1023 + lines) != value) {
        fprintf(stderr, "wrong value %s\n", value);
        exit(1);
    }
}

void measure(int lines)
{
    std::string path = make_file(lines), digits = std::to_string(100000 + lines - 1).substr(1);
    std::string key = "stream_" + digits + "_port";
    printf("the last of %d settings\n", lines);
    row("CUTIL_GetConfValue", best_ms(200, [&] { look_up(path, key, lines); }));
    row("grep -m1, whole program", best_ms(50, [&] { run({"grep", "-m1", "^" + key, path}); }));
    row("grep on an empty file, whole program", best_ms(50, [&] {
            run({"grep", "-m1", "^" + key, "/dev/null"});
        }));
    unlink(path.c_str());
}

} // namespace

int main()
{
    for (int lines : {1000, 10000}) measure(lines);
}
