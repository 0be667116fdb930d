// The program's own allocations, where the fault plan names them. Everything in the process allocates, this library too, so
// no function stands in front of the C library's: the program's table of imported functions gets another one.
#include "sim/preload/allocations.hpp"
#include "sim/preload/planned.hpp"

#include <cstdlib>
#include <cstring>
#include <elf.h>
#include <link.h>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

namespace vcam::allocations {
namespace {

void* planned_malloc(size_t size)
{
    return run_call("malloc", [&] { return ::malloc(size); });
}
void* planned_calloc(size_t count, size_t size)
{
    return run_call("calloc", [&] { return ::calloc(count, size); });
}
void* planned_realloc(void* old, size_t size)
{
    return run_call("realloc", [&] { return ::realloc(old, size); });
}
char* planned_strdup(const char* text)
{
    return run_call("strdup", [&] { return ::strdup(text); });
}

// Null for other functions. Not a table: the library begins before its tables of addresses are made.
void* replacement_of(std::string_view name)
{
    if (name == "calloc") return reinterpret_cast<void*>(planned_calloc);
    if (name == "malloc") return reinterpret_cast<void*>(planned_malloc);
    if (name == "realloc") return reinterpret_cast<void*>(planned_realloc);
    if (name == "strdup") return reinterpret_cast<void*>(planned_strdup);
    return nullptr;
}

#ifdef __LP64__
using Relocation = Elf64_Rela;
constexpr long kTable = DT_RELA, kTableSize = DT_RELASZ;
constexpr uint64_t type_of(const Relocation& r) { return ELF64_R_TYPE(r.r_info); }
constexpr uint64_t symbol_of(const Relocation& r) { return ELF64_R_SYM(r.r_info); }
#else
using Relocation = Elf32_Rel;
constexpr long kTable = DT_REL, kTableSize = DT_RELSZ;
constexpr uint32_t type_of(const Relocation& r) { return ELF32_R_TYPE(r.r_info); }
constexpr uint32_t symbol_of(const Relocation& r) { return ELF32_R_SYM(r.r_info); }
#endif
// The processor's numbers for a place that holds a function's address; the same for 32 and 64 bits.
constexpr unsigned kImported = R_X86_64_GLOB_DAT, kCalled = R_X86_64_JUMP_SLOT;
static_assert(kImported == R_386_GLOB_DAT && kCalled == R_386_JMP_SLOT);

struct Dynamic {
    const char* names = nullptr;
    const ElfW(Sym) * symbols = nullptr;
    struct {
        const Relocation* begin = nullptr;
        size_t bytes = 0;
    } tables[2]; // of data, of calls
};

Dynamic read(const ElfW(Dyn) * entry)
{
    Dynamic found;
    for (; entry->d_tag != DT_NULL; ++entry) {
        const auto at = entry->d_un.d_ptr; // the C library has made these addresses absolute
        if (entry->d_tag == DT_STRTAB) found.names = reinterpret_cast<const char*>(at);
        if (entry->d_tag == DT_SYMTAB) found.symbols = reinterpret_cast<const ElfW(Sym)*>(at);
        if (entry->d_tag == kTable) found.tables[0].begin = reinterpret_cast<const Relocation*>(at);
        if (entry->d_tag == kTableSize) found.tables[0].bytes = entry->d_un.d_val;
        if (entry->d_tag == DT_JMPREL) found.tables[1].begin = reinterpret_cast<const Relocation*>(at);
        if (entry->d_tag == DT_PLTRELSZ) found.tables[1].bytes = entry->d_un.d_val;
    }
    return found;
}

// The linker may have made the table's pages read-only.
void store(void** place, void* function)
{
    const auto page = reinterpret_cast<uintptr_t>(place) & ~uintptr_t(::sysconf(_SC_PAGESIZE) - 1);
    if (::mprotect(reinterpret_cast<void*>(page), sizeof *place, PROT_READ | PROT_WRITE) == 0)
        *place = function;
}

int replace_in(dl_phdr_info* object, size_t, void*)
{
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        if (object->dlpi_phdr[i].p_type != PT_DYNAMIC) continue;
        const Dynamic d =
            read(reinterpret_cast<const ElfW(Dyn)*>(object->dlpi_addr + object->dlpi_phdr[i].p_vaddr));
        for (const auto& table : d.tables)
            for (const Relocation* r = table.begin; r < table.begin + table.bytes / sizeof *r; ++r) {
                if (type_of(*r) != kImported && type_of(*r) != kCalled) continue;
                if (void* function = replacement_of(d.names + d.symbols[symbol_of(*r)].st_name))
                    store(reinterpret_cast<void**>(object->dlpi_addr + r->r_offset), function);
            }
    }
    return 1; // the program is the first object
}

} // namespace

void replace()
{
    for (const char* call : faults::kLibraryCalls)
        if (replacement_of(call) && is_planned(call)) {
            ::dl_iterate_phdr(replace_in, nullptr);
            return;
        }
}

} // namespace vcam::allocations
