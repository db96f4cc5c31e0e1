// What the host's library shows to others: what host/ and the embedding API declare, and nothing that it is made of.
#include "tests/install/InstallFixture.h"
#include "tests/support/process/ElfFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace {

namespace fs = std::filesystem;
using namespace installtest;
using testsupport::demangled;
using testsupport::ElfFile;
using testsupport::readFile;

using Names = std::set<std::string>;

Names setOf(const std::vector<std::string>& names) {
    return {names.begin(), names.end()};
}

// Every word of the headers that declare what the library supplies.
Names declaredWords() {
    Names words;
    for (const char* folder : {"host", "embedded/include", "embedded/services/cppmicroservices/include"}) {
        for (const std::string& file : filesBelow(sourcePath(folder))) {
            if (file.ends_with(".h")) {
                words.merge(setOf(docstest::matches(readFile(sourcePath(folder) + "/" + file), R"((\w+))")));
            }
        }
    }
    return words;
}

// "std" of "typeinfo name for std::any".
std::string outermostName(const std::string& symbol) {
    return docstest::matches(symbol, "^(?:typeinfo name for |typeinfo for |vtable for |non-virtual thunk to )?(\\w*)")
        .at(0);
}

const Names kForeign = {"std", "boost", "icu", "icu_72", "Poco", "void", "bool", "auto", "unsigned"};

constexpr const char* kInternals[] = {"vantik::detail::", "vxArray_tag::", "cppmicroservices::detail::"};

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
    const Names declared = declaredWords();
    for (const std::string& symbol : ElfFile(NETROVE_EMBEDDED_FILE).exportedSymbols()) {
        const std::string name = outermostName(demangled(symbol));
        EXPECT_TRUE(declared.contains(name) && !kForeign.contains(name)) << demangled(symbol);
    }
}

// What is neither shown nor an internal matter was forgotten where it is declared.
TEST(ExportedSymbols, OfTheHostAreAllThatItsSourcesShowAndOnlyInternalsAreHidden) {
    const Names exported = setOf(ElfFile(NETROVE_EMBEDDED_FILE).exportedSymbols());
    std::size_t shown = 0;
    for (const ElfFile::Symbol& symbol : objectSymbols()) {
        const std::string name = demangled(symbol.Name);
        if (symbol.Shown) {
            ++shown;
            EXPECT_TRUE(exported.contains(symbol.Name)) << name << " is not in the export map";
        } else {
            EXPECT_TRUE(std::ranges::any_of(kInternals, [&](const char* prefix) { return name.starts_with(prefix); }))
                << name << " is not exported";
        }
    }
    EXPECT_GT(shown, 300u);
}

TEST(ExportedSymbols, OfTheHostAreAllThatTheModuleNeeds) {
    const Names exported = setOf(ElfFile(NETROVE_EMBEDDED_FILE).exportedSymbols());
    std::size_t found = 0;
    for (const std::string& symbol : ElfFile(NETROVE_MODULE_FILE).undefinedSymbols()) {
        static const std::regex ofTheHost("4vcos|6matrix|2fl4i18n|10foundation|13resource_core|8services5state|"
                                          "16cppmicroservices|8Zentorak|16utInterruptState|omCall|omGet|utFree");
        if (std::regex_search(symbol, ofTheHost)) {
            EXPECT_TRUE(exported.contains(symbol)) << symbol;
            ++found;
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
