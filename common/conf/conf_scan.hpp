// The scan that every typed configuration reader stands on: a table of keys fills a record.
#pragma once

#include <cstdint>
#include <span>

namespace zep {

struct ConfKey;

// Puts a value, never empty, into the record. A value that does not fit the field's kind is passed over.
using ConfStore = void (*)(void* record, const ConfKey& key, const char* value);

struct ConfKey {
    const char* name; // a key of the file that begins with this name matches
    ConfStore store;
    uint32_t offset; // of the field in the record, bytes
    uint32_t size;   // of the field, bytes
    int32_t min = INT32_MIN;
    int32_t max = INT32_MAX;
    const char* section = nullptr; // "INPUT": only below the line "[INPUT]"; null: anywhere
    const char* fallback = "";     // the field's value when the file does not give one
    const char* words = nullptr;   // "open wep wpa": what a choice may be
};

struct ConfReader {
    const char* name; // for the log: "general_info"
    std::span<const ConfKey> keys;
    uint32_t record_size = 0;
};

// Fills the record from the file; what the file does not hold stays. Returns 1; 0 when the file cannot be
// opened, which is logged, and for null arguments; the record is untouched then.
int32_t conf_scan(const ConfReader& reader, const char* path, void* record);

// Gives every field its fallback; what lies between fields becomes zero. Null is passed over.
void conf_default(const ConfReader& reader, void* record);

// Kinds of fields. Texts are cut to the field and terminated. A number must be decimal, within min..max.
// Addresses must be whole and are kept as text. A choice is kept as its place among the words, from 0.
void conf_store_text(void* record, const ConfKey& key, const char* value);
void conf_store_int32(void* record, const ConfKey& key, const char* value);
void conf_store_ipv4(void* record, const ConfKey& key, const char* value);
void conf_store_ipv6(void* record, const ConfKey& key, const char* value);
void conf_store_mac(void* record, const ConfKey& key, const char* value);
void conf_store_choice(void* record, const ConfKey& key, const char* value);

// Place of a word among words with one blank between, from 0; -1 when it is not there.
constexpr int32_t conf_word_place(const char* words, const char* wanted)
{
    for (int32_t place = 0;; ++place) {
        size_t length = 0;
        bool same = true;
        for (; words[length] != ' ' && words[length] != '\0'; ++length)
            if (same && words[length] != wanted[length]) same = false;
        if (same && wanted[length] == '\0') return place;
        if (words[length] == '\0') return -1;
        words += length + 1;
    }
}

// The first match wins: a key behind a shorter one that begins it would never be seen.
constexpr bool conf_keys_reachable(std::span<const ConfKey> keys)
{
    auto begins = [](const char* longer, const char* shorter) {
        while (*shorter && *shorter == *longer) ++shorter, ++longer;
        return *shorter == '\0';
    };
    auto hides = [&](const ConfKey& first, const ConfKey& second) {
        if (!begins(second.name, first.name)) return false;
        if (!first.section) return true;
        return second.section && begins(second.section, first.section) &&
               begins(first.section, second.section);
    };
    for (size_t i = 0; i < keys.size(); ++i)
        for (size_t j = i + 1; j < keys.size(); ++j)
            if (hides(keys[i], keys[j])) return false;
    return true;
}

} // namespace zep
