// A JFFS2 file system in use, on flash that can be cut at each write and erase; the reader is the judge.
#include "sim/jffs2/jffs2_nodes.hpp"
#include "sim/jffs2/volume.hpp"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <sys/stat.h>

using namespace vcam::jffs2;

namespace {

// Flash that counts operations and stops at one of them, in the middle if it is told so.
struct Flash final : Medium {
    explicit Flash(Geometry g) : geometry(g), bytes(g.size, 0xFF) {}
    int read(uint32_t at, std::span<uint8_t> out) override
    {
        std::copy_n(bytes.begin() + at, out.size(), out.begin());
        return 0;
    }
    int write(uint32_t at, std::span<const uint8_t> data) override
    {
        const size_t most = allowed(data.size());
        for (size_t i = 0; i < most; ++i) {
            EXPECT_EQ(data[i] & ~bytes[at + i], 0) << "byte " << at + i << " is not erased";
            bytes[at + i] &= data[i];
        }
        EXPECT_EQ(at % geometry.page, 0u);
        EXPECT_EQ(data.size() % geometry.page, 0u);
        return most == data.size() ? 0 : EIO;
    }
    int erase(uint32_t at, uint32_t size) override
    {
        ++erases;
        const size_t most = allowed(size);
        std::fill_n(bytes.begin() + at, most, 0xFF);
        return most == size ? 0 : EIO;
    }
    size_t allowed(size_t size)
    {
        if (refused.contains(operations)) return ++operations, 0;
        const int64_t now = operations++;
        return now < cut ? size : now == cut ? size / 2 : 0;
    }
    Geometry geometry;
    Bytes bytes;
    int64_t operations = 0, cut = INT64_MAX;
    std::set<int64_t> refused = {};
    int erases = 0;
};

using Tree = std::map<std::string, std::string>; // path; mode, size and checksum

void list(const Volume& v, uint32_t folder, const std::string& path, Tree& out)
{
    std::string name;
    uint32_t ino = 0;
    for (uint64_t position = 0; v.next_name(folder, position, name, ino);) {
        Attributes a;
        v.attributes(ino, a);
        std::string text = std::to_string(a.mode) + " ";
        if (!S_ISDIR(a.mode)) text += std::to_string(a.size) + " " + std::to_string(crc32(*v.content(ino)));
        out[path + name] = text;
        if (S_ISDIR(a.mode)) list(v, ino, path + name + "/", out);
    }
}

Tree tree(const Volume& v)
{
    Tree out;
    list(v, kRoot, "", out);
    return out;
}

std::unique_ptr<Volume> mounted(Flash& flash, const std::set<uint32_t>& bad = {})
{
    auto v = std::make_unique<Volume>(flash, [] { return 1000000000u; });
    v->load(flash.geometry, flash.bytes, bad);
    return v;
}

// A step of work as a camera's programs do it; the same number gives the same step.
void step(Volume& v, unsigned number)
{
    std::mt19937 random(number);
    const std::string name = "file" + std::to_string(random() % 5);
    uint32_t ino = 0, folder = 0;
    if (v.find(kRoot, "folder", folder) != 0) v.make(kRoot, "folder", {S_IFDIR | 0755, 0, 0, {}}, folder);
    const uint32_t where = random() % 2 ? kRoot : folder;
    Bytes data(1 + random() % 6000);
    for (uint8_t& b : data) b = uint8_t(random());
    switch (random() % 8) {
    case 0:
        v.remove(where, name, false);
        return;
    case 1:
        v.rename(where, name, random() % 2 ? kRoot : folder, "file" + std::to_string(random() % 5), true);
        return;
    case 2:
        if (v.find(where, name, ino) == 0) v.link(ino, folder, "second" + std::to_string(random() % 3));
        return;
    case 3:
        if (v.find(where, name, ino) == 0)
            v.change(ino, {.fields = NewAttributes::size | NewAttributes::mode,
                           .new_mode = 0600 + unsigned(random() % 64),
                           .new_size = random() % 9000});
        return;
    case 4:
        v.make(where, name, {S_IFLNK | 0777, 0, 0, {'t', uint8_t('a' + random() % 26)}}, ino);
        return;
    default:
        if (v.find(where, name, ino) != 0) v.make(where, name, {S_IFREG | 0644, 0, 0, {}}, ino);
        Attributes a;
        if (v.attributes(ino, a) == 0 && S_ISREG(a.mode)) v.write(ino, random() % 9000, data);
    }
}

constexpr Geometry kGeometries[] = {
    {256 << 10, 16 << 10, 1}, {256 << 10, 16 << 10, 512}, {512 << 10, 64 << 10, 1}};

TEST(Volume, WhatWasDoneIsWhatAReaderFindsThroughManyGarbageCollections)
{
    for (const Geometry& g : kGeometries) {
        Flash flash(g);
        auto v = mounted(flash);
        for (unsigned i = 0; i < 1500; ++i) {
            step(*v, i);
            if (i % 50) continue;
            ASSERT_EQ(v->flush(), 0);
            ASSERT_EQ(tree(*mounted(flash)), tree(*v)) << "step " << i;
            if (i % 100) v = mounted(flash);
        }
        EXPECT_GT(flash.erases, 20);
    }
}

// The state before the step that was cut, or one that a part of the step makes: never anything else in other files, and
// the log takes further changes.
TEST(Volume, ACutAnywhereLeavesTheStateBeforeOrWithinTheStep)
{
    for (const Geometry& g : {kGeometries[0], kGeometries[2]}) {
        Flash whole(g);
        const auto uncut = mounted(whole);
        std::vector<int64_t> done; // operations up to each step's end
        for (unsigned i = 0; whole.operations < 1200; ++i) {
            step(*uncut, i);
            done.push_back(whole.operations);
        }
        for (int64_t cut = 5; cut < 1200; cut += 89) {
            Flash flash(g);
            auto v = mounted(flash);
            flash.cut = cut;
            unsigned i = 0;
            for (; done[i] <= cut; ++i) step(*v, i);
            const Tree before = tree(*v);
            step(*v, i++);
            const Tree after = tree(*v);
            flash.cut = INT64_MAX;
            auto again = mounted(flash);
            const Tree found = tree(*again);
            for (const auto& [path, text] : before)
                if (after.contains(path) && after.at(path) == text &&
                    (!found.contains(path) || found.at(path) != text))
                    ADD_FAILURE() << "cut " << cut << ": " << path << " has changed, which step " << i
                                  << " left alone";
            step(*again, 4242);
            ASSERT_EQ(again->flush(), 0);
            ASSERT_EQ(tree(*mounted(flash)), tree(*again)) << "after cut " << cut;
        }
    }
}

TEST(Volume, AFileOfUnknownNodesKeepsItsNameAndEachLookAtItFails)
{
    Flash flash(kGeometries[0]);
    constexpr uint8_t kUnknown = 200;
    Bytes log;
    for (const Bytes& node :
         {inode_node(2, 1, {S_IFREG | 0644, 0, 0, 0, 4, 0, 4, kUnknown, {}, 0, 0}, Bytes(4)),
          name_node(kRoot, "strange", {.version = 1, .ino = 2}, S_IFREG),
          name_node(kRoot, "lost", {.version = 2, .ino = 9}, S_IFREG)}) {
        log.insert(log.end(), node.begin(), node.end());
        log.resize(aligned(uint32_t(log.size())), 0xFF);
    }
    std::copy(log.begin(), log.end(), flash.bytes.begin());
    auto v = mounted(flash);
    for (unsigned i = 0; i < 200; ++i) step(*v, i);
    uint32_t ino = 0;
    Attributes a;
    EXPECT_EQ(v->find(kRoot, "strange", ino), 0);
    EXPECT_EQ(v->attributes(ino, a), -EIO);
    EXPECT_EQ(v->write(ino, 0, Bytes(4)), -EIO);
    EXPECT_EQ(v->find(kRoot, "lost", ino), -ENOENT);
    EXPECT_EQ(v->flush(), 0);
    EXPECT_EQ(tree(*mounted(flash)), tree(*v));
    EXPECT_GT(flash.erases, 2);
}

TEST(Volume, ARefusedWriteGoesElsewhereAndAFullLogSaysSo)
{
    for (const Geometry& g : kGeometries) {
        Flash flash(g);
        auto v = mounted(flash);
        for (int64_t n = 7; n < 4000; n += 97) flash.refused.insert(n);
        for (unsigned i = 0; i < 300; ++i) step(*v, i);
        ASSERT_EQ(v->flush(), 0);
        EXPECT_EQ(tree(*mounted(flash)), tree(*v));
        flash.refused.clear();
        uint32_t ino = 0;
        ASSERT_EQ(v->make(kRoot, "large", {S_IFREG | 0644, 0, 0, {}}, ino), 0);
        const Bytes page(4096, 'x');
        int64_t n = 0;
        for (uint64_t at = 0; (n = v->write(ino, at, page)) > 0; at += page.size()) {
        }
        EXPECT_EQ(n, -ENOSPC);
        EXPECT_EQ(v->remove(kRoot, "large", false), 0);
        // Holes take memory and no flash.
        ASSERT_EQ(v->make(kRoot, "hole", {S_IFREG | 0644, 0, 0, {}}, ino), 0);
        EXPECT_EQ(v->change(ino, {.fields = NewAttributes::size, .new_size = 60 << 20}), 0);
        uint32_t second = 0;
        ASSERT_EQ(v->make(kRoot, "second", {S_IFREG | 0644, 0, 0, {}}, second), 0);
        EXPECT_EQ(v->write(second, 5 << 20, page), -ENOSPC);
        EXPECT_EQ(v->write(second, 1 << 20, page), 4096);
        for (const char* name : {"hole", "second"}) EXPECT_EQ(v->remove(kRoot, name, false), 0);
        ASSERT_EQ(v->make(kRoot, "after", {S_IFREG | 0644, 0, 0, {}}, ino), 0);
        EXPECT_EQ(v->write(ino, 0, page), 4096);
        ASSERT_EQ(v->flush(), 0);
        EXPECT_EQ(tree(*mounted(flash)), tree(*v));
    }
}

} // namespace
