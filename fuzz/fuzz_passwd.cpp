// The account file: a change of one hash touches nothing else, and a file that cannot be copied stays.
#include "common/users/passwd_file.hpp"
#include "fuzz/fuzz.hpp"
#include "tests/support/temp_folder.hpp"

namespace {

constexpr zep::NewHash kChange = {"u", "abNANd1rDfiNc", ":65534:65534:u:/home:/bin/false"};

const TempFolder folder("/dev/shm");

void check_superuser(const std::string& path, const std::string& after)
{
    char before_name[zep::kAccountName], after_name[zep::kAccountName];
    std::string changed = folder.write("after", after);
    if (!zep::find_superuser(path.c_str(), before_name)) return;
    must(zep::find_superuser(changed.c_str(), after_name) && strcmp(before_name, after_name) == 0);
}

} // namespace

void try_bytes(const std::string& bytes)
{
    if (bytes.find('\0') != std::string::npos) return; // text only: what is behind a NUL is not looked at
    const std::string path = folder.write("passwd", bytes);
    const bool changed = zep::set_hash(path.c_str(), (folder / "npasswd").c_str(), kChange);
    const std::string after = folder.read("passwd");
    must(lines_without("u:", after) == lines_without("u:", bytes));
    must(changed || after == bytes);
    if (!changed) return;
    char line[zep::kAccountLine];
    const char* hash = zep::find_hash(path.c_str(), kChange.user, line);
    must(hash && strcmp(hash, kChange.hash) == 0);
    check_superuser(folder.write("passwd", bytes), after);
}
