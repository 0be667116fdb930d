// The service users' file: what loads is bounded, and a user that loads is there again after a save.
#include "common/users/user_file.hpp"
#include "fuzz/fuzz.hpp"

namespace {

USERTABLE_S load(const std::string& content)
{
    USERTABLE_S table = {};
    must(zep::read_users(MemoryFile(content).fd(), table) && table.count <= USERTABLE_USERS);
    return table;
}

} // namespace

void try_bytes(const std::string& bytes)
{
    USERTABLE_S table = load(bytes);
    std::string text;
    for (int i = 0; i < table.count; ++i) {
        USERTABLE_ENTRY_S& entry = table.entries[i];
        must(entry.name[0] != '\0' && zep::fits_user_line(entry.name, sizeof entry.name));
        must(memchr(entry.password, '\0', sizeof entry.password) != nullptr);
        entry.password[15] = '\0'; // as much as the file keeps
        char line[zep::kUserLine];
        text.append(line, zep::user_line(entry, line));
    }
    USERTABLE_S again = load(text);
    must(again.count == table.count);
    for (int i = 0; i < table.count; ++i) {
        const USERTABLE_ENTRY_S &a = table.entries[i], &b = again.entries[i];
        must(strcmp(a.name, b.name) == 0 && strcmp(a.password, b.password) == 0);
        must(memcmp(&a.right1, &b.right1, 4) == 0);
    }
}
