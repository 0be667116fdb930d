// A typed reader beside a general INI parser: the same file, the same table of keys, the same checks of
// values, the same record.
#include "bench/common/measure.hpp"
#include "common/cconf_server.h"
#include "common/conf/conf_readers.hpp"

#include <cstring>
#include <fstream>
#include <ini.h>

namespace {

constexpr int kReads = 100; // a round

int take_setting(void* record, const char*, const char* name, const char* value)
{
    for (const zep::ConfKey& key : zep::kConfStream.keys) {
        if (strcmp(name, key.name) != 0) continue;
        if (value[0]) key.store(record, key, value);
        break;
    }
    return 1;
}

void fail(const char* what)
{
    fprintf(stderr, "bench_cconf: %s\n", what);
    exit(1);
}

void measure(const char* what, const std::string& path)
{
    CCONF_STREAM_S ours, theirs, untouched;
    CCONF_DefaultStream(&ours);
    CCONF_DefaultStream(&theirs);
    CCONF_DefaultStream(&untouched);
    auto read_ours = [&] {
        for (int i = 0; i < kReads; ++i)
            if (CCONF_ReadStream(path.c_str(), &ours) != 1) fail("our reader");
    };
    auto read_theirs = [&] {
        for (int i = 0; i < kReads; ++i)
            if (ini_parse(path.c_str(), take_setting, &theirs) != 0) fail("inih");
    };
    double best_ours = 1e9, best_theirs = 1e9;
    for (int turn = 0; turn < 20; ++turn) { // in turns, so that both see the same machine
        best_ours = std::min(best_ours, best_ms(5, read_ours) / kReads);
        best_theirs = std::min(best_theirs, best_ms(5, read_theirs) / kReads);
    }
    if (memcmp(&ours, &theirs, sizeof ours) != 0) fail("the two disagree");
    if (memcmp(&ours, &untouched, sizeof ours) == 0) fail("nothing was read");
    printf("%s\n", what);
    row("CCONF_ReadStream", best_ours);
    row("inih, ini_parse", best_theirs);
    printf("  %-52s %9.2f\n", "inih's time as a multiple of ours", best_theirs / best_ours);
}

} // namespace

int main()
{
    const std::string sample = ZEP_SAMPLES "/stream.conf";
    measure("sample stream.conf, 31 settings", sample);

    const std::string path = "/tmp/zep-bench-cconf." + std::to_string(getpid());
    std::ofstream file(path);
    for (int i = 0; i < 1000; ++i) file << "# channel " << i << "\nother_" << i << " = some value\n";
    file << std::ifstream(sample).rdbuf();
    file.close();
    measure("the same behind 1,000 comments and 1,000 unknown settings", path);
    unlink(path.c_str());
}
