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

constexpr size_t kSample = 64;
constexpr unsigned kLooksForAll = 10; // a second's
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

Fd open_image(const std::string& path)
{
    return Fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

// Some bytes at the beginning, in the middle and at the end of a block.
uint64_t sample_of(int fd, off_t at, size_t size)
{
    char bytes[3 * kSample] = {};
    for (size_t i = 0; i < 3; ++i)
        pread_all(fd, bytes + i * kSample, kSample, at + off_t(i * (size - kSample) / 2));
    return hash_of(bytes, sizeof bytes);
}

} // namespace

bool broken_off(const std::string& ending)
{
    return ending == "powercut" || ending == "watchdog" || ending == "timeout" ||
           starts_with(ending, "signal");
}

FlashMap::FlashMap(const Camera& camera) : camera_(camera)
{
    for (const auto& p : camera.partitions()) parts_.push_back({p, {}, {}, {}, {}, {}, {}, 0, {}, {}, {}});
}

FlashMap::Stamp FlashMap::stamp_of(const std::string& path)
{
    struct stat st;
    if (lstat(path.c_str(), &st) < 0) return {};
    return {int64_t(st.st_mtim.tv_sec) * 1'000'000'000 + st.st_mtim.tv_nsec, int64_t(st.st_ino), st.st_size};
}

// Read and not mapped: a program of the camera may cut its file at any moment.
void FlashMap::read_block(int fd, const Partition& p, size_t block, Content& content)
{
    std::vector<char> bytes(p.erase_size);
    if (!pread_all(fd, bytes.data(), bytes.size(), off_t(block * p.erase_size))) return;
    content.erased = is_erased(bytes.data(), bytes.size());
    content.ends_erased = uint8_t(bytes.back()) == 0xFF;
    content.hash = content.erased ? 0 : hash_of(bytes.data(), bytes.size());
}

FlashMap::Contents FlashMap::read(const std::string& path, const Partition& p)
{
    Contents out(p.size / p.erase_size);
    const Fd fd = open_image(path);
    for (size_t i = 0; fd && i < out.size(); ++i) read_block(fd.get(), p, i, out[i]);
    return out;
}

void FlashMap::read_image(Part& part, const std::string& path, bool changed)
{
    const Partition& p = part.partition;
    const Fd fd = open_image(path);
    const bool all = !changed || part.looks % kLooksForAll == 0;
    part.now.resize(p.size / p.erase_size);
    part.samples.resize(part.now.size());
    for (size_t i = 0; fd && i < part.now.size(); ++i) {
        const uint64_t sample = sample_of(fd.get(), off_t(i * p.erase_size), p.erase_size);
        if (all || sample != part.samples[i]) read_block(fd.get(), p, i, part.now[i]);
        part.samples[i] = sample;
    }
    part.looks = changed ? part.looks + 1 : 0;
}

bool FlashMap::refresh_content(Part& part)
{
    const std::string image = camera_.image(part.partition), marked = marked_image(camera_, part.partition);
    const Stamp stamps[] = {stamp_of(image), stamp_of(marked), stamp_of(image + ".bad")};
    const bool changed = stamps[0] != part.image;
    if (!changed && !part.looks && stamps[1] == part.marked && stamps[2] == part.bad) return false;
    if (stamps[1] != part.marked)
        part.before = stamps[1].size < 0 ? Contents() : read(marked, part.partition);
    if (changed || part.looks) read_image(part, image, changed);
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
// the operation. A killed program has not written its last stretch into the journal: then it stood in the last new block
// that has no end.
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
