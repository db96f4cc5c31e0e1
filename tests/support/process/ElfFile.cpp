#include "tests/support/process/ElfFile.h"

#include <boost/core/demangle.hpp>

#include <cstdio>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace testsupport {
namespace {

// What readelf, which comes with the compiler, prints of a file.
std::string printed(const std::string& file) {
    const std::string command = "LC_ALL=C readelf --wide --symbols --dynamic '" + file + "'";
    std::unique_ptr<std::FILE, decltype(&::pclose)> stream(::popen(command.c_str(), "r"), &::pclose);
    std::string text;
    char block[65536];
    while (const std::size_t length = stream ? std::fread(block, 1, sizeof block, stream.get()) : 0) {
        text.append(block, length);
    }
    if (!stream || ::pclose(stream.release()) != 0) {
        throw std::runtime_error(file + " is not an ELF file");
    }
    return text;
}

} // namespace

std::string demangled(const std::string& name) {
    return boost::core::demangle(name.c_str());
}

ElfFile::ElfFile(const std::string& name) {
    std::istringstream lines(printed(name));
    std::vector<Symbol>* table = nullptr;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string number, value, size, type, binding, visibility, section, symbol;
        if (line.starts_with("Symbol table '")) {
            table = line.find("'.dynsym'") == line.npos ? &All : &Dynamic;
        } else if (const auto begin = line.find(": ["); line.starts_with(" 0x") && begin != line.npos) {
            //  0x000000000000000e (SONAME)             Library soname: [libnetrove.so]
            const std::string text = line.substr(begin + 3, line.rfind(']') - begin - 3);
            if (line.find("(NEEDED)") != line.npos) {
                Needed.push_back(text);
            } else if (line.find("(SONAME)") != line.npos) {
                Soname = text;
            } else if (line.find("(RUNPATH)") != line.npos) {
                RunPath = text;
            }
        } else if (words >> number >> value >> size >> type >> binding >> visibility >> section >> symbol &&
                   number.ends_with(':') && number != "Num:") {
            //  7: 0000000000001139    47 FUNC    GLOBAL DEFAULT   14 name@VERSION
            table->push_back({symbol.substr(0, symbol.find('@')), section != "UND", binding == "GLOBAL",
                              binding != "LOCAL" && (visibility == "DEFAULT" || visibility == "PROTECTED")});
        }
    }
}

std::vector<std::string> ElfFile::exportedSymbols() const {
    std::vector<std::string> names;
    for (const Symbol& symbol : Dynamic) {
        if (symbol.Defined && symbol.Shown) {
            names.push_back(symbol.Name);
        }
    }
    return names;
}

std::vector<std::string> ElfFile::undefinedSymbols() const {
    std::vector<std::string> names;
    for (const Symbol& symbol : Dynamic) {
        if (!symbol.Defined) {
            names.push_back(symbol.Name);
        }
    }
    return names;
}

} // namespace testsupport
