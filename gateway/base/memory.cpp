#include "gateway/base/memory.h"

#include <link.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <span>

namespace gateway {
namespace {

// Relocations in a text are in memory alone.
bool is_text_relocated(const dl_phdr_info& object, const ElfW(Phdr) & dynamic) {
  // The linker's own table, which an entry of its own ends.
  const auto* entry = reinterpret_cast<const ElfW(Dyn)*>(object.dlpi_addr + dynamic.p_vaddr);
  for (; entry->d_tag != DT_NULL; ++entry) {
    if (entry->d_tag == DT_TEXTREL || (entry->d_tag == DT_FLAGS && (entry->d_un.d_val & DF_TEXTREL) != 0)) {
      return true;
    }
  }
  return false;
}

// Of a segment that nobody writes the file has all: the pages come from there again.
int give_back_segments(dl_phdr_info* object, std::size_t, void*) {
  const std::span segments(object->dlpi_phdr, object->dlpi_phnum);
  if (std::ranges::any_of(segments, [&](const auto& segment) {
        return segment.p_type == PT_DYNAMIC && is_text_relocated(*object, segment);
      })) {
    return 0;
  }
  const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  for (const auto& segment : segments) {
    if (segment.p_type == PT_LOAD && (segment.p_flags & PF_W) == 0) {
      const std::uintptr_t begin = (object->dlpi_addr + segment.p_vaddr) & ~(page - 1);
      const std::uintptr_t end = object->dlpi_addr + segment.p_vaddr + segment.p_memsz;
      [[maybe_unused]] const int done = madvise(reinterpret_cast<void*>(begin), end - begin, MADV_DONTNEED);
    }
  }
  return 0;
}

}  // namespace

void give_back_memory() {
  malloc_trim(0);
  dl_iterate_phdr(give_back_segments, nullptr);
}

}  // namespace gateway
