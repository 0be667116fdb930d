// The account file: its lines, and the change of one password hash in it.
#include "common/users/passwd_file.hpp"

#include "common/base/fd.hpp"
#include "common/base/line_reader.hpp"
#include "common/base/replacement.hpp"

#include <cerrno>
#include <cstring>
#include <fcntl.h>

namespace zep {

namespace {

constexpr mode_t kNewMode = 0644;

// An empty field or a word is not 0: a typing error would make the account the superuser.
bool is_zero(const char* field) { return *field && field[strspn(field, "0")] == '\0'; }

// The fields of one line, in place. Missing ones are null.
struct Account {
    enum Field { name, hash, uid, gid, gecos, home, shell, count };
    char* fields[count] = {};

    explicit Account(char* line)
    {
        line[strcspn(line, "\n")] = '\0';
        for (char*& field : fields) {
            field = line;
            size_t length = strcspn(line, ":");
            if (line[length] == '\0') break;
            line[length] = '\0';
            line += length + 1;
        }
    }
    [[nodiscard]] bool is_superuser() const
    {
        return fields[gid] && *fields[name] && is_zero(fields[uid]) && is_zero(fields[gid]);
    }
    [[nodiscard]] bool is(const char* user) const { return fields[hash] && strcmp(fields[name], user) == 0; }
};

void put(Replacement& out, const char* text) { out.put(text, strlen(text)); }

void put_hash(Replacement& out, const NewHash& change)
{
    for (const char* part : {change.user, ":", change.hash}) put(out, part);
}

struct Found {
    bool user = false;
    bool superuser = false;
};

// Copies one line, with the new hash when it is the user's.
void copy_line(Replacement& out, char (&line)[kAccountLine], size_t length, const NewHash& change,
               Found& found)
{
    char copy[kAccountLine];
    memcpy(copy, line, length + 1);
    Account account(copy);
    found.superuser |= account.is_superuser();
    size_t kept = 0; // what stays of the line begins here
    if (account.is(change.user)) {
        found.user = true;
        put_hash(out, change);
        kept = size_t(account.fields[Account::hash] - copy);
        kept += strcspn(line + kept, ":\n");
    }
    out.put(line + kept, length - kept);
    if (line[length - 1] != '\n') put(out, "\n");
}

// False when the file cannot be read to its end or holds what may be a piece of a line: a rewrite must not
// guess.
bool copy_accounts(int source, Replacement& out, const NewHash& change, Found& found)
{
    LineReader lines(source);
    char line[kAccountLine];
    ssize_t length;
    while ((length = lines.next(line)) > 0) {
        if (size_t(length) == sizeof line - 1 && line[length - 1] != '\n') return false;
        copy_line(out, line, size_t(length), change, found);
    }
    return length == 0;
}

} // namespace

bool find_superuser(const char* path, char (&name)[kAccountName])
{
    Fd file(open(path, O_RDONLY | O_CLOEXEC));
    LineReader lines(file.get());
    char line[kAccountLine];
    while (lines.next_whole(line) > 0) {
        Account account(line);
        if (!account.is_superuser() || strlen(account.fields[Account::name]) >= sizeof name) continue;
        strcpy(name, account.fields[Account::name]);
        return true;
    }
    return false;
}

const char* find_hash(const char* path, const char* user, char (&line)[kAccountLine])
{
    Fd file(open(path, O_RDONLY | O_CLOEXEC));
    LineReader lines(file.get());
    while (lines.next_whole(line) > 0) {
        Account account(line);
        if (account.is(user)) return account.fields[Account::hash];
    }
    return nullptr;
}

bool set_hash(const char* path, const char* temp_path, const NewHash& change)
{
    char superuser[kAccountName];
    const bool had_superuser = find_superuser(path, superuser);
    Fd source(open(path, O_RDONLY | O_CLOEXEC));
    if (!source && errno != ENOENT) return false;
    Replacement out;
    if (!out.create(temp_path, Replacement::Existing::replace, source.get())) return false;
    Found found;
    if (source && !copy_accounts(source.get(), out, change, found)) return false;
    if (!found.user) {
        put_hash(out, change);
        for (const char* part : {change.rest, "\n"}) put(out, part);
    }
    // Another program may have put a file without one there in the meantime.
    if (had_superuser && !found.superuser) return false;
    return out.commit(path, source.get(), kNewMode);
}

} // namespace zep
