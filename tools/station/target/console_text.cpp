// The text of a console: what is typed, and the frames in which a board answers.
#include "tools/station/target/console_text.hpp"

#include <algorithm>
#include <random>

namespace station {
namespace {

bool ends_with_word(std::string_view text, std::string_view word)
{
    while (!text.empty() && (text.back() == ' ' || text.back() == '\r')) text.remove_suffix(1);
    return text.ends_with(word);
}

// Behind the line of the frame's beginning; npos while that is missing.
size_t begin_of_body(std::string_view text, const std::string& key)
{
    const size_t at = text.find("<" + key + ":o>");
    return at == text.npos ? at : text.find('\n', at);
}

} // namespace

std::string typed(const Words& words)
{
    constexpr std::string_view kPlain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-./:,+@%";
    std::string line;
    for (const std::string& word : words) {
        if (!line.empty()) line += ' ';
        if (word.empty()) line += "\"\"";
        for (char c : word) {
            if (kPlain.find(c) == kPlain.npos) line += '\\';
            line += c;
        }
    }
    return line;
}

std::string random_word()
{
    static std::random_device random;
    char word[16];
    snprintf(word, sizeof word, "%08x", unsigned(random()));
    return word;
}

std::string posix_cksum(std::string_view bytes)
{
    uint32_t crc = 0;
    const auto add = [&](unsigned char byte) {
        crc ^= uint32_t(byte) << 24;
        for (int bit = 0; bit < 8; ++bit) crc = crc << 1 ^ (crc >> 31 ? 0x04C11DB7u : 0);
    };
    for (char c : bytes) add(static_cast<unsigned char>(c));
    for (size_t length = bytes.size(); length; length >>= 8) add(length & 0xFF);
    return std::to_string(~crc) + " " + std::to_string(bytes.size());
}

bool Frame::intact() const
{
    return begun && !run.empty() && (sum.empty() || sum == posix_cksum(run + ":" + status + "\n" + body));
}

std::optional<Frame> find_frame(std::string_view text, const std::string& key)
{
    const size_t newline = begin_of_body(text, key);
    const std::string head = "<" + key + ":";
    size_t end = text.npos;
    for (size_t at = text.find(head); at != text.npos; at = text.find(head, at + 1))
        if (text.substr(at).find("o>") != head.size()) end = at;
    if (end == text.npos) return {};
    const std::string_view tail = text.substr(end + head.size());
    const size_t close = tail.find('>');
    if (close == tail.npos) return {};
    Frame frame;
    std::string* const fields[] = {&frame.run, &frame.status, &frame.sum};
    size_t at = 0;
    for (std::string* field : fields) {
        const size_t stop = std::min(tail.find(':', at), close);
        *field = tail.substr(at, stop - at);
        at = std::min(stop + 1, close);
    }
    frame.begun = newline != text.npos && newline < end;
    if (!frame.begun) return frame;
    const bool terminal = text[newline - 1] == '\r';
    const std::string_view body = text.substr(newline + 1, end - newline - 1);
    frame.body = terminal ? without_terminal(body) : std::string(body);
    return frame;
}

std::string without_terminal(std::string_view text)
{
    std::string out;
    for (size_t i = 0; i < text.size(); ++i)
        if (text[i] != '\r' || i + 1 == text.size() || text[i + 1] != '\n') out += text[i];
    return out;
}

std::string_view body_so_far(std::string_view text, const std::string& key)
{
    const size_t newline = begin_of_body(text, key);
    if (newline == text.npos) return {};
    const std::string_view body = text.substr(newline + 1);
    const std::string head = "<" + key + ":";
    if (const size_t end = body.find(head); end != body.npos) return body.substr(0, end);
    for (size_t n = std::min(head.size(), body.size()); n > 0; --n)
        if (body.ends_with(std::string_view(head).substr(0, n))) return body.substr(0, body.size() - n);
    return body.ends_with('\r') ? body.substr(0, body.size() - 1) : body;
}

std::string unedited(std::string_view text)
{
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\033' && i + 1 < text.size() && text[i + 1] == '[') {
            for (i += 2; i < text.size() && (text[i] < '@' || text[i] > '~');) ++i;
        } else if (text[i] != '\r' && text[i] != '\n') {
            out += text[i];
        }
    }
    return out;
}

Prompt prompt_of(std::string_view text)
{
    if (ends_with_word(text, "ogin:")) return Prompt::login;
    return ends_with_word(text, "assword:") ? Prompt::password : Prompt::other;
}

bool shows_boot(std::string_view text)
{
    constexpr std::string_view kSigns[] = {"U-Boot ", "Uncompressing Linux", "Booting Linux",
                                           "Linux version ", "Starting kernel"};
    return std::any_of(std::begin(kSigns), std::end(kSigns),
                       [&](std::string_view sign) { return text.find(sign) != text.npos; });
}

} // namespace station
