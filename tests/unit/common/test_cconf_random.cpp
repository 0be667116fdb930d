// The typed readers on files that chance wrote.
#include "tests/unit/common/scan_rules.hpp"

#include <gtest/gtest.h>
#include <random>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

using namespace zep;
using namespace std::string_literals;
using scan_rules::Values;
using std::string;

const string kLetters = "abcXYZ0189_-.:@/%,; \t\"#[]\x7f\xff\x01";
const string kBytes = kLetters + string("\0\n\r===", 6);

struct Chance {
    std::mt19937 engine{20120919};

    size_t below(size_t bound) { return std::uniform_int_distribution<size_t>(0, bound - 1)(engine); }
    auto of(const auto& list) { return list[below(std::size(list))]; }
    string some(const string& letters, size_t length)
    {
        string text;
        while (text.size() < length) text += of(letters);
        return text;
    }

    string fitting(const ConfKey& key)
    {
        const string hex = "0123456789abcdefABCDEF";
        if (key.words) return of(AnyRecord::words(key));
        if (key.store == conf_store_text) return some(kLetters, 1 + below(key.size - 1));
        if (key.store == conf_store_int32)
            return std::to_string(std::uniform_int_distribution<int32_t>(key.min, key.max)(engine));
        string text;
        size_t groups = key.store == conf_store_mac ? 6 : key.store == conf_store_ipv4 ? 4 : 8;
        for (size_t i = 0; i < groups; ++i) {
            if (i) text += groups == 4 ? '.' : ':';
            text += groups == 4 ? std::to_string(below(256)) : some(hex, groups == 6 ? 2 : 1 + below(4));
        }
        return text;
    }

    string name(const TypedReader& reader)
    {
        const ConfKey key = of(reader.table.keys);
        switch (below(6)) {
        case 0:
            return string(key.name).substr(0, below(strlen(key.name)));
        case 1:
            return key.name + some(kLetters, below(4));
        case 2:
            return some(kBytes, below(12));
        default:
            return key.name;
        }
    }

    string value(const TypedReader& reader)
    {
        switch (below(5)) {
        case 0:
            return "";
        case 1:
            return some(kBytes, below(40));
        case 2:
            return string("\"") + of("#[=\"x"s) + some(kLetters, below(140)) + '"';
        default:
            return fitting(of(reader.table.keys));
        }
    }

    string line(const TypedReader& reader)
    {
        const std::vector<string> sections = {"[INPUT]", "[FTP]", " [EMAIL] x=1", "[FTP", "[]", "[INPUTS]"};
        const std::vector<string> signs = {"=", "=", " = ", "\t=", "  =  ", "==", ""};
        const std::vector<string> ends = {"\n", "\n", "\r\n", "", "=\n", " \n", "#\n", "\n\n"};
        if (below(5) == 0) return of(sections) + of(ends);
        if (below(20) == 0) return some(kBytes, 200 + below(10000));
        string wall(below(8) == 0 ? 230 + below(30) : 0, 'w'); // what follows is cut, or begins a piece
        return wall + string(below(3), ' ') + name(reader) + of(signs) + value(reader) + of(ends);
    }
};

// A file in memory: some thousands are written.
class MemoryFile {
public:
    explicit MemoryFile(const string& content)
    {
        EXPECT_EQ(write(fd_, content.data(), content.size()), ssize_t(content.size()));
    }
    ~MemoryFile() { close(fd_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    [[nodiscard]] string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

private:
    int fd_ = int(syscall(SYS_memfd_create, "conf", MFD_CLOEXEC)); // a small C library may lack the wrapper
};

Values values(const TypedReader& reader, const AnyRecord& record)
{
    Values all;
    for (const ConfKey& key : reader.table.keys) all.push_back(record.text(key));
    return all;
}

} // namespace

TEST(CconfRandom, AnyFileReadsAsTheRulesSay)
{
    Chance chance;
    for (const TypedReader& reader : kReaders) {
        for (int round = 0; round < 60; ++round) {
            string file;
            for (size_t lines = chance.below(40); lines > 0; --lines) file += chance.line(reader);
            AnyRecord record(reader);
            Values before = values(reader, record);
            ASSERT_EQ(record.read(MemoryFile(file).path()), 1);
            ASSERT_TRUE(record.sound());
            ASSERT_EQ(values(reader, record), scan_rules::after_reading(reader, before, file)) << file;
        }
    }
}

TEST(CconfRandom, HugeFilesAndLinesDoNoHarm)
{
    Chance chance;
    string wall(10000, 'x'), signs(1 << 20, '='), bytes = chance.some(kBytes, 1 << 20);
    for (const TypedReader& reader : kReaders) {
        const ConfKey& key = reader.table.keys[0];
        string section = key.section ? "[" + string(key.section) + "]\n" : "";
        string value = chance.fitting(key), line = key.name + ("=\"" + value + "\"\n");
        if (AnyRecord::is_text(key)) value = "y", line = string(key.name) + "=y\n";
        for (const string& filler : {wall, "#" + wall, key.name + ("=" + wall), signs, bytes}) {
            AnyRecord record(reader);
            ASSERT_EQ(record.read(MemoryFile(filler + "\n" + section + line).path()), 1);
            EXPECT_TRUE(record.sound());
            EXPECT_EQ(record.text(key), value) << "what stands behind is read";
        }
    }
}
