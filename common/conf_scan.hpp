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
};

struct ConfReader {
    const char* name; // for the log: "general_info"
    std::span<const ConfKey> keys;
};

// Fills the record from the file; what the file does not hold stays. Returns 1; 0 when the file cannot be
// opened, which the system log tells, and the record is untouched.
int conf_scan(const ConfReader& reader, const char* path, void* record);

// Kinds of fields. Text is cut to the field and terminated; a number must be decimal, within min..max.
void conf_store_text(void* record, const ConfKey& key, const char* value);
void conf_store_int32(void* record, const ConfKey& key, const char* value);

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
