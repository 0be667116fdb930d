// Locks what the program was loaded from into memory.
#include "upgrade/upgrade_process.hpp"

#include <cstddef>
#include <cstdint>
#include <link.h>
#include <sys/mman.h>

namespace zep {
namespace {

int lock_object(dl_phdr_info* object, size_t, void*)
{
    for (unsigned i = 0; i < object->dlpi_phnum; ++i) {
        const auto& segment = object->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD) continue;
        auto start = uintptr_t(object->dlpi_addr + segment.p_vaddr);
        mlock(reinterpret_cast<const void*>(start), segment.p_memsz);
    }
    return 0;
}

} // namespace

void pin_program() { dl_iterate_phdr(lock_object, nullptr); }

} // namespace zep
