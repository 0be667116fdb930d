// The JFFS2 reader against images of the file system's own maker, and the writer against the reader.
#include "sim/jffs2/jffs2.hpp"
#include "tests/support/temp_folder.hpp"

#include <gtest/gtest.h>
#include <map>
#include <random>
#include <sys/stat.h>

namespace fs = std::filesystem;
using namespace vcam;

namespace {

constexpr uint32_t kBlock = 64 << 10;

// Everything about a tree that a camera can see: kind, mode, contents or target, time of files.
std::map<std::string, std::string> tree(const std::string& root)
{
    std::map<std::string, std::string> out;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        struct stat st;
        if (::lstat(entry.path().c_str(), &st) != 0) continue;
        std::string text = std::to_string(st.st_mode);
        if (S_ISREG(st.st_mode)) text += " " + std::to_string(st.st_mtime) + " " + read_file(entry.path());
        if (S_ISLNK(st.st_mode)) text += " " + fs::read_symlink(entry.path()).string();
        out[entry.path().lexically_relative(root)] = text;
    }
    return out;
}

std::string noise(size_t size, unsigned seed)
{
    std::mt19937 random(seed);
    std::string text(size, 0);
    for (char& c : text) c = char(random());
    return text;
}

std::string settings(int lines)
{
    std::string text;
    for (int i = 0; i < lines; ++i)
        text += "key_" + std::to_string(i) + "=value " + std::to_string(i * i) + "\n";
    return text;
}

class Jffs2 : public testing::Test {
protected:
    Jffs2()
    {
        fs::create_directories(source);
        fs::create_directories(out);
    }
    void fill()
    {
        write_file(source + "/network/network.conf", settings(400)); // several nodes
        write_file(source + "/empty", "");
        write_file(source + "/binary", noise(70000, 1)); // does not compress, larger than a block
        write_file(source + "/zeros", std::string(20000, '\0'));
        write_file(source + "/deep/er/and/deeper/file", "x");
        fs::create_directories(source + "/empty folder");
        fs::create_symlink("network/network.conf", source + "/link");
        fs::create_symlink("/nowhere/at/all", source + "/dangling");
        fs::permissions(source + "/empty", fs::perms(04640));
        fs::permissions(source + "/deep/er", fs::perms(0750));
    }
    void make(const std::string& options, uint32_t size = 1 << 20)
    {
        const std::string command =
            "PATH=$PATH:/usr/sbin mkfs.jffs2 -r '" + source + "' -o '" + image + "' " + options;
        ASSERT_EQ(std::system(command.c_str()), 0) << command;
        std::string bytes = read_file(image);
        ASSERT_LE(bytes.size(), size);
        bytes.resize(size, '\xFF');
        write_file(image, bytes);
    }
    std::map<std::string, std::string> unpacked(uint32_t block = kBlock)
    {
        fs::remove_all(out);
        fs::create_directories(out);
        EXPECT_EQ(jffs2::unpack(image, block, out), "");
        return tree(out);
    }

    TempFolder folder;
    std::string source = folder / "source", out = folder / "out", image = folder / "image";
};

TEST_F(Jffs2, ReadsWhatTheMakerWroteInEveryLayoutAndWritesNothingBackOfAnUnchangedTree)
{
    fill();
    for (const char* options :
         {"-l", "-l -n", "-l -e 16KiB", "-l -e 128KiB -n -p", "-l -x zlib", "-l -x zlib -x rtime", "-l -x zlib -X lzo",
          "-l -m none", "-l -m size", "-l -s 2048", "-l -c 20 -e 0x20000"}) {
        make(options);
        EXPECT_EQ(unpacked(), tree(source)) << options;
        const std::string before = read_file(image);
        ASSERT_EQ(jffs2::sync(image, kBlock, out), "");
        EXPECT_EQ(read_file(image), before) << options;
    }
}

TEST_F(Jffs2, SyncBringsAnyTreeBackAndTouchesNoByteThatWasWritten)
{
    fill();
    for (const char* options : {"-l", "-l -n", "-l -x zlib -p"}) {
        make(options);
        unpacked();
        write_file(out + "/network/network.conf", settings(390) + "added=1\n"); // longer pages and a new end
        write_file(out + "/zeros", std::string(100, 'z'));                      // shrinks
        write_file(out + "/new/file", noise(9000, 2));
        fs::remove_all(out + "/deep");
        fs::remove(out + "/link");
        fs::create_symlink("b", out + "/link");
        fs::permissions(out + "/empty", fs::perms(0600));
        fs::remove(out + "/dangling");
        fs::create_directories(out + "/dangling"); // the kind changes
        fs::create_hard_link(out + "/binary", out + "/second name");
        const auto wanted = tree(out);
        const std::string before = read_file(image);
        ASSERT_EQ(jffs2::sync(image, kBlock, out), "");
        const std::string after = read_file(image);
        ASSERT_EQ(after.size(), before.size());
        for (size_t i = 0; i < before.size(); ++i)
            ASSERT_TRUE(before[i] == after[i] || before[i] == '\xFF')
                << "byte " << i << " was written already";
        EXPECT_EQ(unpacked(), wanted) << options;
        EXPECT_EQ(fs::hard_link_count(out + "/binary"), 2u);
    }
}

// A file that shrank and grew again must not show what stood there before it shrank.
TEST_F(Jffs2, AFileThatShrinksAndGrowsForgetsItsOldEnd)
{
    write_file(source + "/f", std::string(10000, 'a'));
    make("-l");
    unpacked();
    for (const std::string& text :
         {std::string(100, 'b'), std::string(100, 'b') + std::string(9000, '\0'), std::string()}) {
        write_file(out + "/f", text);
        ASSERT_EQ(jffs2::sync(image, kBlock, out), "");
        unpacked();
        EXPECT_EQ(read_file(out + "/f"), text);
    }
}

TEST_F(Jffs2, AFullLogIsCompactedAndAnOverfullOneStaysAsItWas)
{
    write_file(source + "/keep", settings(100));
    make("-l -e 16KiB", 256 << 10);
    unpacked();
    for (unsigned i = 0; i < 40; ++i) { // 40 * 20 kB through 256 kB of flash
        write_file(out + "/log", noise(20000, i));
        const auto wanted = tree(out);
        ASSERT_EQ(jffs2::sync(image, 16 << 10, out), "") << i;
        EXPECT_EQ(unpacked(), wanted) << i;
    }
    const std::string before = read_file(image);
    write_file(out + "/log", noise(300000, 99));
    EXPECT_NE(jffs2::sync(image, 16 << 10, out), "");
    EXPECT_EQ(read_file(image), before);
}

// Flash of 16 KiB blocks of which the third is bad: what an image has there is lost, and nothing new
// goes there, not even when the log is written afresh.
TEST_F(Jffs2, ABadBlockHoldsNothingAndTakesNothing)
{
    constexpr uint32_t kSmall = 16 << 10;
    write_file(source + "/first", noise(100, 1));
    write_file(source + "/large", noise(60000, 2));
    make("-l -n -e 16KiB", 256 << 10);
    write_file(image + ".bad", "3\n"); // the file's end
    unpacked(kSmall);
    const std::string cut = read_file(out + "/large");
    EXPECT_TRUE(cut.size() > 3 * 15000 && cut.size() < 60000 && noise(60000, 2).starts_with(cut));
    write_file(image + ".bad", "2\n");
    const std::string bad = read_file(image).substr(2 * kSmall, kSmall);
    unpacked(kSmall);
    EXPECT_EQ(read_file(out + "/first"), noise(100, 1));
    EXPECT_NE(read_file(out + "/large"), noise(60000, 2));
    fs::remove(out + "/large");
    for (unsigned i = 0; i < 20; ++i) {
        write_file(out + "/log", noise(20000, i));
        const auto wanted = tree(out);
        ASSERT_EQ(jffs2::sync(image, kSmall, out), "") << i;
        EXPECT_EQ(unpacked(kSmall), wanted) << i;
        EXPECT_EQ(read_file(image).substr(2 * kSmall, kSmall), bad);
    }
}

TEST_F(Jffs2, ErasedFlashIsAnEmptyFolderAndTakesATree)
{
    fill();
    write_file(image, std::string(512 << 10, '\xFF'));
    EXPECT_TRUE(unpacked().empty());
    ASSERT_EQ(jffs2::sync(image, kBlock, source), "");
    EXPECT_EQ(unpacked(), tree(source));
}

// What is damaged is missing; the rest is there and nothing is written outside the folder.
TEST_F(Jffs2, DamagedImagesGiveATreeOrAnErrorLine)
{
    fill();
    make("-l -e 16KiB", 256 << 10);
    const std::string good = read_file(image);
    std::mt19937 random(7);
    for (int round = 0; round < 200; ++round) {
        std::string bad = good;
        for (int k = 0; k < 1 + round; ++k) bad[random() % 120000] = char(random());
        if (round % 5 == 0) bad.resize(random() % bad.size());
        write_file(image, bad);
        fs::remove_all(out);
        fs::create_directories(out);
        jffs2::unpack(image, 16 << 10, out);
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 3); // source, out, image
    EXPECT_NE(jffs2::unpack(folder / "missing", kBlock, out), "");
}

} // namespace
