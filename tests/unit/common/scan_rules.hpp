// The rules of the configuration scan written a second time, with the standard library, to compare with.
#pragma once

#include "tests/unit/common/reader_list.hpp"

#include <algorithm>
#include <arpa/inet.h>

namespace scan_rules {

using std::string;
using zep::ConfKey;
using Values = std::vector<string>; // of the keys, in the table's order

struct Piece {
    string text = {};
    bool mark = false; // a comment or section begins: nothing was taken
    bool taken = false;
};

// Takes a token off the front of the line.
inline Piece take(string& line)
{
    line.erase(0, line.find_first_not_of(" \t"));
    if (line.empty() || line[0] == '\n' || line[0] == '\r') return {};
    if (line[0] == '#' || line[0] == '[') return {.mark = true};
    size_t end = line.find_first_of("=\n\r");
    Piece piece = {.text = line.substr(0, end), .taken = true};
    line = end == string::npos ? "" : line.substr(line[end] == '=' ? end + 1 : end);
    string& text = piece.text;
    if (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.pop_back();
    if (!text.empty() && text[0] == '"') {
        text.erase(0, 1);
        if (!text.empty()) text.pop_back();
    }
    return piece;
}

inline bool fits(const ConfKey& key, const string& value)
{
    in6_addr address;
    if (key.store == zep::conf_store_text) return true;
    if (key.store == zep::conf_store_ipv4) return inet_pton(AF_INET, value.c_str(), &address) == 1;
    if (key.store == zep::conf_store_ipv6) return inet_pton(AF_INET6, value.c_str(), &address) == 1;
    if (key.store == zep::conf_store_mac) {
        string shape = value;
        for (char& c : shape) c = isxdigit(uint8_t(c)) ? 'x' : c;
        return shape == "xx:xx:xx:xx:xx:xx";
    }
    if (key.words) {
        auto words = AnyRecord::words(key);
        return std::find(words.begin(), words.end(), value) != words.end();
    }
    string digits = value.substr(value[0] == '-' || value[0] == '+');
    if (digits.empty() || digits.find_first_not_of("0123456789") != string::npos) return false;
    double number = std::stod(value);
    return number >= key.min && number <= key.max;
}

inline string kept(const ConfKey& key, const string& value)
{
    if (AnyRecord::is_text(key)) return value.substr(0, key.size - 1);
    return key.words ? value : std::to_string(std::stol(value));
}

// The next line of the file, cut at 255 bytes, as a terminated text shows it.
inline string next_line(const string& file, size_t& at)
{
    size_t feed = file.find('\n', at);
    size_t length = std::min<size_t>(255, (feed == string::npos ? file.size() : feed + 1) - at);
    string line = file.substr(at, length);
    at += length;
    return line.c_str();
}

// What a record that holds `fields` comes to when the file is read.
inline Values after_reading(const TypedReader& reader, Values fields, const string& file)
{
    const auto keys = reader.table.keys;
    string section, value;
    for (size_t at = 0; at < file.size();) {
        string line = next_line(file, at);
        for (bool first = true;; first = false) {
            Piece name = take(line);
            if (first && name.mark && line[0] == '[')
                section = line.substr(1, std::min<size_t>(line.find_first_of("]\r\n", 1) - 1, 31));
            if (!name.taken || (!line.empty() && (line[0] == '#' || line[0] == '['))) break;
            Piece found = take(line);
            if (!found.mark) value = found.text; // a mark leaves the value of the line before
            auto match = std::find_if(keys.begin(), keys.end(), [&](const ConfKey& key) {
                return name.text.rfind(key.name, 0) == 0 && (!key.section || section == key.section);
            });
            if (match != keys.end() && !value.empty() && fits(*match, value))
                fields[size_t(match - keys.begin())] = kept(*match, value);
            if (!found.taken) break;
        }
    }
    return fields;
}

} // namespace scan_rules
