// Findings and header fields in words.
#include "tools/fwpkg/describe.hpp"

#include <cstdio>

namespace fwpkg {
namespace {

using zep::Finding;
using zep::Flaw;

std::string decimal(int64_t v) { return std::to_string(v); }
std::string word(int64_t v) { return hex(uint32_t(v), 8); }
std::string magic16(int64_t v) { return hex(uint64_t(v), 4); }
std::string bytes(int64_t v) { return std::to_string(v) + " bytes"; }
std::string marker(int64_t v) { return marker_text(uint32_t(v)) + " (" + word(v) + ")"; }
std::string layout(int64_t v) { return v == 1 ? "1 or 3" : decimal(v); }
std::string architecture(int64_t v) { return decimal(v) + " (" + architecture_name(uint8_t(v)) + ")"; }
std::string type(int64_t v) { return decimal(v) + " (" + type_name(uint8_t(v)) + ")"; }
std::string compression(int64_t v) { return decimal(v) + " (" + compression_name(uint8_t(v)) + ")"; }

struct Row {
    Flaw flaw;
    const char* what;
    std::string (*value)(int64_t);
    const char* also = ""; // what would have been right as well
    bool promise = false;  // the place holds a promise about other bytes: it is what was expected
};

constexpr Row kRows[] = {
    {Flaw::header, "package header cut short", bytes},
    {Flaw::marker, "marker", marker},
    {Flaw::version, "version", decimal},
    {Flaw::layout, "version without a known layout", layout},
    {Flaw::sizes, "file size against header and image sizes", bytes},
    {Flaw::image_header, "kernel image header cut short", bytes},
    {Flaw::image_magic, "kernel image magic", word},
    {Flaw::header_crc, "kernel image header CRC", word, "", true},
    {Flaw::data_short, "kernel data size beyond the end of the file", bytes, "", true},
    {Flaw::data_crc, "kernel data CRC", word, "", true},
    {Flaw::architecture, "kernel architecture", architecture},
    {Flaw::image_type, "kernel image type", type, ", 1 (standalone) or 4 (multi-file)"},
    {Flaw::compression, "kernel compression", compression, " or 0 (none)"},
    {Flaw::jffs2, "JFFS2 node magic at an erase block", magic16},
};

// A code's name from a table whose holes and end are unknown codes.
template<size_t N> const char* name_of(const char* const (&names)[N], uint8_t code)
{
    return code < N && names[code] ? names[code] : "unknown";
}

} // namespace

std::string hex(uint64_t value, int digits)
{
    char text[32];
    snprintf(text, sizeof text, "0x%0*llx", digits, static_cast<unsigned long long>(value));
    return text;
}

std::string printable(const std::string& text)
{
    std::string shown;
    for (unsigned char c : text) {
        char escaped[8];
        bool plain = c >= 0x20 && c < 0x7F && c != '"' && c != '\\';
        snprintf(escaped, sizeof escaped, plain ? "%c" : "\\x%02x", c);
        shown += escaped;
    }
    return shown;
}

std::string marker_bytes(uint32_t value)
{
    std::string text;
    for (int i = 0; i < 4; ++i) text += char(value >> 8 * i);
    return text;
}

std::string marker_text(uint32_t value) { return '"' + printable(marker_bytes(value)) + '"'; }

std::string describe(const Finding& finding)
{
    for (const Row& row : kRows) {
        if (row.flaw != finding.flaw) continue;
        const int64_t found = row.promise ? finding.expected : finding.found;
        const int64_t expected = row.promise ? finding.found : finding.expected;
        return std::string(row.what) + " at offset " + std::to_string(finding.offset) + " (" +
               hex(uint64_t(finding.offset)) + "): found " + row.value(found) + ", expected " +
               row.value(expected) + row.also;
    }
    return "unknown";
}

const char* architecture_name(uint8_t code)
{
    static constexpr const char* kNames[] = {
        "invalid", "Alpha",   "ARM",     "x86",      "IA-64", "MIPS",       "MIPS64",  "PowerPC",  "S390",
        "SuperH",  "SPARC",   "SPARC64", "M68K",     nullptr, "MicroBlaze", "Nios II", "Blackfin", "AVR32",
        "ST200",   "Sandbox", "NDS32",   "OpenRISC", "ARM64", "ARC",        "x86-64",  "Xtensa",   "RISC-V",
    };
    return name_of(kNames, code);
}

const char* type_name(uint8_t code)
{
    static constexpr const char* kNames[] = {"invalid",    "standalone", "kernel", "RAM disk",
                                             "multi-file", "firmware",   "script", "file system"};
    return name_of(kNames, code);
}

const char* compression_name(uint8_t code)
{
    static constexpr const char* kNames[] = {"none", "gzip", "bzip2", "lzma", "lzo", "lz4", "zstd"};
    return name_of(kNames, code);
}

} // namespace fwpkg
