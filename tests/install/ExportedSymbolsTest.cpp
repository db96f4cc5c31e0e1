// What the host's library lets others see: what host/ and the embedding API declare, and nothing that it is made of.
#include "tests/install/InstallFixture.h"
#include "tests/support/process/ElfFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>

namespace {

namespace fs = std::filesystem;
using namespace installtest;
using testsupport::demangled;
using testsupport::ElfFile;
using testsupport::readFile;

bool isNameCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

// Every word of the headers that declare what the library supplies.
std::set<std::string> declaredWords() {
    std::set<std::string> words;
    for (const char* folder : {"host", "embedded/include", "embedded/services/cppmicroservices/include"}) {
        for (const std::string& file : filesBelow(source(folder))) {
            if (!file.ends_with(".h")) {
                continue;
            }
            std::string word;
            for (const char c : readFile(source(folder) + "/" + file) + "\n") {
                if (isNameCharacter(c)) {
                    word += c;
                } else if (!word.empty()) {
                    words.insert(word);
                    word.clear();
                }
            }
        }
    }
    return words;
}

// "std" of "typeinfo name for std::any".
std::string outermostName(std::string symbol) {
    for (const char* prefix : {"typeinfo name for ", "typeinfo for ", "vtable for ", "non-virtual thunk to "}) {
        if (symbol.starts_with(prefix)) {
            symbol.erase(0, std::string(prefix).size());
        }
    }
    std::size_t end = 0;
    while (end < symbol.size() && isNameCharacter(symbol[end])) {
        ++end;
    }
    return symbol.substr(0, end);
}

const std::set<std::string> kForeign = {"std", "boost", "icu", "icu_72", "Poco", "void", "bool", "auto", "unsigned"};

constexpr const char* kInternals[] = {"vantik::detail::", "vxArray_tag::", "cppmicroservices::detail::"};

std::set<std::string> setOf(const std::vector<std::string>& names) {
    return {names.begin(), names.end()};
}

// What the object files of the host define for the rest of it or for others. Inline functions and templates are left
// out: each program has its own.
std::vector<ElfFile::Symbol> objectSymbols() {
    std::vector<ElfFile::Symbol> result;
    std::istringstream files(readFile(NETROVE_EMBEDDED_OBJECTS));
    for (std::string file; std::getline(files, file);) {
        for (const ElfFile::Symbol& symbol : ElfFile(file).allSymbols()) {
            if (symbol.Defined && symbol.Strong && !symbol.Name.starts_with("__") &&
                symbol.Name.find("DW.ref") == std::string::npos) {
                result.push_back(symbol);
            }
        }
    }
    return result;
}

} // namespace

TEST(ExportedSymbols, OfTheHostAreThoseOfItsHeaders) {
    const std::set<std::string> declared = declaredWords();
    for (const std::string& symbol : ElfFile(NETROVE_EMBEDDED_FILE).exportedSymbols()) {
        const std::string name = outermostName(demangled(symbol));
        EXPECT_TRUE(declared.contains(name) && !kForeign.contains(name)) << demangled(symbol);
    }
}

TEST(ExportedSymbols, OfTheHostAreAllThatItsSourcesShow) {
    const std::set<std::string> exported = setOf(ElfFile(NETROVE_EMBEDDED_FILE).exportedSymbols());
    std::size_t shown = 0;
    for (const ElfFile::Symbol& symbol : objectSymbols()) {
        if (symbol.Shown) {
            ++shown;
            EXPECT_TRUE(exported.contains(symbol.Name)) << demangled(symbol.Name) << " is not in the export map";
        }
    }
    EXPECT_GT(shown, 300u);
}

// Whatever is neither shown nor an internal matter was forgotten where it is declared.
TEST(ExportedSymbols, OnlyInternalsOfTheHostAreHidden) {
    for (const ElfFile::Symbol& symbol : objectSymbols()) {
        const std::string name = demangled(symbol.Name);
        const bool internal =
            std::ranges::any_of(kInternals, [&](const char* prefix) { return name.starts_with(prefix); });
        EXPECT_TRUE(symbol.Shown || internal) << name << " is not exported";
    }
}

TEST(ExportedSymbols, OfTheHostAreAllThatTheModuleNeeds) {
    const std::set<std::string> exported = setOf(ElfFile(NETROVE_EMBEDDED_FILE).exportedSymbols());
    std::size_t found = 0;
    for (const std::string& symbol : ElfFile(NETROVE_MODULE_FILE).undefinedSymbols()) {
        for (const char* mark :
             {"4vcos", "6matrix", "2fl4i18n", "10foundation", "13resource_core", "8services5state",
              "16cppmicroservices", "8Zentorak", "16utInterruptState", "omCall", "omGet", "utFree"}) {
            if (symbol.find(mark) != std::string::npos) {
                EXPECT_TRUE(exported.contains(symbol)) << symbol;
                ++found;
                break;
            }
        }
    }
    EXPECT_GT(found, 50u);
}

TEST(ExportedSymbols, AreOfAVersionThatTheSonameNames) {
    const ElfFile host(NETROVE_EMBEDDED_FILE);
    EXPECT_EQ(host.soname(), "libvantik_embedded.so." NETROVE_SOVERSION);
    EXPECT_EQ(fs::canonical(NETROVE_EMBEDDED_FILE).filename(), "libvantik_embedded.so." NETROVE_VERSION);
    const ElfFile module(NETROVE_MODULE_FILE);
    EXPECT_EQ(module.soname(), "libnetrove.so");
    EXPECT_THAT(module.neededLibraries(), testing::Contains(host.soname()));
}
