// What a built library shows to the dynamic linker, and what that may do with it, read from its ELF file.
#include <elf.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

namespace {

const std::string& bytes() {
    static std::ifstream file(KORLA_LIBRARY, std::ios::binary);
    static const std::string all(std::istreambuf_iterator<char>(file), {});
    return all;
}
template <class T> const T* at(uint64_t offset) { return reinterpret_cast<const T*>(bytes().data() + offset); }

// f(entry, string table of the section) for every entry of every section of a type.
template <class Entry, class F> void for_each_entry(uint32_t type, F f) {
    ASSERT_GT(bytes().size(), sizeof(Elf64_Ehdr));
    const auto* header = at<Elf64_Ehdr>(0);
    const auto* sections = at<Elf64_Shdr>(header->e_shoff);
    for (int s = 0; s < header->e_shnum; s++)
        if (sections[s].sh_type == type)
            for (uint64_t i = 0; i < sections[s].sh_size; i += sizeof(Entry))
                f(*at<Entry>(sections[s].sh_offset + i), at<char>(sections[sections[s].sh_link].sh_offset));
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
        " fwrite snprintf vsnprintf strlen strrchr strcat __stack_chk_fail __stack_chk_guard memcpy memmove memset "
        "memcmp bcmp strcpy fma fmaf lrintf rintf sqrtf exp2f powf fmax log10f sin cos"
        " sincos ";
    for_each_entry<Elf64_Sym>(SHT_DYNSYM, [&](const Elf64_Sym& symbol, const char* strings) {
        const bool strong = ELF64_ST_BIND(symbol.st_info) == STB_GLOBAL; // start-up code asks weakly for more
        std::string name = strings + symbol.st_name;
        if (name.rfind("__", 0) == 0 && name.size() > 6 && name.substr(name.size() - 4) == "_chk")
            name = name.substr(2, name.size() - 6); // with its sizes checked
        EXPECT_TRUE(symbol.st_shndx != SHN_UNDEF || !strong || allowed.find(' ' + name + ' ') != std::string::npos)
            << name;
    });
}

#ifndef KORLA_SANITIZED // whose start files bring code and data of their own

bool host_may_write(const std::string& name) { return name == "ACLI" || name == "session_identity"; }

TEST(Hardening, LoadingRunsNoCodeAndLeavesNothingToOverwrite) {
    std::map<int64_t, uint64_t> dynamic;
    for_each_entry<Elf64_Dyn>(SHT_DYNAMIC,
                              [&](const Elf64_Dyn& entry, const char*) { dynamic[entry.d_tag] = entry.d_un.d_val; });
    EXPECT_TRUE(dynamic[DT_FLAGS] & DF_BIND_NOW);
    for (int64_t tag : {DT_INIT, DT_FINI, DT_INIT_ARRAY, DT_FINI_ARRAY, DT_TEXTREL, DT_RPATH, DT_RUNPATH})
        EXPECT_FALSE(dynamic.count(tag)) << tag;

    uint64_t relro = 0, relro_end = 0;
    const auto* header = at<Elf64_Ehdr>(0);
    for (int i = 0; i < header->e_phnum; i++) {
        const auto& segment = at<Elf64_Phdr>(header->e_phoff)[i];
        EXPECT_NE(segment.p_flags & (PF_W | PF_X), uint32_t{PF_W | PF_X}) << "segment " << i;
        if (segment.p_type == PT_GNU_RELRO)
            relro = segment.p_vaddr, relro_end = segment.p_vaddr + segment.p_memsz;
    }
    EXPECT_GT(relro_end, relro);
    // Beside what a host may write to, the settings of the diagnostics.
    int objects = 0;
    const auto* sections = at<Elf64_Shdr>(header->e_shoff);
    for_each_entry<Elf64_Sym>(SHT_SYMTAB, [&](const Elf64_Sym& symbol, const char* strings) {
        if (ELF64_ST_TYPE(symbol.st_info) != STT_OBJECT || symbol.st_shndx >= header->e_shnum)
            return;
        objects++;
        const bool writable = sections[symbol.st_shndx].sh_flags & SHF_WRITE;
        const std::string name = strings + symbol.st_name;
        EXPECT_TRUE(!writable || (symbol.st_value >= relro && symbol.st_value < relro_end) || host_may_write(name) ||
                    name.find("abort_handler") != name.npos || name.find("sink") != name.npos ||
                    name.find("threshold") != name.npos || name[0] == '_' /* the linker's */)
            << name;
    });
    EXPECT_GT(objects, 5);
}

TEST(Hardening, NoOtherLibraryComesBetween) {
    const Elf64_Sym* symbols = nullptr;
    for_each_entry<Elf64_Sym>(SHT_DYNSYM,
                              [&](const Elf64_Sym& symbol, const char*) { symbols = symbols ? symbols : &symbol; });
    const char* names = nullptr;
    for_each_entry<Elf64_Sym>(SHT_DYNSYM, [&](const Elf64_Sym&, const char* strings) { names = strings; });
    ASSERT_TRUE(symbols && names);
    int relocations = 0;
    for_each_entry<Elf64_Rela>(SHT_RELA, [&](const Elf64_Rela& relocation, const char*) {
        relocations++;
        const Elf64_Sym& symbol = symbols[ELF64_R_SYM(relocation.r_info)];
        EXPECT_TRUE(symbol.st_shndx == SHN_UNDEF || host_may_write(names + symbol.st_name)) << names + symbol.st_name;
    });
    EXPECT_GT(relocations, 10);
}

TEST(Hardening, IndirectBranchesNeedLandingPads) {
#    ifdef __x86_64__
    constexpr uint32_t property = 0xc0000002, both = 3; // IBT, SHSTK
#    else
    constexpr uint32_t property = 0xc0000000, both = 3; // BTI, PAC
#    endif
    uint32_t features = 0;
    const auto* header = at<Elf64_Ehdr>(0);
    for (int i = 0; i < header->e_phnum; i++) {
        const auto& segment = at<Elf64_Phdr>(header->e_phoff)[i];
        if (segment.p_type == PT_GNU_PROPERTY) { // a note header, "GNU", then type, size, value
            const auto* words = at<uint32_t>(segment.p_offset);
            ASSERT_EQ(words[4], property);
            features = words[6];
        }
    }
    EXPECT_EQ(features & both, both);
}

#endif

} // namespace
