// The accounts of the device's services.
#include "common/usertable.h"

#include "common/fd.hpp"
#include "common/line_reader.hpp"
#include "common/parse_int.hpp"
#include "common/replacement.hpp"
#include "common/user_block.hpp"

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fcntl.h>

static_assert(sizeof(USERTABLE_ENTRY_S) == 52 && offsetof(USERTABLE_S, entries) == 1 &&
              offsetof(USERTABLE_S, Reload) == 264);

namespace {

constexpr char kFile[] = "/etc/qrnpasswd";
constexpr char kTemporary[] = "/etc/qrnpasswd.tmp";
constexpr size_t kLine = 256;
constexpr size_t kFields = 6;
constexpr size_t kMaxRight = 3; // characters of a number

// Cuts the line into its first six fields, each ended by "/" or the last by the line's end; false when one is
// missing or empty.
bool split(char* line, char* (&fields)[kFields])
{
    line[strcspn(line, "\r\n")] = '\0';
    for (char*& field : fields) {
        field = line;
        size_t length = strcspn(line, "/");
        if (length == 0) return false;
        bool last = line[length] == '\0';
        line[length] = '\0';
        line += last ? length : length + 1;
    }
    return true;
}

bool parse_right(const char* text, uint8_t& right)
{
    if (strlen(text) > kMaxRight) return false;
    right = uint8_t(zep::parse_int(text));
    return true;
}

bool parse_entry(char* line, USERTABLE_ENTRY_S& entry)
{
    char* fields[kFields];
    zep::UserBlock block;
    if (!split(line, fields) || !zep::user_block_from_hex(fields[1], block)) return false;
    if (strlen(fields[0]) >= sizeof entry.name) return false;
    uint8_t* rights[] = {&entry.right1, &entry.right2, &entry.right3, &entry.right4};
    for (size_t i = 0; i < 4; ++i)
        if (!parse_right(fields[2 + i], *rights[i])) return false;
    strcpy(entry.name, fields[0]);
    zep::unscramble_password(block, entry.password);
    return true;
}

bool fits_line(const char* text, size_t size)
{
    return memchr(text, '\0', size) && text[strcspn(text, "/\r\n")] == '\0';
}

bool writable(const USERTABLE_ENTRY_S& entry)
{
    return entry.name[0] != '\0' && fits_line(entry.name, sizeof entry.name) &&
           memchr(entry.password, '\0', sizeof entry.password);
}

void put_entry(zep::Replacement& file, const USERTABLE_ENTRY_S& entry)
{
    char hex[2 * zep::kUserBlockSize + 1];
    zep::user_block_to_hex(zep::scramble_password(entry.password), hex);
    char line[kLine];
    int length = snprintf(line, sizeof line, "%s/%s/%d/%d/%d/%d/\n", entry.name, hex, entry.right1,
                          entry.right2, entry.right3, entry.right4);
    file.put(line, size_t(length));
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
           fits_line(name, USERTABLE_NAME_SIZE) && fits_line(password, USERTABLE_PASSWORD_SIZE);
}

} // namespace

int32_t USERTABLE_Init(USERTABLE_S* table)
{
    memset(table, 0, sizeof *table);
    table->Reload = USERTABLE_Init;
    zep::Fd file(open(kFile, O_RDONLY | O_CLOEXEC));
    if (!file) {
        printf("[%s] Can't open %s\n", "USERTABLE_Init", kFile);
        return -1;
    }
    zep::LineReader lines(file.get());
    char line[kLine];
    while (table->count < USERTABLE_USERS && lines.next(line) > 0) {
        USERTABLE_ENTRY_S entry = {};
        if (parse_entry(line, entry)) table->entries[table->count++] = entry;
    }
    return 0;
}

int32_t USERTABLE_Save(USERTABLE_S* table)
{
    if (!valid_table(table)) return -1;
    zep::Fd old(open(kFile, O_RDONLY | O_CLOEXEC));
    zep::Replacement file;
    if (!file.create(kTemporary, zep::Replacement::Existing::replace, old.get())) {
        // The loader's name stands here too: log filters of the services look for it.
        printf("[%s] Can't open %s\n", "USERTABLE_Init", kTemporary);
        return -1;
    }
    for (size_t i = 0; i < table->count; ++i) put_entry(file, table->entries[i]);
    return file.commit(kFile, old.get()) ? 0 : -2;
}

int32_t USERTABLE_AddUser(USERTABLE_S* table, const char* name, const char* password, uint8_t right1,
                          uint8_t right2, uint8_t right3, uint8_t right4)
{
    table->Reload(table);
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
    if (!entry || !fits_line(password, USERTABLE_PASSWORD_SIZE)) return -1;
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
