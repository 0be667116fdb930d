// What the settings partition of a state holds, and whose its files are.
#include "sim/explore/settings_state.hpp"
#include "sim/base/text.hpp"
#include "sim/jffs2/jffs2_log.hpp"

#include <algorithm>
#include <set>
#include <sys/stat.h>

namespace vcam::explore {
namespace {

using Summary = SettingsState::Summary;

constexpr const char* kWhose[] = {"user's",  "package's",       "finished",
                                  "default", "partly restored", "user's, kept aside",
                                  "missing", "empty",           "damaged"};
static_assert(std::size(kWhose) == size_t(Whose::damaged) + 1);
constexpr const char* kSummaries[] = {"none",   "damaged",  "missing",   "kept aside",
                                      "user's", "restored", "package's", "partly restored"};
static_assert(std::size(kSummaries) == size_t(SettingsState::Summary::between) + 1);
constexpr const char* kLock = "temp.conf"; // of the configuration writers
constexpr const char* kTwin = ".kept";

class Reader {
public:
    explicit Reader(const jffs2::Log& log) : log_(log) {}

    void folder(uint32_t ino, const std::string& path)
    {
        const auto names = log_.folders.find(ino);
        if (names == log_.folders.end() || !seen_.insert(ino).second)
            return; // a damaged log may hold a ring, or a folder with many names
        for (const auto& [name, entry] : names->second)
            if (const auto inode = log_.inodes.find(entry.ino); entry.ino && inode != log_.inodes.end())
                item(entry.ino, inode->second, path + name);
    }
    Files files;

private:
    void item(uint32_t ino, const jffs2::Inode& inode, const std::string& path)
    {
        if (!inode.nodes.empty() && S_ISDIR(inode.newest().mode)) return folder(ino, path + "/");
        jffs2::Bytes bytes;
        if (jffs2::contents(inode, bytes).empty())
            files[path] = std::string(bytes.begin(), bytes.end());
        else
            files[path] = std::nullopt;
    }

    const jffs2::Log& log_;
    std::set<uint32_t> seen_;
};

const std::optional<std::string>* find(const Files& files, const std::string& path)
{
    const auto it = files.find(path);
    return it == files.end() ? nullptr : &it->second;
}

// Whether a version has the file just so, or has none either.
bool same(const Files& now, const Files& version, const std::string& path)
{
    const auto *a = find(now, path), *b = find(version, path);
    return a && b ? *a == *b && a->has_value() : !a && !b;
}

std::vector<const Files*> all_of(const Versions& versions)
{
    std::vector<const Files*> all = {&versions.before, &versions.finished};
    for (const auto* more : {&versions.package, &versions.defaults})
        if (*more) all.push_back(&**more);
    return all;
}

using Lines = std::map<std::string, std::set<std::string>>; // key to lines

Lines lines_of(const Files& version, const std::string& path)
{
    Lines lines;
    const auto* file = find(version, path);
    if (!file || !*file) return lines;
    for (const auto& line : split(**file, '\n')) lines[trim(line.substr(0, line.find('=')))].insert(line);
    return lines;
}

// Each line stands in a version, and no key of one of the versions is lost.
bool is_between(const Files& now, const Versions& versions, const std::string& path)
{
    const Lines lines = lines_of(now, path);
    Lines known = lines_of(versions.before, path);
    bool complete = false;
    for (const Files* version : all_of(versions)) {
        const Lines own = lines_of(*version, path);
        for (const auto& [key, texts] : own) known[key].insert(texts.begin(), texts.end());
        complete |= !own.empty() && std::all_of(own.begin(), own.end(),
                                                [&](const auto& l) { return lines.contains(l.first); });
    }
    return complete && std::all_of(lines.begin(), lines.end(), [&](const auto& line) {
               return std::includes(known[line.first].begin(), known[line.first].end(), line.second.begin(),
                                    line.second.end());
           });
}

struct Kinship {
    bool users, packages, finished, defaults;
};

Kinship kin(const Files& now, const Versions& v, const std::string& path)
{
    return {same(now, v.before, path), v.package && same(now, *v.package, path), same(now, v.finished, path),
            v.defaults && same(now, *v.defaults, path)};
}

Whose whose(const Files& now, const Versions& v, const std::string& path)
{
    const Kinship k = kin(now, v, path);
    if (k.users) return Whose::users;
    if (k.finished) return Whose::finished;
    if (k.packages) return Whose::packages;
    if (k.defaults) return Whose::defaults;
    const auto* file = find(now, path);
    const auto *twin = find(now, path + kTwin), *own = find(v.before, path);
    const bool torn = file && !is_between(now, v, path);
    if ((!file || torn) && twin && own && *twin == *own) return Whose::aside;
    if (!file) return Whose::missing;
    if (!torn) return Whose::between;
    return file->has_value() && (*file)->empty() ? Whose::empty : Whose::damaged;
}

Summary summary_of(const std::map<std::string, Whose>& files, const Files& now, const Versions& v)
{
    const auto any = [&](Whose w) {
        return std::any_of(files.begin(), files.end(), [&](const auto& f) { return f.second == w; });
    };
    if (now.empty() && !files.empty()) return Summary::none;
    if (any(Whose::damaged) || any(Whose::empty)) return Summary::damaged;
    if (any(Whose::missing)) return Summary::missing;
    if (any(Whose::aside)) return Summary::aside;
    Kinship all = {true, true, true, true};
    for (const auto& [path, whose] : files) {
        const Kinship k = kin(now, v, path);
        all = {all.users && k.users, all.packages && (k.packages || k.defaults), all.finished && k.finished,
               true};
    }
    if (all.users) return Summary::users;
    if (all.finished) return Summary::finished;
    return all.packages ? Summary::packages : Summary::between;
}

} // namespace

const char* name_of(Whose whose) { return kWhose[size_t(whose)]; }
const char* name_of(Summary summary) { return kSummaries[size_t(summary)]; }

bool SettingsState::has_lock() const
{
    return std::find(left_over.begin(), left_over.end(), kLock) != left_over.end();
}

Files files_of(const Bytes& image, uint64_t erase_size, const std::set<uint32_t>& bad_blocks)
{
    Bytes hidden; // bad blocks hold nothing, whatever stands in them
    if (!bad_blocks.empty()) hidden = image;
    for (const uint32_t block : bad_blocks)
        std::fill_n(hidden.begin() + ptrdiff_t(block * erase_size), erase_size, 0);
    const jffs2::Log log = jffs2::scan(bad_blocks.empty() ? image : hidden);
    Reader reader(log);
    reader.folder(jffs2::kRoot, "");
    return reader.files;
}

SettingsState judge(const Files& now, const Versions& versions)
{
    SettingsState state;
    std::set<std::string> known;
    for (const Files* version : all_of(versions))
        for (const auto& file : *version) known.insert(file.first);
    for (const auto& path : known) state.files[path] = whose(now, versions, path);
    for (const auto& file : now)
        if (!known.contains(file.first)) state.left_over.push_back(file.first);
    state.summary = summary_of(state.files, now, versions);
    return state;
}

} // namespace vcam::explore
