// The names of the states that a cut can leave, and what a person does in each.
#pragma once

#include "sim/explore/settings_state.hpp"

#include <span>
#include <string>

namespace vcam::explore {

// What stands in a partition. same: old and new are the same bytes, and these are it.
enum class Content : uint8_t { old = 1, fresh = 2, same = 3, torn = 4, erased = 8 };
const char* name_of(Content content); // "new"
Content content_of(const PartitionState& part);
Content content_of(const Bytes& now, const Bytes& old, const Bytes& finished);

// What is known of a state; two with the same description are one to whoever looks at the camera.
struct Description {
    Content boot, kernel, root; // mtd0 to mtd2
    SettingsState settings;     // mtd3
    bool operator==(const Description&) const = default;
    auto operator<=>(const Description&) const = default;
};

struct StateName {
    const char* name;     // in tables and files
    char sign;            // on the page, so that colour is not the only difference
    const char* color;    // of the page's own names: good, old, warn, bad
    uint8_t kernel, root; // Content: any of these bits
    uint16_t settings;    // SettingsState::Summary: any of these bits
    const char* left;     // what the camera is like
    const char* person;   // what somebody does
};
// The first that fits is the name.
std::span<const StateName> state_names();
// Null when none fits.
const StateName* name_for(const Description& description);

std::string words_of(const Description& description); // "mtd1 new, mtd2 torn, settings user's"

} // namespace vcam::explore
