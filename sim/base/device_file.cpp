// Devices of one's own, read from their shared objects.
#include "sim/base/device_file.hpp"
#include "sim/base/raw.hpp"
#include "sim/base/text.hpp"

#include <algorithm>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <iterator>
#include <string_view>

namespace vcam::device_file {
namespace {

constexpr const char* kSymbol = "vcam_model";

struct Machine {
    unsigned number, file_class; // as the file has them
    int bits;                    // of programs that load it
    bool here;
};
#if defined __aarch64__ || defined __arm__
constexpr bool kArm = true;
#else
constexpr bool kArm = false;
#endif
constexpr Machine kMachines[] = {{EM_X86_64, ELFCLASS64, 64, !kArm},
                                 {EM_386, ELFCLASS32, 32, !kArm},
                                 {EM_AARCH64, ELFCLASS64, 64, kArm},
                                 {EM_ARM, ELFCLASS32, 32, kArm}};

// A file of either word size. Offsets come from the file, so each record is looked for inside it.
template<class Header, class Segment, class Section, class Symbol> class Image {
public:
    explicit Image(const std::vector<uint8_t>& bytes) : bytes_(bytes) {}

    // The record's bytes: false when the symbol is not there, or not as long as the readable part.
    bool find(vcam_device& out) const
    {
        Header header;
        Section section, names;
        Symbol symbol;
        if (!load(0, header)) return false;
        for (unsigned i = 0; i < header.e_shnum; ++i) {
            if (!row(header, i, section) || section.sh_type != SHT_DYNSYM ||
                !row(header, section.sh_link, names))
                continue;
            // The section's size is the file's own word: the file's end ends the search too.
            for (uint64_t at = 0; at < section.sh_size && load(section.sh_offset + at, symbol); at += sizeof symbol)
                if (symbol.st_shndx != SHN_UNDEF && is_name(names, symbol.st_name))
                    return symbol.st_size >= kReadable && copy(header, symbol.st_value, out);
        }
        return false;
    }

private:
    [[nodiscard]] bool has(uint64_t at, uint64_t size) const
    {
        return at <= bytes_.size() && size <= bytes_.size() - at;
    }
    template<class Record> bool load(uint64_t at, Record& record) const
    {
        if (!has(at, sizeof record)) return false;
        memcpy(&record, bytes_.data() + at, sizeof record);
        return true;
    }
    bool row(const Header& header, uint64_t index, Section& section) const
    {
        return load(header.e_shoff + index * sizeof section, section);
    }
    [[nodiscard]] bool is_name(const Section& names, uint64_t at) const
    {
        const size_t length = strlen(kSymbol) + 1;
        return at <= names.sh_size && length <= names.sh_size - at && has(names.sh_offset + at, length) &&
               memcmp(bytes_.data() + names.sh_offset + at, kSymbol, length) == 0;
    }
    // From the segment that brings the address into memory.
    bool copy(const Header& header, uint64_t address, vcam_device& out) const
    {
        Segment segment;
        for (unsigned i = 0; i < header.e_phnum; ++i) {
            if (!load(header.e_phoff + uint64_t(i) * sizeof segment, segment) || segment.p_type != PT_LOAD ||
                address < segment.p_vaddr || address - segment.p_vaddr > segment.p_filesz)
                continue;
            const uint64_t inside = address - segment.p_vaddr;
            if (segment.p_filesz - inside < kReadable || !has(segment.p_offset + inside, kReadable))
                return false;
            memcpy(static_cast<void*>(&out), bytes_.data() + segment.p_offset + inside, kReadable);
            return true;
        }
        return false;
    }

    const std::vector<uint8_t>& bytes_;
};
using Image64 = Image<Elf64_Ehdr, Elf64_Phdr, Elf64_Shdr, Elf64_Sym>;
using Image32 = Image<Elf32_Ehdr, Elf32_Phdr, Elf32_Shdr, Elf32_Sym>;

const Machine* machine_of(const std::vector<uint8_t>& bytes)
{
    uint16_t machine = 0;
    memcpy(&machine, bytes.data() + offsetof(Elf32_Ehdr, e_machine), sizeof machine);
    for (const Machine& row : kMachines)
        if (row.number == machine && row.file_class == bytes[EI_CLASS]) return &row;
    return nullptr;
}

bool is_shared_object(const std::vector<uint8_t>& bytes)
{
    uint16_t type = 0;
    if (bytes.size() < sizeof(Elf32_Ehdr) || memcmp(bytes.data(), ELFMAG, SELFMAG) != 0 ||
        bytes[EI_DATA] != ELFDATA2LSB)
        return false;
    memcpy(&type, bytes.data() + offsetof(Elf32_Ehdr, e_type), sizeof type);
    return type == ET_DYN;
}

constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyz",
                           kNameLetters = "abcdefghijklmnopqrstuvwxyz0123456789_";
constexpr std::string_view kPathLetters =
    "abcdefghijklmnopqrstuvwxyz0123456789_ABCDEFGHIJKLMNOPQRSTUVWXYZ-./";

bool is_text(const char* text, size_t room, std::string_view letters)
{
    const size_t length = strnlen(text, room);
    return length > 0 && length < room &&
           std::string_view(text, length).find_first_not_of(letters) == std::string_view::npos;
}

// Only a place below /dev that a folder of its own would not hide.
bool is_path(const vcam_device& record)
{
    constexpr std::string_view kFolder = "/dev/";
    if (!is_text(record.path, sizeof record.path, kPathLetters)) return false;
    const std::string_view path = record.path;
    return path.starts_with(kFolder) && path.size() > kFolder.size() && path.back() != '/' &&
           path.find("/.") == path.npos && path.find("//") == path.npos;
}

// What a camera's /dev has beside its drivers, and operations that every device has.
constexpr std::string_view kOwnNodes[] = {"null",   "zero",    "full", "random", "urandom", "tty",
                                          "pts",    "shm",     "ptmx", "fd",     "stdin",   "stdout",
                                          "stderr", "gpiospi", "log",  "cuse",   "fuse",    "console"};
constexpr std::string_view kOperations[] = {"open", "close", "read", "write", "mmap", "ioctl"};

bool has_own_size(const vcam_request& request) { return request.number >> 16 & 0x3FFF; }

std::string wrong_request(const vcam_device& record, size_t i)
{
    constexpr size_t kLongest = 0x3FFF;
    const vcam_request& request = record.requests[i];
    if (!is_text(request.name, sizeof request.name, kNameLetters))
        return text("the name of its request 0x%X is not 1 to 15 of a-z, 0-9 and _", request.number);
    if (std::find(std::begin(kOperations), std::end(kOperations), request.name) != std::end(kOperations))
        return text("a request is called %s, as an operation that every device has", request.name);
    if (has_own_size(request) ? request.in || request.out : request.in > kLongest || request.out > kLongest)
        return text(has_own_size(request) ? "the number of request %s has its size; leave in and out 0"
                                          : "the record of request %s is longer than 16383 bytes",
                    request.name);
    for (size_t other = 0; other < i; ++other)
        if (record.requests[other].number == request.number)
            return text("its requests %s and %s have one number", record.requests[other].name, request.name);
    return {};
}

} // namespace

std::string inspect(const vcam_device& record)
{
    if (record.abi != VCAM_DEVICE_ABI)
        return text("is made for version %u of vcam_device.h; here it is %d", record.abi, VCAM_DEVICE_ABI);
    if (!is_text(record.name, sizeof record.name, kNameLetters) ||
        kLetters.find(record.name[0]) == std::string_view::npos)
        return "its device's name is not a letter and up to 14 of a-z, 0-9 and _";
    if (!is_path(record)) return "its path is not /dev/ and a name, 31 characters in all";
    const std::string_view node = std::string_view(record.path).substr(strlen("/dev/"));
    if (node.starts_with("mtd") || std::find(std::begin(kOwnNodes), std::end(kOwnNodes),
                                             node.substr(0, node.find('/'))) != std::end(kOwnNodes))
        return text("its path %s is the camera's own", record.path);
    if (record.state_size > VCAM_DEVICE_STATE)
        return text("its state has %u bytes; there is room for %d", record.state_size, VCAM_DEVICE_STATE);
    for (size_t i = 0; i < VCAM_DEVICE_REQUESTS && record.requests[i].name[0]; ++i)
        if (const std::string problem = wrong_request(record, i); !problem.empty()) return problem;
    return {};
}

std::span<const vcam_request> Device::requests() const
{
    size_t count = 0;
    while (count < VCAM_DEVICE_REQUESTS && record.requests[count].name[0]) ++count;
    return {record.requests, count};
}

std::string inspect(const std::string& file, Device& out, std::string* content)
{
    std::vector<uint8_t> bytes;
    if (const std::string problem = raw::read_file(file, bytes); !problem.empty())
        return problem.substr(file.size() + strlen(": "));
    if (!is_shared_object(bytes)) return "is no shared object";
    const Machine* machine = machine_of(bytes);
    if (!machine) return "is for a processor that no camera has";
    out.bits = machine->bits;
    out.here = machine->here;
    if (content) content->assign(bytes.begin(), bytes.end());
    if (out.bits == 64 ? !Image64(bytes).find(out.record) : !Image32(bytes).find(out.record))
        return text("has no symbol %s, the record of vcam_device.h", kSymbol);
    return inspect(out.record);
}

std::string place(const std::string& folder, const std::string& name, int bits)
{
    return folder + text("/devices/%s-%d.so", name.c_str(), bits);
}

std::string input(const std::string& folder, const std::string& name)
{
    return folder + "/devices/" + name + ".input";
}

std::vector<Device> of(const std::string& folder)
{
    constexpr std::string_view kKey = "device=";
    std::vector<Device> out;
    for (const std::string& line : split(raw::read_text(folder + "/camera.conf"), '\n')) {
        if (!line.starts_with(kKey)) continue;
        const std::string name = line.substr(kKey.size());
        if (name.find_first_not_of(kNameLetters) != std::string::npos)
            fail("camera.conf: %s is no device's name", one_line(name).c_str());
        constexpr int kBits = 8 * sizeof(void*); // the other one where there is none
        const raw::Fd mine(raw::open(place(folder, name, kBits).c_str(), O_RDONLY | O_CLOEXEC));
        const std::string file = place(folder, name, mine ? kBits : 96 - kBits);
        Device device;
        if (const std::string problem = inspect(file, device); !problem.empty())
            fail("%s: %s", file.c_str(), problem.c_str());
        if (name != device.record.name) fail("%s: is the device %s", file.c_str(), device.record.name);
        out.push_back(device);
    }
    return out;
}

namespace {

constexpr uint32_t kGives = 0x40000000, kGets = 0x80000000;

size_t size_of(const vcam_request& request, uint32_t direction, size_t other)
{
    if (!has_own_size(request)) return other;
    return request.number & direction ? request.number >> 16 & 0x3FFF : 0;
}

} // namespace

size_t given(const vcam_request& request) { return size_of(request, kGives, request.in); }
size_t returned(const vcam_request& request) { return size_of(request, kGets, request.out); }

} // namespace vcam::device_file
