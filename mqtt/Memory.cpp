// SPDX-License-Identifier: MIT
#include "Memory.h"

#include <link.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

namespace {

/// Lets go of the pages of one segment of a library. A segment that is never written has no page
/// that differs from the file, so a page that is needed again is the same.
void letGo(std::uintptr_t begin, std::uintptr_t size) {
    const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    const std::uintptr_t first = begin / page * page;
    const std::uintptr_t last = (begin + size) / page * page;
    if (first < last) {
        // It fails where the memory is no file's; that memory stays.
        // NOLINTNEXTLINE(performance-no-int-to-ptr): the loader gives numbers
        ::madvise(reinterpret_cast<void*>(first), last - first, MADV_DONTNEED);
    }
}

int letGoOfLibrary(dl_phdr_info* library, std::size_t /*size*/, void* /*data*/) {
    for (std::size_t i = 0; i < library->dlpi_phnum; ++i) {
        const ElfW(Phdr)& segment = library->dlpi_phdr[i];
        if (segment.p_type == PT_LOAD && (segment.p_flags & PF_W) == 0) {
            letGo(library->dlpi_addr + segment.p_vaddr, segment.p_memsz);
        }
    }
    return 0;
}

}  // namespace

void giveBackMemory() {
    ::malloc_trim(0);
    ::dl_iterate_phdr(letGoOfLibrary, nullptr);
}
