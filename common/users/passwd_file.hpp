// The account file: its lines, and the change of one password hash in it.
#pragma once

#include <cstddef>

namespace zep {

constexpr size_t kAccountLine = 4096; // longer: not an account, and its file is not rewritten
constexpr size_t kAccountName = 256;  // bytes of a superuser's name, with the terminator

// The name of the first account whose uid and gid are both 0. False, the name untouched, without one.
bool find_superuser(const char* path, char (&name)[kAccountName]);

// The stored hash of a user, empty where the account has none; null without such an account. It lies in
// `line`.
const char* find_hash(const char* path, const char* user, char (&line)[kAccountLine]);

struct NewHash {
    const char* user;
    const char* hash;
    const char* rest; // of the line behind the hash, with its ":", for an account that is not there yet
};

// Puts the hash in the place of the user's, or the account behind the last one; everything else stays byte
// for byte. The file is rewritten through `temp_path` and keeps its mode; a file that is missing is made
// (0644). False on any failure, also when the superuser would be gone: the old file stays then.
bool set_hash(const char* path, const char* temp_path, const NewHash& change);

} // namespace zep
