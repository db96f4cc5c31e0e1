// What the module lets others see, read from its dynamic symbol table.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cxxabi.h>
#include <elf.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

class ElfFile {
public:
    explicit ElfFile(const std::string& name) {
        std::ifstream stream(name, std::ios::binary);
        Bytes.assign(std::istreambuf_iterator<char>(stream), {});
        const auto header = at<Elf64_Ehdr>(0);
        if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64) {
            throw std::runtime_error(name + " is no 64-bit ELF file");
        }
        for (std::size_t i = 0; i < header.e_shnum; ++i) {
            Sections.push_back(at<Elf64_Shdr>(header.e_shoff + i * header.e_shentsize));
        }
    }

    // Names of all symbols that the dynamic symbol table defines for others.
    std::vector<std::string> exportedSymbols() const {
        std::vector<std::string> names;
        for (const Elf64_Shdr& section : Sections) {
            if (section.sh_type != SHT_DYNSYM) {
                continue;
            }
            for (std::size_t offset = 0; offset < section.sh_size; offset += sizeof(Elf64_Sym)) {
                const auto symbol = at<Elf64_Sym>(section.sh_offset + offset);
                if (symbol.st_shndx != SHN_UNDEF && ELF64_ST_BIND(symbol.st_info) != STB_LOCAL) {
                    names.push_back(demangled(text(Sections.at(section.sh_link), symbol.st_name)));
                }
            }
        }
        return names;
    }

private:
    template <class Structure>
    Structure at(std::size_t offset) const {
        if (offset > Bytes.size() || Bytes.size() - offset < sizeof(Structure)) {
            throw std::runtime_error("the file ends too early");
        }
        Structure value;
        std::memcpy(&value, Bytes.data() + offset, sizeof(Structure));
        return value;
    }
    std::string text(const Elf64_Shdr& strings, std::size_t offset) const {
        return Bytes.data() + strings.sh_offset + offset;
    }
    static std::string demangled(const std::string& name) {
        int status = 0;
        const std::unique_ptr<char, decltype(&std::free)> plain(
            abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status), &std::free);
        return status == 0 ? plain.get() : name;
    }

    std::string Bytes;
    std::vector<Elf64_Shdr> Sections;
};

} // namespace

TEST(ModuleExports, AreTheThreeEntryPointsAndNothingElse) {
    EXPECT_THAT(ElfFile(NETROVE_MODULE_FILE).exportedSymbols(),
                testing::UnorderedElementsAre("VKInitialize_netrove", "VKTerminate_netrove",
                                              "ws_base::getProxyInfoBuiltin(int, vxArray_tag**, int, vxArray_tag**)"));
}
