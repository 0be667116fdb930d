// Rewriting of configuration files: the setting is there once, every line that does not match stays.
#include "common/cutil_conf.h"
#include "fuzz/fuzz.hpp"
#include "tests/support/temp_folder.hpp"

void try_bytes(const std::string& bytes)
{
    static const TempFolder folder("/dev/shm");
    const std::string path = folder.write("conf", bytes);
    must(CUTIL_SetFileValue(path.c_str(), (folder / "temp").c_str(), "key", "v") == 0);
    const std::string after = folder.read("conf");
    must(lines_without("key", after) == lines_without("key", bytes));
    const std::string rest = lines_without("key=v", after);
    must(after.size() > rest.size() && rest == lines_without("key", after));
}
