// The line file, read.
#include "tools/station/line.hpp"

#include "tools/station/text.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <stdexcept>
#define TOML_HEADER_ONLY 1
// Some of the library's assertions do not hold for every file ("[[,"): its checks behind them find the error. They must
// neither end the program nor be taken for facts, as NDEBUG takes them.
#undef NDEBUG
#define TOML_ASSERT(condition) static_cast<void>(0)
#include <toml++/toml.h>

namespace station {
namespace {

constexpr double kLongest = 24 * 3600;
constexpr size_t kLongestText = 300;
constexpr size_t kMostTests = 1000;

struct Key {
    const char* name;
    std::function<void(const toml::node&)> take;
};

// Takes a file's tables apart; every complaint has its row.
class Reader {
public:
    explicit Reader(std::string path) : path_(std::move(path)) {}

    [[noreturn]] void refuse(const toml::source_region& where, const std::string& reason) const
    {
        throw std::runtime_error(path_ + ":" + std::to_string(where.begin.line) + ": " + reason);
    }

    void take(const toml::table& table, const std::vector<Key>& keys) const
    {
        for (const auto& [name, node] : table) {
            const std::string spelled(name.str());
            try {
                find(keys, spelled).take(node);
            } catch (const std::invalid_argument& e) {
                refuse(name.source(), spelled + ": " + e.what());
            }
        }
    }

    [[nodiscard]] const std::string& path() const { return path_; }

private:
    static const Key& find(const std::vector<Key>& keys, const std::string& name)
    {
        std::string list;
        for (const Key& key : keys) {
            if (name == key.name) return key;
            list += (list.empty() ? "" : ", ") + std::string(key.name);
        }
        throw std::invalid_argument("there is no such key; there are " + list);
    }

    const std::string path_;
};

std::string text_of(const toml::node& node)
{
    const auto text = node.value_exact<std::string>();
    if (!text || text->empty()) throw std::invalid_argument("give a text in quotes");
    return *text;
}

// A text for people.
std::string shown_of(const toml::node& node) { return harmless_line(text_of(node), kLongestText); }

Words words_of(const toml::node& node)
{
    Words words;
    if (const auto* list = node.as_array())
        for (const toml::node& word : *list) words.push_back(text_of(word));
    if (words.empty()) throw std::invalid_argument("give a list of texts, as [\"test_led\", \"-v\"]");
    return words;
}

std::vector<Words> commands_of(const toml::node& node)
{
    std::vector<Words> commands;
    if (const auto* list = node.as_array())
        for (const toml::node& command : *list) commands.push_back(words_of(command));
    for (const Words& words : commands)
        if (words[0] != "pin" && words[0] != "plug")
            throw std::invalid_argument("\"" + words[0] + "\" is not pin or plug");
        else if (words.size() < 2)
            throw std::invalid_argument("\"" + words[0] + "\" lacks what follows the camera's name");
    if (commands.empty())
        throw std::invalid_argument("give a list of lists, as [[\"pin\", \"8.1 press +1 0.3\"]]");
    return commands;
}

double seconds_of(const toml::node& node)
{
    const auto number = node.value<double>();
    if (!number || node.is_boolean() || !(*number > 0 && *number <= kLongest))
        throw std::invalid_argument("give seconds, more than 0 and at most 86400");
    return *number;
}

int whole_of(const toml::node& node, int most)
{
    const auto number = node.value_exact<int64_t>();
    if (!number || *number < 1 || *number > most)
        throw std::invalid_argument("give a whole number from 1 to " + std::to_string(most));
    return int(*number);
}

bool switch_of(const toml::node& node)
{
    const auto value = node.value_exact<bool>();
    if (!value) throw std::invalid_argument("give true or false");
    return *value;
}

Test::Expect expect_of(const toml::node& node)
{
    const std::string word = text_of(node);
    if (word == "verdict") return Test::Expect::verdict;
    if (word == "end") return Test::Expect::end;
    throw std::invalid_argument("give \"verdict\" or \"end\"; lines are expected by the key lines");
}

// What belongs together.
std::string wrong_in(const Test& test)
{
    if (test.name.empty()) return "the test lacks the key name";
    if (test.run.empty()) return "the test lacks the key run";
    if (test.question.empty() != test.answer.empty()) return "question and answer: one is missing";
    if (test.station.empty() != (test.port == 0)) return "station and port: one is missing";
    return "";
}

Test read_test(const Reader& reader, const toml::table& table, const Test& usual)
{
    Test test = usual;
    test.row = int(table.source().begin.line);
    reader.take(table, {{"name", [&](auto& v) { test.name = shown_of(v); }},
                        {"run", [&](auto& v) { test.run = words_of(v); }},
                        {"expect", [&](auto& v) { test.expect = expect_of(v); }},
                        {"lines",
                         [&](auto& v) {
                             test.lines = words_of(v);
                             test.expect = Test::Expect::lines;
                         }},
                        {"limit", [&](auto& v) { test.limit_s = seconds_of(v); }},
                        {"grace", [&](auto& v) { test.grace_s = seconds_of(v); }},
                        {"repeat", [&](auto& v) { test.repeat = whole_of(v, 1'000'000); }},
                        {"models", [&](auto& v) { test.models = words_of(v); }},
                        {"needed", [&](auto& v) { test.needed = switch_of(v); }},
                        {"before", [&](auto& v) { test.before = shown_of(v); }},
                        {"during", [&](auto& v) { test.during = shown_of(v); }},
                        {"question", [&](auto& v) { test.question = shown_of(v); }},
                        {"answer", [&](auto& v) { test.answer = shown_of(v); }},
                        {"virtual", [&](auto& v) { test.hand = commands_of(v); }},
                        {"station", [&](auto& v) { test.station = words_of(v); }},
                        {"port", [&](auto& v) { test.port = whole_of(v, 65535); }}});
    if (table.contains("lines") && table.contains("expect"))
        reader.refuse(table.source(), "lines and expect: choose one");
    if (const std::string wrong = wrong_in(test); !wrong.empty()) reader.refuse(table.source(), wrong);
    return test;
}

void read_tests(const Reader& reader, const toml::node& node, ProductionLine& line, const Test& usual)
{
    const auto* list = node.as_array();
    if (!list || list->empty() || list->size() > kMostTests)
        reader.refuse(node.source(), "test: write each test under a line [[test]], at most 1000");
    std::set<std::string> names;
    for (const toml::node& one : *list) {
        if (!one.is_table()) reader.refuse(one.source(), "test: write each test under a line [[test]]");
        line.tests.push_back(read_test(reader, *one.as_table(), usual));
        if (!names.insert(line.tests.back().name).second)
            reader.refuse(one.source(), "name: another test is \"" + line.tests.back().name + "\" already");
    }
}

// Where a character that is not ASCII stands outside strings and comments; npos: nowhere. TOML has none there, and the
// library's look for white space has an unreachable place for most of them.
size_t find_foreign(std::string_view text)
{
    const auto starts = [&](size_t at, std::string_view word) {
        return text.substr(at, word.size()) == word;
    };
    for (size_t at = starts(0, "\xEF\xBB\xBF") ? 3 : 0; at < text.size(); ++at) { // behind a byte order mark
        const char c = text[at];
        if (static_cast<unsigned char>(c) >= 0x80) return at;
        if (c == '#') at = std::min(text.find('\n', at), text.size());
        if (c != '"' && c != '\'') continue;
        const std::string end(starts(at, std::string(3, c)) ? 3 : 1, c);
        at += end.size();
        while (at < text.size() && !starts(at, end) && (end.size() == 3 || text[at] != '\n'))
            at += c == '"' && text[at] == '\\' ? 2 : 1;
        at += end.size() - 1;
    }
    return std::string_view::npos;
}

// What the library makes of the text; its complaint gets the row.
template<class Parse> toml::table table_of(const std::string& path, Parse parse)
{
    try {
        return parse();
    } catch (const toml::parse_error& e) {
        const auto row = e.source().begin.line;
        throw std::runtime_error(path + (row ? ":" + std::to_string(row) : "") + ": " +
                                 std::string(e.description()));
    }
}

ProductionLine line_of(const std::string& path, const toml::table& file)
{
    const Reader reader(path);
    ProductionLine line{path, {}, {}, {}};
    Test usual;
    const toml::node* tests = nullptr;
    reader.take(file, {{"name", [&](auto& v) { line.name = shown_of(v); }},
                       {"models", [&](auto& v) { line.models = words_of(v); }},
                       {"limit", [&](auto& v) { usual.limit_s = seconds_of(v); }},
                       {"grace", [&](auto& v) { usual.grace_s = seconds_of(v); }},
                       {"test", [&](auto& v) { tests = &v; }}});
    if (line.name.empty()) throw std::runtime_error(path + ": the key name is missing");
    if (!tests) throw std::runtime_error(path + ": there is no [[test]]");
    read_tests(reader, *tests, line, usual);
    return line;
}

} // namespace

ProductionLine parse_line(const std::string& path, std::string_view text)
{
    if (const size_t at = find_foreign(text); at != std::string_view::npos) {
        const auto row = std::count(text.begin(), text.begin() + std::ptrdiff_t(at), '\n') + 1;
        throw std::runtime_error(path + ":" + std::to_string(row) +
                                 ": a character that is not ASCII; only quoted texts and comments have such");
    }
    return line_of(path, table_of(path, [&] { return toml::parse(text, path); }));
}

ProductionLine read_line(const std::string& path)
{
    if (std::filesystem::is_directory(path))
        throw std::runtime_error(path + ": is a folder; name a line file");
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error(path + ": " + strerror(errno));
    const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    return parse_line(path, text);
}

} // namespace station
