// A shared object as the dynamic loader sees it: what it is called, what it needs, and which symbols it exports.
#pragma once

#include <string>
#include <vector>

namespace testsupport {

class ElfFile {
public:
    explicit ElfFile(const std::string& name); // also an object file; raises std::runtime_error for any other

    struct Symbol {
        std::string Name; // raw
        bool Defined;
        bool Strong; // of the whole program, and not one of several equal definitions
        bool Shown;  // to other files, by its visibility
    };
    // What the linker knew; empty where the file has been stripped.
    std::vector<Symbol> allSymbols() const { return All; }

    // Raw names of what is exported, and of what others must define, as the dynamic loader knows them.
    std::vector<std::string> exportedSymbols() const;
    std::vector<std::string> undefinedSymbols() const;

    std::string soname() const { return Soname; }                       // empty where there is none
    std::string runPath() const { return RunPath; }                     // where the loader looks for what is needed
    std::vector<std::string> neededLibraries() const { return Needed; } // by soname, in order

private:
    std::vector<Symbol> Dynamic;
    std::vector<Symbol> All;
    std::string Soname;
    std::string RunPath;
    std::vector<std::string> Needed;
};

// As C++ writes it; a name that is not of C++ stays as it is.
std::string demangled(const std::string& name);

} // namespace testsupport
