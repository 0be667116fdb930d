// What is plugged into a serial port: reading the file `plugs`.
#include "sim/board/serial_plug.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/state.hpp"

#include <cstdlib>
#include <sstream>

namespace vcam::serial {
namespace {

constexpr const char* kUsualReplies = "E0: FF E0 01 00 00 00 26 00 00 E0\n"
                                      "5C: FF 5C 01 00 00 00 00 00 00 5C\n"
                                      "E3: FF E3 01 00 00 00 17 00 00 E3\n";

bool parse_count(const std::string& text, int base, unsigned long most, unsigned long& value)
{
    char* end = nullptr;
    value = ::strtoul(text.c_str(), &end, base);
    return !text.empty() && text[0] != '-' && text[0] != '+' && *end == '\0' && value <= most;
}

bool parse_effect(const std::string& word, Plug& plug)
{
    const size_t at = word.find_first_of("@=");
    if (at == std::string::npos) return false;
    const std::string name = word.substr(0, at + 1);
    unsigned long number = 0;
    if (!parse_count(word.substr(at + 1), 10, 1'000'000'000, number)) return false;
    if (name == "wrong@")
        plug.wrong.push_back(uint32_t(number));
    else if (name == "lost@")
        plug.lost.push_back(uint32_t(number));
    else if (name == "late=")
        plug.late_ms = int64_t(number);
    else
        return false;
    return true;
}

std::string parse_reply(const std::string& line, Reply& reply)
{
    std::string problem = "'" + line + "': write it as \"E0: FF E0 01 00\", in hexadecimal";
    std::istringstream in(line);
    std::string word;
    unsigned long number = 0;
    if (!(in >> word) || word.back() != ':' || !parse_count(word.substr(0, word.size() - 1), 16, 255, number))
        return problem;
    reply.command = uint8_t(number);
    while (in >> word) {
        if (word[0] == '+' && reply.bytes.empty()) {
            if (!parse_count(word.substr(1), 10, 1'000'000, number)) return problem;
            reply.after_ms = int64_t(number);
            continue;
        }
        if (!parse_count(word, 16, 255, number)) return problem;
        reply.bytes.push_back(uint8_t(number));
    }
    return {};
}

} // namespace

std::string parse_plug(const std::string& words, Plug& plug)
{
    std::istringstream in(words);
    std::string word;
    in >> word;
    if (word == "loopback")
        plug.far_end = FarEnd::loopback;
    else if (word == "block")
        plug.far_end = FarEnd::block;
    else if (word != "nothing")
        return "'" + word + "': there are nothing, loopback and block";
    while (in >> word)
        if (!parse_effect(word, plug)) return "'" + word + "': there are wrong@N, lost@N and late=MS";
    return {};
}

std::string plugged(const std::string& port)
{
    std::istringstream in(raw::read_text(state::path("plugs")));
    for (std::string line; std::getline(in, line);)
        if (line.starts_with(port + " ")) return line.substr(port.size() + 1);
    return "nothing";
}

std::string parse_replies(const std::string& text, std::vector<Reply>& replies)
{
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (line.find_first_not_of(" \t\r") == std::string::npos || line[0] == '#') continue;
        Reply reply;
        if (std::string problem = parse_reply(line, reply); !problem.empty()) return problem;
        replies.push_back(reply);
    }
    return {};
}

std::vector<Reply> replies_of(const std::string& port)
{
    const std::string file = raw::read_text(state::path(port + ".replies"));
    std::vector<Reply> replies;
    parse_replies(file.empty() ? kUsualReplies : file, replies);
    return replies;
}

} // namespace vcam::serial
