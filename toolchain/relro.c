/* Linked into the executable with all applets: makes read-only what the C library writes once, at the start, as the
 * value that guards the stack. A dynamic loader does this by the PT_GNU_RELRO header; a static program has no loader,
 * and this C library leaves it undone. */
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

extern const ElfW(Ehdr) __ehdr_start __attribute__((visibility("hidden")));

__attribute__((constructor)) static void protect_constants(void)
{
    const ElfW(Phdr)* header = (const void*)((const char*)&__ehdr_start + __ehdr_start.e_phoff);
    for (int i = 0; i < __ehdr_start.e_phnum; ++i) {
        if (header[i].p_type != PT_GNU_RELRO) continue;
        const size_t page = (size_t)getpagesize();
        const size_t from = header[i].p_vaddr & ~(page - 1);
        const size_t to = (header[i].p_vaddr + header[i].p_memsz) & ~(page - 1);
        if (to > from && mprotect((void*)from, to - from, PROT_READ) != 0) _exit(127);
    }
}
