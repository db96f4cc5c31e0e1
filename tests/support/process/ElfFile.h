// A shared object as the dynamic loader sees it: what it is called, what it needs, and which symbols it lets out.
#pragma once

#include <string>
#include <vector>

namespace testsupport {

class ElfFile {
public:
    explicit ElfFile(
        const std::string& name); // also an object file; raises std::runtime_error for what is no 64-bit ELF file

    struct Symbol {
        std::string Name; // raw
        bool Defined;
        bool Strong; // of the whole program, and not one of several equal definitions
        bool Shown;  // to other files, by its visibility
    };
    // What the dynamic loader knows, and what the linker knew; the latter is empty where the file has been stripped.
    std::vector<Symbol> dynamicSymbols() const;
    std::vector<Symbol> allSymbols() const;

    // Raw names of what is let out, and of what others must define.
    std::vector<std::string> exportedSymbols() const;
    std::vector<std::string> undefinedSymbols() const;

    std::string soname() const;                       // empty where there is none
    std::string runPath() const;                      // where the loader looks for what is needed
    std::vector<std::string> neededLibraries() const; // by soname, in order

private:
    struct Section {
        unsigned Type;
        unsigned Link; // the section of its names
        std::size_t Offset;
        std::size_t Size;
    };

    std::vector<Symbol> symbols(unsigned sectionType) const;
    std::vector<std::string> dynamicTexts(long tag) const;
    template <class Structure>
    Structure at(std::size_t offset) const;
    std::string text(const Section& strings, std::size_t offset) const;

    std::string Bytes;
    std::vector<Section> Sections;
};

// As C++ writes it; a name that is none of C++ stays as it is.
std::string demangled(const std::string& name);

} // namespace testsupport
