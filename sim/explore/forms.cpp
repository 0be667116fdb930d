// The forms in which an operation on the flash is left when the power fails inside it.
#include "sim/explore/forms.hpp"

#include <algorithm>

namespace vcam::explore {
namespace {

using flash::Kind;

constexpr struct {
    Form form;
    const char *name, *words;
} kForms[] = {{Form::before, "before", "before it"},
              {Form::first_byte, "first-byte", "when its first byte was done"},
              {Form::half, "half", "when half of it was done"},
              {Form::all_but_one, "all-but-one", "when all but one byte was done"},
              {Form::bits_1, "bits-1", "when some of its bits had changed (first draw)"},
              {Form::bits_2, "bits-2", "when some of its bits had changed (second draw)"},
              {Form::after, "after", "after it"}};

// What the stretch holds when the operation is complete.
Bytes complete(const Operation& op)
{
    return op.kind == Kind::erase ? Bytes(op.size, 0xFF) : Bytes(op.data.begin(), op.data.end());
}

size_t bytes_done(Form form, size_t size)
{
    if (form == Form::first_byte) return std::min<size_t>(1, size);
    if (form == Form::half) return size / 2;
    return size ? size - 1 : 0;
}

// Each bit that changes has done so or not.
void draw_bits(Bytes& bytes, const Bytes& done, uint64_t seed)
{
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (i % sizeof seed == 0) seed = mixed(seed);
        bytes[i] ^= uint8_t((bytes[i] ^ done[i]) & (seed >> (i % sizeof seed * 8)));
    }
}

} // namespace

std::vector<Form> forms_of(Kind kind)
{
    if (kind == Kind::mark_bad) return {Form::before, Form::after};
    if (kind == Kind::erase) return {Form::before, Form::half, Form::bits_1, Form::bits_2, Form::after};
    std::vector<Form> all;
    for (const auto& f : kForms) all.push_back(f.form);
    return all;
}

const char* name_of(Form form) { return kForms[size_t(form)].name; }
const char* words_of(Form form) { return kForms[size_t(form)].words; }

std::optional<Form> form_named(const std::string& name)
{
    for (const auto& f : kForms)
        if (name == f.name) return f.form;
    return std::nullopt;
}

namespace {

struct Touched {
    uint32_t begin;
    Bytes before, broken, after; // broken: nothing is done yet, but what was there may be gone
};

Touched touched_by(const Bytes& now, uint64_t erase_size, const Operation& op)
{
    uint32_t begin = op.offset, end = op.offset + op.size;
    if (op.kind == Kind::replace) { // the kernel erases whole blocks first, and the rest of them goes as well
        const auto block = uint32_t(erase_size);
        begin -= begin % block;
        end = std::min<uint32_t>(uint32_t(now.size()), (end + block - 1) / block * block);
    }
    const Bytes before(now.begin() + begin, now.begin() + end);
    Touched s = {begin, before, before, before};
    const Bytes target = complete(op);
    std::copy(target.begin(), target.end(), s.after.begin() + (op.offset - begin));
    if (op.kind == Kind::replace) std::fill(s.broken.begin(), s.broken.end(), 0xFF);
    return s;
}

} // namespace

Torn torn(const Bytes& now, uint64_t erase_size, const Operation& op, size_t bytes_done)
{
    Touched s = touched_by(now, erase_size, op);
    std::copy_n(s.after.begin(), std::min(bytes_done, s.after.size()), s.broken.begin());
    return {s.begin, s.broken};
}

Torn torn(const Bytes& now, uint64_t erase_size, const Operation& op, Form form, uint64_t seed)
{
    Touched s = touched_by(now, erase_size, op);
    if (form == Form::before) return {s.begin, s.before};
    if (form == Form::after) return {s.begin, s.after};
    if (form != Form::bits_1 && form != Form::bits_2)
        return torn(now, erase_size, op, bytes_done(form, s.after.size()));
    draw_bits(s.broken, s.after, mixed(seed) + op.offset * 8 + uint64_t(form));
    return {s.begin, s.broken};
}

} // namespace vcam::explore
