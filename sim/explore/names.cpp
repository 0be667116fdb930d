// The names of the states that a cut can leave, and what a person does in each.
#include "sim/explore/names.hpp"
#include "sim/base/text.hpp"

#include <algorithm>

namespace vcam::explore {
namespace {

using Summary = SettingsState::Summary;

constexpr uint8_t kOld = uint8_t(Content::old), kNew = uint8_t(Content::fresh);
constexpr uint8_t kBroken = uint8_t(Content::torn) | uint8_t(Content::erased), kAny = 0xFF;
template<class... S> constexpr uint16_t bits(S... summary)
{
    return uint16_t((0 | ... | (1 << int(summary))));
}
constexpr uint16_t kAnySettings = 0xFFFF;
// Whole files, whosever they are.
constexpr uint16_t kWhole = bits(Summary::users, Summary::finished, Summary::packages, Summary::between);

constexpr const char* kLoad = "The camera does not start. Load kernel and root file system through the boot "
                              "loader's console, or send it in; "
                              "then give the same command again.";

constexpr StateName kNames[] = {
    {"old", 'o', "old", kOld, kOld, bits(Summary::users),
     "The old release with the user's settings, as before.", "Give the same command again to upgrade."},
    {"finished", 'f', "good", kNew, kNew, bits(Summary::finished), "What the finished run leaves.",
     "Nothing."},
    {"kernel broken", 'K', "bad", kBroken, kAny, kAnySettings, "The kernel is erased or half written.",
     kLoad},
    {"root broken", 'R', "bad", kAny, kBroken, kAnySettings,
     "The root file system is erased or half written.", kLoad},
    {"mixed releases", 'M', "warn", kNew, kOld, kAnySettings, "The new kernel with the old root file system.",
     "Give the same command again; if the camera does not start with the mixture, load the root file system "
     "through the boot loader."},
    {"mixed releases", 'M', "warn", kOld, kNew, kAnySettings, "The old kernel with the new root file system.",
     "Give the same command again; if the camera does not start with the mixture, load the kernel through "
     "the "
     "boot loader."},
    {"settings lost", 'X', "bad", kAny, kAny, bits(Summary::none),
     "The camera starts without any setting: its partition is erased or not yet readable.",
     "Give the same command again: it writes the package's settings; enter the camera's own again."},
    {"settings damaged", 'D', "bad", kAny, kAny, bits(Summary::damaged),
     "A settings file is half written or empty.",
     "Give the same command again: it writes the package's settings; enter the damaged ones again."},
    {"settings missing", 'm', "warn", kAny, kAny, bits(Summary::missing), "A settings file is not there.",
     "Give the same command again: it writes the package's settings; enter the missing ones again."},
    {"settings kept aside", 'a', "warn", kAny, kAny, bits(Summary::aside),
     "A settings file is being put back; the user's stands beside it as FILE.kept.",
     "Give the same command again: it puts the user's settings back."},
    {"package's settings", 'p', "warn", kAny, kAny, bits(Summary::packages),
     "The new release with the package's settings; the user's were in memory and are gone.",
     "Look for the camera at the package's address and enter the settings again."},
    {"settings partly restored", 'r', "warn", kAny, kAny, bits(Summary::between),
     "The new release; some settings are the user's, the others the package's.",
     "Look for the camera at both addresses and enter again what is the package's."},
    {"new with old settings", 'n', "warn", kAny, kAny, kWhole,
     "The new kernel and root file system with whole settings.", "Give the same command again."},
};

constexpr struct {
    Content content;
    const char* name;
} kContents[] = {{Content::old, "old"},
                 {Content::fresh, "new"},
                 {Content::same, "unchanged"},
                 {Content::torn, "torn"},
                 {Content::erased, "erased"}};

bool fits(const StateName& row, const Description& d)
{
    return (row.kernel & uint8_t(d.kernel)) && (row.root & uint8_t(d.root)) &&
           (row.settings >> int(d.settings.summary) & 1);
}

} // namespace

const char* name_of(Content content)
{
    for (const auto& c : kContents)
        if (c.content == content) return c.name;
    return "?";
}

Content content_of(const PartitionState& part)
{
    if (part.is_old()) return part.is_new() ? Content::same : Content::old;
    if (part.is_new()) return Content::fresh;
    return part.is_erased() ? Content::erased : Content::torn;
}

Content content_of(const Bytes& now, const Bytes& old, const Bytes& finished)
{
    if (now == old) return now == finished ? Content::same : Content::old;
    if (now == finished) return Content::fresh;
    return std::all_of(now.begin(), now.end(), [](uint8_t b) { return b == 0xFF; }) ? Content::erased
                                                                                    : Content::torn;
}

std::span<const StateName> state_names() { return kNames; }

const StateName* name_for(const Description& description)
{
    if (description.boot != Content::same) return nullptr;
    for (const auto& row : kNames)
        if (fits(row, description)) return &row;
    return nullptr;
}

std::string words_of(const Description& d)
{
    std::string out;
    if (d.boot != Content::same) out += text("mtd0 %s, ", name_of(d.boot));
    out += text("mtd1 %s, mtd2 %s, settings %s", name_of(d.kernel), name_of(d.root),
                name_of(d.settings.summary));
    for (const auto& [path, whose] : d.settings.files)
        if (whose == Whose::missing || whose == Whose::empty || whose == Whose::damaged ||
            whose == Whose::aside)
            out += text(", /etc/%s %s", path.c_str(), name_of(whose));
    if (d.settings.has_lock()) out += ", a writer's lock";
    return out;
}

} // namespace vcam::explore
