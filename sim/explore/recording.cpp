// Reading the record of a run's flash operations.
#include "sim/explore/recording.hpp"
#include "sim/base/text.hpp"

#include <cstring>

namespace vcam::explore {
namespace {

constexpr struct {
    flash::Kind kind;
    const char* name;
    bool has_data;
} kKinds[] = {{flash::Kind::write, "write", true},
              {flash::Kind::erase, "erase", false},
              {flash::Kind::mark_bad, "mark bad", false},
              {flash::Kind::replace, "replace", true}};

bool is_right(const flash::Entry& e)
{
    if (memcmp(e.magic, flash::kMagic, sizeof e.magic) != 0 || e.partition > 3) return false;
    for (const auto& kind : kKinds)
        if (uint8_t(kind.kind) == e.kind) return e.data_size == (kind.has_data ? e.size : 0);
    return false;
}

} // namespace

const char* name_of(flash::Kind kind)
{
    for (const auto& k : kKinds)
        if (k.kind == kind) return k.name;
    return "?";
}

Recording::Recording(const std::string& path) : file_(std::make_unique<Mapped>(path))
{
    const std::span<const uint8_t> all(file_->data(), file_->size());
    for (size_t at = 0; at + sizeof(flash::Entry) <= all.size();) {
        flash::Entry e;
        memcpy(&e, all.data() + at, sizeof e);
        if (!is_right(e)) fail("%s: damaged at byte %zu", path.c_str(), at);
        at += sizeof e;
        if (e.data_size > all.size() - at) return;
        operations_.push_back({flash::Kind(e.kind), e.partition, e.offset, e.size,
                               all.subspan(at, e.data_size), e.time_ns, e.pid,
                               std::string(e.process, strnlen(e.process, sizeof e.process))});
        at += e.data_size;
    }
}

} // namespace vcam::explore
