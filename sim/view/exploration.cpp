// The map that the last exploration of a camera has left in its folder.
#include "sim/view/exploration.hpp"

#include <algorithm>
#include <functional>
#include <sys/stat.h>

namespace vcam {
namespace {

using cli::Json;
using Check = std::function<bool(const Json&)>;

constexpr int kMostDepth = 4;          // brackets, one in the other
constexpr unsigned kMostPartition = 9; // mtd9
constexpr std::string_view kColors[] = {"good", "old", "warn", "bad"};

bool is_text(const Json& value) { return value.is_string(); }
bool is_number(const Json& value) { return value.is_number(); }
bool is_seed(const Json& value) { return value.is_number_unsigned(); }
bool is_count(const Json& value) { return value.is_number_unsigned() && value.get<uint64_t>() <= UINT32_MAX; }
bool is_partition(const Json& value) { return is_count(value) && value.get<uint64_t>() <= kMostPartition; }
bool is_color(const Json& value)
{
    return value.is_string() && std::find(std::begin(kColors), std::end(kColors),
                                          value.get_ref<const std::string&>()) != std::end(kColors);
}
bool are_counts(const Json& value)
{
    return value.is_object() && std::all_of(value.begin(), value.end(), is_count);
}

Check list_of(Check element)
{
    return [element = std::move(element)](const Json& value) {
        return value.is_array() && std::all_of(value.begin(), value.end(), element);
    };
}
// An array of exactly these.
Check row_of(std::vector<Check> checks)
{
    return [checks = std::move(checks)](const Json& value) {
        return value.is_array() && value.size() == checks.size() &&
               std::equal(checks.begin(), checks.end(), value.begin(),
                          [](const Check& check, const Json& element) { return check(element); });
    };
}
// An object with at least these.
Check object_of(std::vector<std::pair<const char*, Check>> fields)
{
    return [fields = std::move(fields)](const Json& value) {
        return value.is_object() && std::all_of(fields.begin(), fields.end(), [&](const auto& field) {
                   const auto it = value.find(field.first);
                   return it != value.end() && field.second(*it);
               });
    };
}

const Check kIsExploration = object_of(
    {{"command", is_text},
     {"date", is_text},
     {"seed", is_seed},
     {"states", is_count},
     {"words", list_of(is_text)},
     {"options", list_of(is_text)},
     {"fingerprint", is_count},
     {"forms", list_of(row_of({is_text, is_text}))},
     {"names", list_of(object_of({{"name", is_text},
                                  {"sign", is_text},
                                  {"color", is_color},
                                  {"left", is_text},
                                  {"person", is_text}}))},
     {"steps", list_of(row_of({is_partition, is_text, is_count, is_count, is_number, is_text}))},
     {"classes", list_of(object_of(
                     {{"state", is_text}, {"words", is_text}, {"points", is_count}, {"again", are_counts}}))},
     {"points", list_of(is_count)},
     {"broken", list_of(object_of({{"point", is_text}, {"text", is_text}, {"what", is_text}}))}});

// A point is three numbers: operation, form and class.
bool points_stand(const Json& json)
{
    const Json& points = json["points"];
    const size_t most[] = {json["steps"].size(), json["forms"].size(), json["classes"].size()};
    for (size_t i = 0; i < points.size(); ++i)
        if (points[i].get<uint64_t>() >= most[i % 3]) return false;
    return points.size() % 3 == 0;
}

Json wrong(const char* reason) { return {{"wrong", reason}}; }

} // namespace

cli::Json read_exploration(const Camera& camera)
{
    const std::string path = camera.path(kExploration);
    struct stat st;
    if (lstat(path.c_str(), &st) < 0) return {};
    if (!S_ISREG(st.st_mode) || st.st_size > off_t(kMostExploration))
        return wrong("exploration.json is no plain file of at most 8 MiB");
    const auto content = try_read_file(path);
    if (!content) return {};
    bool deep = false;
    const Json json = Json::parse(
        *content,
        [&](int depth, Json::parse_event_t, Json&) {
            deep |= depth > kMostDepth;
            return !deep;
        },
        false);
    if (deep || !kIsExploration(json) || !points_stand(json))
        return wrong("exploration.json is no map of vcam explore");
    return json;
}

} // namespace vcam
