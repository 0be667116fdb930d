// What a program wrote against what a transcript shows: "..." stands for anything within a line, for any lines when it is
// a line of its own.
#pragma once

#include <string>
#include <string_view>
#include <vector>

using Lines = std::vector<std::string>;

inline bool matches(std::string_view pattern, std::string_view text)
{
    const size_t dots = pattern.find("...");
    if (dots == std::string_view::npos) return pattern == text;
    if (text.substr(0, dots) != pattern.substr(0, dots)) return false;
    for (size_t at = dots; at <= text.size(); ++at)
        if (matches(pattern.substr(dots + 3), text.substr(at))) return true;
    return false;
}

inline bool matches(const Lines& expected, const Lines& seen, size_t e = 0, size_t s = 0)
{
    if (e == expected.size()) return s == seen.size();
    if (expected[e] == "...")
        return matches(expected, seen, e + 1, s) || (s < seen.size() && matches(expected, seen, e, s + 1));
    return s < seen.size() && matches(std::string_view(expected[e]), seen[s]) &&
           matches(expected, seen, e + 1, s + 1);
}
