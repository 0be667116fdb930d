// Operating-system accounts.
#include "common/accounts.h"

#include "common/fd.hpp"
#include "common/line_reader.hpp"
#include "common/parse_int.hpp"
#include "common/replacement.hpp"
#include "common/user_block.hpp"

#include <cstdio>
#include <cstring>
#include <crypt.h>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr char kFile[] = "/etc/passwd";
constexpr char kTemporary[] = "/etc/npasswd";
constexpr size_t kLine = 4096;
constexpr size_t kPassword = 144;
constexpr size_t kHash = 128;

// The fields of one line, in place. Missing ones are null.
struct Account {
    enum Field { name, hash, uid, gid, gecos, home, shell, count };
    char* fields[count] = {};

    explicit Account(char* line)
    {
        line[strcspn(line, "\r\n")] = '\0';
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
        // An empty field is no 0: the account would become the superuser by a typing error.
        return fields[gid] && *fields[name] && *fields[uid] && *fields[gid] &&
               zep::parse_int(fields[uid]) == 0 && zep::parse_int(fields[gid]) == 0;
    }
    [[nodiscard]] bool is(const char* user) const { return fields[hash] && strcmp(fields[name], user) == 0; }
};

// Grows with every salt, so two within one second differ.
struct State {
    uint32_t salts = 0;
};
constinit State state;

void make_salt(char (&salt)[3])
{
    constexpr char kAlphabet[] = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    static_assert(sizeof kAlphabet == 64 + 1);
    state.salts += uint32_t(time(nullptr)) + uint32_t(getpid());
    uint32_t x = state.salts;
    salt[0] = kAlphabet[((x >> 18) ^ (x >> 6)) & 63];
    salt[1] = kAlphabet[(x ^ (x >> 12)) & 63];
    salt[2] = '\0';
}

bool make_hash(const char* password, char (&hash)[kHash])
{
    char salt[3];
    make_salt(salt);
    const char* result = crypt(password, salt);
    if (!result || result[0] == '*' || strlen(result) >= sizeof hash) return false;
    strcpy(hash, result);
    return true;
}

// C libraries differ on odd salts: null, a text beginning with "*", the empty text. None is a match.
bool matches(const char* password, const char* hash)
{
    if (!hash || !*hash || *hash == '*') return false;
    const char* result = crypt(password, hash);
    return result && *result && *result != '*' && strcmp(result, hash) == 0;
}

// The stored hash of a user; null without such an account.
const char* stored_hash(const char* user, char (&line)[kLine])
{
    zep::Fd file(user ? open(kFile, O_RDONLY | O_CLOEXEC) : -1);
    if (!file) return nullptr;
    zep::LineReader lines(file.get());
    while (lines.next(line) > 0) {
        Account account(line);
        if (account.is(user)) return account.fields[Account::hash];
    }
    return nullptr;
}

void put(zep::Replacement& out, const char* text) { out.put(text, strlen(text)); }

void put_account(zep::Replacement& out, const char* name, const char* hash, const char* rest)
{
    for (const char* part : {name, ":", hash, ":", rest, "\n"}) put(out, part);
}

void put_new_account(zep::Replacement& out, const char* user, const char* hash, bool superuser)
{
    char rest[kLine] = "0:0:superuser:/:/bin/sh";
    if (!superuser) snprintf(rest, sizeof rest, "65534:65534:%s:/home:/bin/false", user);
    put_account(out, user, hash, rest);
}

struct Change {
    const char* user;
    const char* hash;
    bool found = false;
    bool superuser = false; // one is among the accounts written
};

// Copies one line, with the new hash when it is the user's.
void copy_line(zep::Replacement& out, char (&line)[kLine], size_t length, Change& change)
{
    char copy[kLine];
    memcpy(copy, line, length + 1);
    Account account(copy);
    change.superuser |= account.is_superuser();
    if (!account.is(change.user)) {
        out.put(line, length);
        if (line[length - 1] != '\n') put(out, "\n");
        return;
    }
    change.found = true;
    size_t rest = size_t(account.fields[Account::hash] - copy) + strlen(account.fields[Account::hash]) + 1;
    line[strcspn(line, "\r\n")] = '\0';
    put_account(out, change.user, change.hash, rest < length ? line + rest : "");
}

bool rewrite(int source, zep::Replacement& out, Change& change)
{
    zep::LineReader lines(source);
    char line[kLine];
    ssize_t length;
    while ((length = lines.next(line)) > 0) {
        // A piece of a longer line is no account; a rewrite must not guess.
        if (size_t(length) == sizeof line - 1 && line[length - 1] != '\n') return false;
        copy_line(out, line, size_t(length), change);
    }
    return length == 0;
}

bool valid_user(const char* user)
{
    return user && *user && strlen(user) < QRN_SUPERUSER_SIZE && user[strcspn(user, ":\r\n")] == '\0';
}

} // namespace

int32_t QRN_GetSuperUser(char* name)
{
    zep::Fd file(name ? open(kFile, O_RDONLY | O_CLOEXEC) : -1);
    if (!file) return -1;
    zep::LineReader lines(file.get());
    char line[kLine];
    while (lines.next(line) > 0) {
        Account account(line);
        if (!account.is_superuser() || strlen(account.fields[Account::name]) >= QRN_SUPERUSER_SIZE) continue;
        strcpy(name, account.fields[Account::name]);
        return 0;
    }
    return -1;
}

int32_t QRN_SetSystemPassword(const char* user, const char* password)
{
    char superuser[QRN_SUPERUSER_SIZE] = "root";
    char hash[kHash];
    if (!valid_user(user) || !password || !make_hash(password, hash)) return 0;
    bool had_superuser = QRN_GetSuperUser(superuser) == 0;
    zep::Fd source(open(kFile, O_RDONLY | O_CLOEXEC));
    zep::Replacement out;
    if (!source || !out.create(kTemporary, zep::Replacement::Existing::replace, source.get())) return 0;
    Change change = {user, hash};
    if (!rewrite(source.get(), out, change)) return 0;
    if (!change.found) put_new_account(out, user, hash, strcmp(user, superuser) == 0);
    if (had_superuser && !change.superuser) return 0;
    out.commit(kFile, source.get());
    return 0;
}

int32_t QRN_ChangeSystemPassword(const char* user, const char* password)
{
    if (!password) return 0;
    char copy[kPassword];
    snprintf(copy, sizeof copy, "%s", password);
    return QRN_SetSystemPassword(user, copy) == -1 ? -1 : 0;
}

int32_t QRN_CheckSystemPassword(const char* user, const char* password)
{
    char line[kLine];
    const char* hash = password ? stored_hash(user, line) : nullptr;
    return matches(password, hash);
}

int32_t confirm_user(const char* user, const uint8_t* block)
{
    if (!block) return 0;
    char line[kLine];
    const char* hash = stored_hash(user, line);
    if (!hash) return 0;
    if (!*hash) {
        puts("[confirm_user] salt is null");
        return 0;
    }
    zep::UserBlock scrambled;
    memcpy(scrambled.data(), block, scrambled.size());
    char password[zep::kUserPasswordSize + 1];
    zep::unscramble_password(scrambled, password);
    return matches(password, hash);
}
