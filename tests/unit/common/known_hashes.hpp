// Traditional password hashes, made by an implementation other than the C libraries' of the targets.
#pragma once

struct KnownHash {
    const char* password;
    const char* hash; // its first two characters are the salt
};

inline constexpr KnownHash kKnownHashes[] = {
    {"secret", "abNANd1rDfiNc"},     {"secret", "./17m29LFAflg"},   {"secret", "zZ5x4y8hS4SZE"},
    {"secret", "9AQXQ31yFb2qo"},     {"", "abmF1QH4PEr.E"},         {"", "./Una9Fi.seRo"},
    {"password12", "abJnggxhB/yWI"}, {"\xe4\xff", "zZgoThh7dsGKA"}, {"12345678", "9AXTAB8W/zfvo"},
    {"123456789", "9AXTAB8W/zfvo"}, // eight characters count
};
