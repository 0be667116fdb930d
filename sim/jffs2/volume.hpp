// A JFFS2 file system in use: files in memory, each change of them a node of the log before the call returns.
//
// As the real driver writes it: a data node lies within a page of its file and begins at a whole word; a name is a node of
// its folder, and removing one is a node too; a new inode is written before its name; what grows gets a hole first. Data
// are stored without compression. Not safe for several threads.
#pragma once

#include "sim/jffs2/flash_log.hpp"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace vcam::jffs2 {

struct Attributes {
    uint32_t ino = 0, mode = 0, uid = 0, gid = 0, mtime = 0, links = 0, rdev = 0;
    uint64_t size = 0;
};

// What a change of attributes changes.
struct NewAttributes {
    enum Field : unsigned { mode = 1, owner = 2, group = 4, time = 8, size = 16 };
    unsigned fields = 0;
    uint32_t new_mode = 0, uid = 0, gid = 0, mtime = 0;
    uint64_t new_size = 0;
};

struct NewFile {
    uint32_t mode = 0, uid = 0, gid = 0;
    Bytes content; // a link's target, a device's two bytes
};

// Results below zero are negative errno numbers.
class Volume : private NodeOwner {
public:
    // `now` gives seconds since 1970.
    Volume(Medium& medium, std::function<uint32_t()> now) : medium_(medium), now_(std::move(now)) {}
    // Reads the image, whose bad blocks are filled with zeros and listed. What is damaged in it is left out; a file whose nodes
    // cannot be read keeps its name, and every look at it fails with EIO.
    void load(Geometry geometry, std::span<const uint8_t> image, const std::set<uint32_t>& bad);

    int find(uint32_t folder, const std::string& name, uint32_t& ino) const;
    int attributes(uint32_t ino, Attributes& out) const;
    int make(uint32_t folder, const std::string& name, const NewFile& file, uint32_t& ino);
    int link(uint32_t ino, uint32_t folder, const std::string& name);
    int remove(uint32_t folder, const std::string& name, bool is_folder);
    int rename(uint32_t from, const std::string& name, uint32_t to, const std::string& wanted, bool replace);
    int change(uint32_t ino, const NewAttributes& change);
    int64_t write(uint32_t ino, uint64_t at, std::span<const uint8_t> data);
    // A file's bytes or a link's target; null where there is none.
    [[nodiscard]] const Bytes* content(uint32_t ino) const;
    // The first name of a folder behind `position`, and its own position. False at the end.
    bool next_name(uint32_t folder, uint64_t& position, std::string& name, uint32_t& ino) const;
    // An inode without a name lives until all that held it have let it go.
    void hold(uint32_t ino);
    void release(uint32_t ino, uint64_t times);

    [[nodiscard]] uint32_t now() const { return now_(); }
    int flush() { return log_->flush(); }
    [[nodiscard]] bool has_buffered() const { return log_->has_buffered(); }
    [[nodiscard]] const FlashLog& log() const { return *log_; }

private:
    static constexpr uint32_t kNowhere = UINT32_MAX;
    static constexpr size_t kMostMemory = 64u << 20; // of all files: holes take no flash
    static constexpr uint32_t kFolderMode = 0040755; // of a root without a node
    struct Piece {                                   // bytes of a file and the node that they are in
        uint32_t end, at;
    };
    struct Entry {
        uint32_t ino, at;
        uint64_t order;
    };
    struct File {
        uint32_t mode = kFolderMode, uid = 0, gid = 0, mtime = 0, version = 0, links = 0, parent = 0;
        uint32_t newest = kNowhere; // the node that has the attributes
        uint64_t held = 0;
        bool damaged = false;
        Bytes content;
        std::map<uint32_t, Piece> pieces; // by their begin
        std::map<std::string, Entry> names;
        std::map<uint64_t, std::string> order;
    };
    using Place = std::pair<uint32_t, std::string>; // a folder and a name
    struct Owner {
        uint32_t ino = 0; // of a data node
        uint32_t uses = 0;
        Place name; // of a name's node
    };

    bool needs(uint32_t at) override;
    bool merge(uint32_t at, uint32_t room) override;
    void moved(uint32_t from, uint32_t to) override;
    void erased(uint32_t begin, uint32_t end) override;

    void load_file(uint32_t ino, const Inode& inode);
    void load_names(const Log& log);
    [[nodiscard]] File* file(uint32_t ino);
    [[nodiscard]] const File* file(uint32_t ino) const;
    int put_inode(uint32_t ino, File& f, DataNode head, std::span<const uint8_t> data, Use use);
    int put_name(uint32_t folder, const std::string& name, uint32_t ino, uint32_t mode);
    int put_attributes(uint32_t ino, File& f);
    int put_hole(uint32_t ino, File& f, uint32_t end);
    int put_page(uint32_t ino, File& f, uint32_t at, std::span<const uint8_t> data);
    int resize(uint32_t ino, File& f, uint32_t size);
    [[nodiscard]] bool has_memory(const File& f, size_t size) const;
    void cover(uint32_t ino, File& f, uint32_t begin, uint32_t end, uint32_t at);
    void take_piece(File& f, std::map<uint32_t, Piece>::iterator piece, uint32_t begin, uint32_t end);
    void use(uint32_t at, uint32_t ino);
    void unuse(uint32_t at);
    void forget(uint32_t ino);
    void unname(uint32_t ino);
    void remove_entry(File& folder, const std::string& name);
    [[nodiscard]] static DataNode head_of(const File& f);
    [[nodiscard]] static bool is_plain(uint32_t mode) { return (mode & 0170000) == 0100000; }

    Medium& medium_;
    std::function<uint32_t()> now_;
    std::unique_ptr<FlashLog> log_;
    std::map<uint32_t, File> files_;
    std::map<uint32_t, Owner> owners_;     // of needed nodes, by place
    std::map<Place, uint32_t> removals_;   // where the newest node for the name removes it
    std::map<uint32_t, Place> written_;    // every name that stands on the flash, by place
    std::map<Place, uint32_t> name_count_; // how many of them
    uint32_t highest_ino_ = kRoot;
    uint64_t last_order_ = 0;
};

} // namespace vcam::jffs2
