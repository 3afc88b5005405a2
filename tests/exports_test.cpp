// What a built library shows to the dynamic linker, read from its ELF file.
#include <elf.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

namespace {

// f(entry, string table of the section) for every entry of every section of a type.
template <class Entry, class F> void for_each_entry(uint32_t type, F f) {
    std::ifstream file(KORLA_LIBRARY, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    const auto* header = reinterpret_cast<const Elf64_Ehdr*>(bytes.data());
    ASSERT_GT(bytes.size(), sizeof *header);
    const auto* sections = reinterpret_cast<const Elf64_Shdr*>(bytes.data() + header->e_shoff);
    for (int s = 0; s < header->e_shnum; s++)
        if (sections[s].sh_type == type)
            for (uint64_t at = 0; at < sections[s].sh_size; at += sizeof(Entry))
                f(*reinterpret_cast<const Entry*>(bytes.data() + sections[s].sh_offset + at),
                  bytes.data() + sections[sections[s].sh_link].sh_offset);
}

// "F" for a function, "D size" for data.
using Symbols = std::map<std::string, std::string>;

TEST(Exports, AreExactlyTheListedSymbols) {
    Symbols exported, listed;
    for_each_entry<Elf64_Sym>(SHT_DYNSYM, [&](const Elf64_Sym& symbol, const char* strings) {
        const bool function = ELF64_ST_TYPE(symbol.st_info) == STT_FUNC;
        if (symbol.st_shndx != SHN_UNDEF && ELF64_ST_BIND(symbol.st_info) != STB_LOCAL)
            exported[strings + symbol.st_name] = function ? "F" : "D " + std::to_string(symbol.st_size);
    });
    for (const auto& entry : std::filesystem::directory_iterator(KORLA_LISTS)) {
        if (std::string(KORLA_WITHOUT).find(' ' + entry.path().stem().string() + ' ') != std::string::npos)
            continue;
        std::ifstream file(entry.path());
        for (std::string line; std::getline(file, line);)
            if (const size_t space = line.find(' '); !line.empty() && line[0] != '#') {
                EXPECT_TRUE(listed.emplace(line.substr(0, space), line.substr(space + 1)).second) << line << " twice";
            }
    }
    ASSERT_GE(listed.size(), 20u);
    for (const auto& [name, kind] : listed)
        EXPECT_EQ(exported.count(name) ? exported[name] : "missing", kind) << name;
    for (const auto& [name, kind] : exported)
        EXPECT_TRUE(listed.count(name)) << name << " is exported but not listed";
}

TEST(Imports, AreLibcAndLibmWithoutLocksThreadsFilesOrCpp) {
#ifdef KORLA_SANITIZED
    GTEST_SKIP() << "the sanitizers import what they need";
#endif
    for_each_entry<Elf64_Dyn>(SHT_DYNAMIC, [&](const Elf64_Dyn& entry, const char* strings) {
        if (entry.d_tag == DT_NEEDED) {
            const std::string name = strings + entry.d_un.d_val;
            EXPECT_TRUE(name == "libc.so.6" || name == "libm.so.6" || name.rfind("ld-linux-", 0) == 0) << name;
        }
    });
    // The two allocations of an instance and the copy of the name; diagnostics; memory and mathematics.
    const std::string allowed =
        " calloc free strdup malloc abort fflush stdout printf puts putchar putc vprintf fprintf vfprintf fputc fputs"
        " fwrite snprintf vsnprintf __snprintf_chk __vsnprintf_chk __printf_chk __vprintf_chk strlen strrchr"
        " __stack_chk_fail memcpy memmove memset memcmp bcmp strcpy fma fmaf lrintf rintf sqrtf exp2f powf fmax log10f sin cos"
        " sincos ";
    for_each_entry<Elf64_Sym>(SHT_DYNSYM, [&](const Elf64_Sym& symbol, const char* strings) {
        const bool strong = ELF64_ST_BIND(symbol.st_info) == STB_GLOBAL; // start-up code asks weakly for more
        const std::string name = strings + symbol.st_name;
        EXPECT_TRUE(symbol.st_shndx != SHN_UNDEF || !strong || allowed.find(' ' + name + ' ') != std::string::npos)
            << name;
    });
}

} // namespace
