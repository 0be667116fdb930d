// The flash of a camera, erase block by erase block.
#pragma once

#include "sim/base/camera.hpp"
#include "tools/cli/json.hpp"

#include <optional>
#include <string>
#include <vector>

namespace vcam {

// The state of an erase block, as one letter of a map.
enum Block : char {
    kBad = 'b',
    kErased = 'e',
    kOld = 'o', // programmed as it was when the run started, or no run has started
    kNew = 'n', // programmed during the last run
    kTorn = 't' // the power failed while it was erased or programmed
};

// Follows the images. While a file changes, only blocks whose samples have changed are read, and all of them once a second
// and when it has come to rest.
class FlashMap {
public:
    explicit FlashMap(const Camera& camera);
    // True when a map has changed. `ended` is how the last run ended, "" while it runs.
    bool refresh(const std::string& ended);
    // A list of {name, type, size, erase_size, map, before}; `before` is the map at the run's start, "" without a run.
    [[nodiscard]] cli::Json json() const;
    // The map of one partition.
    [[nodiscard]] const std::string& map(size_t partition) const { return parts_[partition].map; }

private:
    struct Content {
        uint64_t hash = 0;
        bool erased = true, ends_erased = true; // the whole of it, its last byte
    };
    using Contents = std::vector<Content>;
    // What stat says of a file; a new value means new content.
    struct Stamp {
        int64_t time_ns = 0, inode = 0, size = -1;
        bool operator==(const Stamp&) const = default;
    };
    struct Part {
        Partition partition;
        Stamp image, marked, bad;
        Contents now, before;
        std::vector<uint64_t> samples; // of each block of the image
        unsigned looks = 0;            // since all of it was read; 0: at rest
        std::vector<uint32_t> bad_blocks;
        std::string map, before_map;
    };

    static Stamp stamp_of(const std::string& path);
    static void read_block(int fd, const Partition& p, size_t block, Content& content);
    static Contents read(const std::string& path, const Partition& p);
    static void read_image(Part& part, const std::string& path, bool changed);
    bool refresh_content(Part& part);
    void classify(Part& part) const;
    void mark_torn(Part& part, const std::string& ended) const;

    const Camera& camera_;
    std::vector<Part> parts_;
    std::string ended_ = "?";
};

// Whether a run that ended so was broken off.
bool broken_off(const std::string& ending);

} // namespace vcam
