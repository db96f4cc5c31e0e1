#include "tests/support/process/ElfFile.h"

#include "tests/support/process/TemporaryFolder.h"

#include <elf.h>

#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <memory>
#include <stdexcept>

namespace testsupport {

std::string demangled(const std::string& name) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> plain(
        abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status), &std::free);
    return status == 0 ? plain.get() : name;
}

template <class Structure>
Structure ElfFile::at(std::size_t offset) const {
    if (offset > Bytes.size() || Bytes.size() - offset < sizeof(Structure)) {
        throw std::runtime_error("the file ends too early");
    }
    Structure value;
    std::memcpy(&value, Bytes.data() + offset, sizeof(Structure));
    return value;
}

ElfFile::ElfFile(const std::string& name) : Bytes(readFile(name)) {
    const auto header = at<Elf64_Ehdr>(0);
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64) {
        throw std::runtime_error(name + " is not a 64-bit ELF file");
    }
    for (std::size_t i = 0; i < header.e_shnum; ++i) {
        const auto section = at<Elf64_Shdr>(header.e_shoff + i * header.e_shentsize);
        Sections.push_back({section.sh_type, section.sh_link, section.sh_offset, section.sh_size});
    }
}

std::string ElfFile::text(const Section& strings, std::size_t offset) const {
    if (offset >= strings.Size || strings.Offset + strings.Size > Bytes.size()) {
        throw std::runtime_error("a name lies outside of its section");
    }
    return Bytes.data() + strings.Offset + offset;
}

std::vector<ElfFile::Symbol> ElfFile::symbols(unsigned sectionType) const {
    std::vector<Symbol> result;
    for (const Section& section : Sections) {
        if (section.Type != sectionType) {
            continue;
        }
        for (std::size_t offset = 0; offset < section.Size; offset += sizeof(Elf64_Sym)) {
            const auto symbol = at<Elf64_Sym>(section.Offset + offset);
            const unsigned char visibility = ELF64_ST_VISIBILITY(symbol.st_other);
            const unsigned char binding = ELF64_ST_BIND(symbol.st_info);
            result.push_back({text(Sections.at(section.Link), symbol.st_name), symbol.st_shndx != SHN_UNDEF,
                              binding == STB_GLOBAL,
                              binding != STB_LOCAL && (visibility == STV_DEFAULT || visibility == STV_PROTECTED)});
        }
    }
    return result;
}

std::vector<ElfFile::Symbol> ElfFile::dynamicSymbols() const {
    return symbols(SHT_DYNSYM);
}

std::vector<ElfFile::Symbol> ElfFile::allSymbols() const {
    return symbols(SHT_SYMTAB);
}

std::vector<std::string> ElfFile::exportedSymbols() const {
    std::vector<std::string> names;
    for (const Symbol& symbol : dynamicSymbols()) {
        if (symbol.Defined && symbol.Shown) {
            names.push_back(symbol.Name);
        }
    }
    return names;
}

std::vector<std::string> ElfFile::undefinedSymbols() const {
    std::vector<std::string> names;
    for (const Symbol& symbol : dynamicSymbols()) {
        if (!symbol.Defined && !symbol.Name.empty()) {
            names.push_back(symbol.Name);
        }
    }
    return names;
}

std::vector<std::string> ElfFile::dynamicTexts(long tag) const {
    std::vector<std::string> texts;
    for (const Section& section : Sections) {
        if (section.Type != SHT_DYNAMIC) {
            continue;
        }
        for (std::size_t offset = 0; offset < section.Size; offset += sizeof(Elf64_Dyn)) {
            const auto entry = at<Elf64_Dyn>(section.Offset + offset);
            if (entry.d_tag == tag) {
                texts.push_back(text(Sections.at(section.Link), entry.d_un.d_val));
            }
        }
    }
    return texts;
}

std::string ElfFile::soname() const {
    const std::vector<std::string> names = dynamicTexts(DT_SONAME);
    return names.empty() ? "" : names.front();
}

std::string ElfFile::runPath() const {
    const std::vector<std::string> paths = dynamicTexts(DT_RUNPATH);
    return paths.empty() ? "" : paths.front();
}

std::vector<std::string> ElfFile::neededLibraries() const {
    return dynamicTexts(DT_NEEDED);
}

} // namespace testsupport
