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

// Follows the images. A partition is read again only after its file has changed.
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
        bool erased = true, begins_erased = true, ends_erased = true; // whole, first half, last byte
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
        std::vector<uint32_t> bad_blocks;
        std::string map, before_map;
    };

    static Stamp stamp_of(const std::string& path);
    [[nodiscard]] Contents read(const std::string& path, const Partition& p) const;
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
