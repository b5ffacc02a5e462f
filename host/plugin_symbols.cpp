// Local symbol lookup in a loaded ELF library (tests only).
#include "host/plugin_symbols.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

namespace hostemu {

namespace {

// True when [off, off + len) lies inside a buffer of `size` bytes.
bool Inside(size_t size, uint64_t off, uint64_t len) { return off <= size && len <= size - off; }

}  // namespace

void* FindLocalSymbol(const std::string& libPath, const char* name) {
    if (name == nullptr) return nullptr;
    void* handle = dlopen(libPath.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (handle == nullptr) return nullptr;
    struct link_map* lm = nullptr;
    int rc = dlinfo(handle, RTLD_DI_LINKMAP, &lm);
    const uintptr_t base = (rc == 0 && lm != nullptr) ? static_cast<uintptr_t>(lm->l_addr) : 0;
    dlclose(handle);  // the library stays loaded by its first opener
    if (rc != 0 || lm == nullptr) return nullptr;

    std::ifstream in(libPath, std::ios::binary);
    std::vector<char> file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!Inside(file.size(), 0, sizeof(Elf64_Ehdr))) return nullptr;
    Elf64_Ehdr eh;
    std::memcpy(&eh, file.data(), sizeof eh);
    if (std::memcmp(eh.e_ident, ELFMAG, SELFMAG) != 0 || eh.e_ident[EI_CLASS] != ELFCLASS64) return nullptr;
    if (eh.e_shentsize != sizeof(Elf64_Shdr)) return nullptr;
    if (!Inside(file.size(), eh.e_shoff, static_cast<uint64_t>(eh.e_shnum) * sizeof(Elf64_Shdr))) return nullptr;
    auto section = [&](size_t i) {
        Elf64_Shdr sh;
        std::memcpy(&sh, file.data() + eh.e_shoff + i * sizeof(Elf64_Shdr), sizeof sh);
        return sh;
    };
    for (size_t i = 0; i < eh.e_shnum; ++i) {
        Elf64_Shdr sym = section(i);
        if (sym.sh_type != SHT_SYMTAB || sym.sh_entsize != sizeof(Elf64_Sym) || sym.sh_link >= eh.e_shnum) continue;
        Elf64_Shdr str = section(sym.sh_link);
        if (!Inside(file.size(), sym.sh_offset, sym.sh_size) || !Inside(file.size(), str.sh_offset, str.sh_size))
            return nullptr;
        const size_t count = sym.sh_size / sizeof(Elf64_Sym);
        for (size_t k = 0; k < count; ++k) {
            Elf64_Sym s;
            std::memcpy(&s, file.data() + sym.sh_offset + k * sizeof(Elf64_Sym), sizeof s);
            if (s.st_name >= str.sh_size || s.st_shndx == SHN_UNDEF) continue;
            const char* sname = file.data() + str.sh_offset + s.st_name;
            const size_t room = str.sh_size - s.st_name;
            if (strnlen(sname, room) == room) continue;
            if (std::strcmp(sname, name) == 0) return reinterpret_cast<void*>(base + s.st_value);
        }
    }
    return nullptr;
}

}  // namespace hostemu
