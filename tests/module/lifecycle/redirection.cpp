#include "redirection.hpp"

#include "event_log.hpp"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <span>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

namespace lifecycle {
namespace {

std::uint64_t dynamic_value(link_map const& library, Elf64_Sxword tag) {
    for (Elf64_Dyn const* entry = library.l_ld; entry->d_tag != DT_NULL; ++entry) {
        if (entry->d_tag == tag) {
            return entry->d_un.d_val;
        }
    }
    return 0;
}

template <typename Entry>
Entry const* table(link_map const& library, Elf64_Sxword tag) {
    return reinterpret_cast<Entry const*>(dynamic_value(library, tag));
}

std::span<Elf64_Rela const> relocations(
    link_map const& library, Elf64_Sxword address_tag, Elf64_Sxword size_tag) {
    return {
        table<Elf64_Rela>(library, address_tag),
        dynamic_value(library, size_tag) / sizeof(Elf64_Rela)};
}

void write_slot(std::uint64_t slot, void* value) {
    auto const page_size = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    auto* const page = reinterpret_cast<void*>(slot / page_size * page_size);
    // The slots of a library that was bound at its start are read-only by now.
    if (mprotect(page, page_size, PROT_READ | PROT_WRITE) != 0) {
        give_up("cannot write to an import slot", std::strerror(errno));
    }
    std::memcpy(reinterpret_cast<void*>(slot), &value, sizeof value);
}

} // namespace

void redirect(void* handle, char const* name, void* replacement) {
    link_map* library = nullptr;
    if (dlinfo(handle, RTLD_DI_LINKMAP, &library) != 0) {
        give_up("cannot look into the module", dlerror());
    }
    auto const* const symbols = table<Elf64_Sym>(*library, DT_SYMTAB);
    auto const* const names = table<char>(*library, DT_STRTAB);
    std::size_t slots = 0;
    for (auto const entries :
         {relocations(*library, DT_JMPREL, DT_PLTRELSZ),
          relocations(*library, DT_RELA, DT_RELASZ)}) {
        for (Elf64_Rela const& entry : entries) {
            auto const type = ELF64_R_TYPE(entry.r_info);
            bool const import = type == R_X86_64_JUMP_SLOT || type == R_X86_64_GLOB_DAT;
            auto const& symbol = symbols[ELF64_R_SYM(entry.r_info)];
            if (import && std::string_view(names + symbol.st_name) == name) {
                write_slot(library->l_addr + entry.r_offset, replacement);
                ++slots;
            }
        }
    }
    if (slots == 0) {
        give_up("the module imports no such function", name);
    }
}

} // namespace lifecycle
