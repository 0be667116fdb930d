// The accounts of the device's services.
#include "common/usertable.h"

#include "common/base/fd.hpp"
#include "common/base/replacement.hpp"
#include "common/users/user_file.hpp"

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

static_assert(sizeof(USERTABLE_ENTRY_S) == 52 && offsetof(USERTABLE_S, entries) == 1 &&
              offsetof(USERTABLE_S, Reload) == 264);

namespace {

using zep::fits_user_line;

constexpr char kFile[] = "/etc/qrnpasswd";
constexpr char kTemporary[] = "/etc/qrnpasswd.tmp";

bool writable(const USERTABLE_ENTRY_S& entry)
{
    return entry.name[0] != '\0' && fits_user_line(entry.name, sizeof entry.name) &&
           memchr(entry.password, '\0', sizeof entry.password);
}

void put_entry(zep::Replacement& file, const USERTABLE_ENTRY_S& entry)
{
    char line[zep::kUserLine];
    file.put(line, zep::user_line(entry, line));
}

bool valid_table(const USERTABLE_S* table)
{
    if (table->count > USERTABLE_USERS) return false;
    for (size_t i = 0; i < table->count; ++i)
        if (!writable(table->entries[i])) return false;
    return true;
}

// Among the first `slots`; null when absent.
USERTABLE_ENTRY_S* find(USERTABLE_S* table, const char* name, size_t slots)
{
    for (size_t i = 0; name && i < slots; ++i)
        if (strncmp(table->entries[i].name, name, USERTABLE_NAME_SIZE) == 0) return &table->entries[i];
    return nullptr;
}

bool acceptable(const char* name, const char* password)
{
    return name && password && *name && strlen(name) < USERTABLE_NAME_SIZE &&
           strlen(password) < USERTABLE_PASSWORD_SIZE && strcmp(name, "root") != 0 &&
           fits_user_line(name, USERTABLE_NAME_SIZE);
}

// The loader's name stands in the message of a failed save, too: log filters of the services look for it.
int32_t cannot_open(const char* path)
{
    printf("[%s] Can't open %s\n", "USERTABLE_Init", path);
    return -1;
}

// A file that is there but cannot be read must not be replaced by the one user to be added.
bool would_lose_users(int32_t loaded) { return loaded < 0 && access(kFile, F_OK) == 0; }

} // namespace

int32_t USERTABLE_Init(USERTABLE_S* table)
{
    *table = {};
    table->Reload = USERTABLE_Init;
    zep::Fd file(open(kFile, O_RDONLY | O_CLOEXEC));
    if (!file) return cannot_open(kFile);
    if (zep::read_users(file.get(), *table)) return 0;
    *table = {};
    table->Reload = USERTABLE_Init;
    return cannot_open(kFile);
}

int32_t USERTABLE_Save(USERTABLE_S* table)
{
    if (!valid_table(table)) return -1;
    zep::Replacement file;
    if (!file.create(kTemporary, zep::Replacement::Existing::replace, -1)) return cannot_open(kTemporary);
    for (size_t i = 0; i < table->count; ++i) put_entry(file, table->entries[i]);
    // For its owner only, whatever the old file's mode: the passwords are only scrambled.
    return file.commit(kFile, -1, 0600) ? 0 : -2;
}

int32_t USERTABLE_AddUser(USERTABLE_S* table, const char* name, const char* password, uint8_t right1,
                          uint8_t right2, uint8_t right3, uint8_t right4)
{
    if (would_lose_users(table->Reload(table))) return -1;
    if (table->count >= USERTABLE_USERS || !acceptable(name, password)) return -1;
    if (find(table, name, table->count)) return -1;
    USERTABLE_ENTRY_S& entry = table->entries[table->count++];
    entry = {};
    strcpy(entry.name, name);
    strcpy(entry.password, password);
    entry.right1 = right1;
    entry.right2 = right2;
    entry.right3 = right3;
    entry.right4 = right4;
    return USERTABLE_Save(table);
}

int32_t USERTABLE_DeleteUser(USERTABLE_S* table, const char* name)
{
    table->Reload(table);
    USERTABLE_ENTRY_S* entry = find(table, name, table->count);
    if (!entry) return -1;
    *entry = table->entries[--table->count];
    return USERTABLE_Save(table);
}

int32_t USERTABLE_SetPassword(USERTABLE_S* table, const char* name, const char* password)
{
    if (!password || strlen(password) >= USERTABLE_PASSWORD_SIZE) return -2;
    // All slots, valid or not: callers prepare a slot before they raise the count.
    USERTABLE_ENTRY_S* entry = find(table, name, USERTABLE_USERS);
    if (!entry) return -1;
    memset(entry->password, 0, sizeof entry->password);
    strcpy(entry->password, password);
    return USERTABLE_Save(table);
}

int32_t USERTABLE_SetRights(USERTABLE_S* table, const char* name, uint8_t right1, uint8_t right2,
                            uint8_t right3, uint8_t right4)
{
    USERTABLE_ENTRY_S* entry = find(table, name, USERTABLE_USERS);
    if (!entry) return -1;
    entry->right1 = right1;
    entry->right2 = right2;
    entry->right3 = right3;
    entry->right4 = right4;
    return USERTABLE_Save(table);
}
