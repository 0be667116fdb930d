// Operating-system accounts.
#include "common/accounts.h"

#include "common/users/passwd_file.hpp"
#include "common/users/user_block.hpp"

#include <cstdio>
#include <cstring>
#include <crypt.h>
#include <ctime>
#include <unistd.h>

namespace {

constexpr char kFile[] = "/etc/passwd";
constexpr char kTemporary[] = "/etc/npasswd";
constexpr size_t kPassword = 144;
constexpr size_t kHash = 14; // salt, eleven characters, terminator
static_assert(zep::kAccountName == QRN_SUPERUSER_SIZE);

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
    // A C library without this kind of hash answers null, an error text or a hash of another kind.
    if (!result || strlen(result) != kHash - 1 || strncmp(result, salt, 2) != 0) return false;
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

const char* stored_hash(const char* user, char (&line)[zep::kAccountLine])
{
    return user ? zep::find_hash(kFile, user, line) : nullptr;
}

bool valid_user(const char* user)
{
    return user && *user && strlen(user) < QRN_SUPERUSER_SIZE && user[strcspn(user, ":\r\n")] == '\0';
}

} // namespace

int32_t QRN_GetSuperUser(char* name)
{
    char found[QRN_SUPERUSER_SIZE];
    if (!name || !zep::find_superuser(kFile, found)) return -1;
    strcpy(name, found);
    return 0;
}

int32_t QRN_SetSystemPassword(const char* user, const char* password)
{
    char superuser[QRN_SUPERUSER_SIZE] = "root";
    char hash[kHash];
    if (!valid_user(user) || !password || !make_hash(password, hash)) return 0;
    zep::find_superuser(kFile, superuser);
    char rest[QRN_SUPERUSER_SIZE + 64] = ":0:0:superuser:/:/bin/sh";
    if (strcmp(user, superuser) != 0) snprintf(rest, sizeof rest, ":65534:65534:%s:/home:/bin/false", user);
    zep::set_hash(kFile, kTemporary, {user, hash, rest});
    return 0;
}

int32_t QRN_ChangeSystemPassword(const char* user, const char* password)
{
    if (!password) return 0;
    char copy[kPassword];
    snprintf(copy, sizeof copy, "%s", password);
    return QRN_SetSystemPassword(user, copy);
}

int32_t QRN_CheckSystemPassword(const char* user, const char* password)
{
    char line[zep::kAccountLine];
    const char* hash = password ? stored_hash(user, line) : nullptr;
    return matches(password, hash);
}

int32_t confirm_user(const char* user, const uint8_t* block)
{
    if (!block) return 0;
    char line[zep::kAccountLine];
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
