// The flash of a camera, erase block by erase block.
#include "sim/view/flash_map.hpp"
#include "sim/base/text.hpp"
#include "sim/sandbox/mark.hpp"
#include "sim/view/record.hpp"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vcam {
namespace {

constexpr uint64_t kErasedWord = ~uint64_t(0);
constexpr uint64_t kPrime = 0x9E3779B97F4A7C15; // 2^64 / golden ratio, odd

uint64_t word_at(const char* bytes)
{
    uint64_t word;
    memcpy(&word, bytes, sizeof word);
    return word;
}

// Four sums side by side, so that a block costs no more than reading it. Finds what changed by chance, not by intent.
uint64_t hash_of(const char* bytes, size_t size)
{
    uint64_t lanes[4] = {1, 2, 3, 4};
    for (size_t at = 0; at + 32 <= size; at += 32)
        for (size_t i = 0; i < 4; ++i) {
            lanes[i] = (lanes[i] ^ word_at(bytes + at + 8 * i)) * kPrime;
            lanes[i] ^= lanes[i] >> 29;
        }
    uint64_t sum = 0;
    for (const uint64_t lane : lanes) sum = (sum ^ lane) * kPrime;
    return sum;
}

bool is_erased(const char* bytes, size_t size)
{
    for (size_t at = 0; at + 8 <= size; at += 8)
        if (word_at(bytes + at) != kErasedWord) return false;
    return true;
}

bool pread_all(int fd, char* to, size_t size, off_t at)
{
    for (size_t done = 0; done < size;) {
        const ssize_t n = pread(fd, to + done, size - done, at + off_t(done));
        if (n <= 0) return false;
        done += size_t(n);
    }
    return true;
}

} // namespace

bool broken_off(const std::string& ending)
{
    return ending == "powercut" || ending == "watchdog" || ending == "timeout" ||
           starts_with(ending, "signal");
}

FlashMap::FlashMap(const Camera& camera) : camera_(camera)
{
    for (const auto& p : camera.partitions()) parts_.push_back({p, {}, {}, {}, {}, {}, {}, {}, {}});
}

FlashMap::Stamp FlashMap::stamp_of(const std::string& path)
{
    struct stat st;
    if (lstat(path.c_str(), &st) < 0) return {};
    return {int64_t(st.st_mtim.tv_sec) * 1'000'000'000 + st.st_mtim.tv_nsec, int64_t(st.st_ino), st.st_size};
}

// Read and not mapped: a program of the camera may cut its file at any moment.
FlashMap::Contents FlashMap::read(const std::string& path, const Partition& p) const
{
    Contents out(p.size / p.erase_size);
    const Fd fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    std::vector<char> bytes(p.erase_size);
    for (size_t i = 0; fd && i < out.size(); ++i) {
        if (!pread_all(fd.get(), bytes.data(), bytes.size(), off_t(i * p.erase_size))) break;
        Content& c = out[i];
        c.begins_erased = is_erased(bytes.data(), bytes.size() / 2);
        c.erased = c.begins_erased && is_erased(bytes.data() + bytes.size() / 2, bytes.size() / 2);
        c.ends_erased = uint8_t(bytes.back()) == 0xFF;
        c.hash = c.erased ? 0 : hash_of(bytes.data(), bytes.size());
    }
    return out;
}

bool FlashMap::refresh_content(Part& part)
{
    const std::string image = camera_.image(part.partition), marked = marked_image(camera_, part.partition);
    const Stamp stamps[] = {stamp_of(image), stamp_of(marked), stamp_of(image + ".bad")};
    if (stamps[0] == part.image && stamps[1] == part.marked && stamps[2] == part.bad) return false;
    if (stamps[1] != part.marked)
        part.before = stamps[1].size < 0 ? Contents() : read(marked, part.partition);
    if (stamps[0] != part.image) part.now = read(image, part.partition);
    part.bad_blocks.clear();
    for (const auto& line : split(try_read_file(image + ".bad").value_or(""), '\n'))
        if (!line.empty()) part.bad_blocks.push_back(uint32_t(atoi(line.c_str())));
    part.image = stamps[0];
    part.marked = stamps[1];
    part.bad = stamps[2];
    return true;
}

void FlashMap::classify(Part& part) const
{
    part.map.assign(part.now.size(), kOld);
    part.before_map.assign(part.before.size(), kOld);
    for (size_t i = 0; i < part.now.size(); ++i) {
        const bool known = i < part.before.size();
        if (known && part.before[i].erased) part.before_map[i] = kErased;
        if (part.now[i].erased)
            part.map[i] = kErased;
        else if (known && part.now[i].hash != part.before[i].hash)
            part.map[i] = kNew;
    }
    for (const uint32_t block : part.bad_blocks) {
        if (block < part.map.size()) part.map[block] = kBad;
        if (block < part.before_map.size()) part.before_map[block] = kBad;
    }
}

// The journal has each stretch that was erased or written. The last one ends inside a block where the power failed inside
// the operation. A program that was killed has not told its last stretch: then the last new block that has no end is
// where it stood.
void FlashMap::mark_torn(Part& part, const std::string& ended) const
{
    if (!broken_off(ended)) return;
    const auto last = last_stretch(run_events(camera_), part.partition.name);
    if (!last) return;
    const size_t block = last->end / part.partition.erase_size;
    const bool inside = last->end % part.partition.erase_size != 0;
    if (inside && last->last_of_run && block < part.map.size() && part.map[block] != kBad)
        part.map[block] = kTorn;
    if (!last->last_of_run || inside) return;
    for (size_t i = part.map.size(); i-- > 0;) {
        if (part.map[i] != kNew) continue;
        if (part.now[i].ends_erased && i * part.partition.erase_size >= (last->erase ? 0 : last->end))
            part.map[i] = kTorn;
        return;
    }
}

bool FlashMap::refresh(const std::string& ended)
{
    bool changed = false;
    for (Part& part : parts_) {
        if (!refresh_content(part) && ended == ended_) continue;
        const std::string before = part.map, start = part.before_map;
        classify(part);
        mark_torn(part, ended);
        changed |= part.map != before || part.before_map != start;
    }
    ended_ = ended;
    return changed;
}

cli::Json FlashMap::json() const
{
    cli::Json out = cli::Json::array();
    for (const Part& part : parts_)
        out.push_back({{"name", part.partition.name},
                       {"type", part.partition.type},
                       {"size", part.partition.size},
                       {"erase_size", part.partition.erase_size},
                       {"map", part.map},
                       {"before", part.before_map}});
    return out;
}

} // namespace vcam
