// What the libraries show to others: the host's what host/ and the embedding API declare, the client's what its headers
// declare, and neither what it is made of.
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

// What the object files of a library define for the rest of it or for others. Inline functions and templates are left
// out: each program has its own.
std::vector<ElfFile::Symbol> objectSymbols(const char* list) {
    std::vector<ElfFile::Symbol> result;
    std::istringstream files(readFile(list));
    for (std::string file; std::getline(files, file);) {
        if (file.ends_with(".gch")) {
            continue; // the precompiled header is listed with the objects
        }
        for (const ElfFile::Symbol& symbol : ElfFile(file).allSymbols()) {
            if (symbol.Defined && symbol.Strong && !symbol.Name.starts_with("__") &&
                symbol.Name.find("DW.ref") == std::string::npos) {
                result.push_back(symbol);
            }
        }
    }
    return result;
}

// "Client" of "netrove::Client::get(…) const", "Script" of "typeinfo for netrove::testing::Script", empty for what is
// not of this library.
std::string nameInClient(const std::string& symbol) {
    const std::regex form(R"((?:typeinfo for |typeinfo name for |vtable for )?netrove::(?:testing::)?(\w+).*)");
    std::smatch found;
    return std::regex_match(symbol, found, form) ? found[1].str() : "";
}

// What the headers of the client declare, those for the command line included: the first parenthesis of the expression,
// each time.
Names declaredInClient(const char* expression) {
    Names names;
    for (const std::string& header : docstest::sourcesIn("client/include/netrove", ".h")) {
        names.merge(setOf(docstest::matches(installtest::source(header), expression)));
    }
    return names;
}

} // namespace

TEST(ExportedSymbols, OfTheClientAreThoseOfItsHeaders) {
    Names declared = declaredInClient(R"((?:class|struct) NETROVE_API (\w+))");
    declared.merge(declaredInClient(R"(NETROVE_API (?!__)[^(;{]*?(\w+)\()"));
    ASSERT_GT(declared.size(), 20u);
    Names found;
    for (const std::string& symbol : ElfFile(NETROVE_CLIENT_FILE).exportedSymbols()) {
        const std::string name = nameInClient(demangled(symbol));
        EXPECT_TRUE(declared.contains(name)) << demangled(symbol);
        EXPECT_EQ(demangled(symbol).find("::State::"), std::string::npos) << demangled(symbol);
        found.insert(name);
    }
    EXPECT_EQ(found, declared);
}

// A member that is declared without being exported would only be missed when a program uses it.
TEST(ExportedSymbols, OfTheClientAreAllMembersOfItsClasses) {
    const Names declared = declaredInClient(R"((?:class|struct) (?:NETROVE_API )?(\w+) )");
    const Names exported = setOf(ElfFile(NETROVE_CLIENT_FILE).exportedSymbols());
    const std::regex nested(R"(netrove::(testing::)?\w+::(State|Shared|Content)::.*)");
    std::size_t members = 0;
    for (const ElfFile::Symbol& symbol : objectSymbols(NETROVE_CLIENT_OBJECTS)) {
        const std::string name = demangled(symbol.Name);
        if (declared.contains(nameInClient(name)) && !std::regex_match(name, nested)) {
            EXPECT_TRUE(exported.contains(symbol.Name)) << name << " is not exported";
            ++members;
        }
    }
    EXPECT_GT(members, 60u);
}

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
    for (const ElfFile::Symbol& symbol : objectSymbols(NETROVE_EMBEDDED_OBJECTS)) {
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
    const ElfFile client(NETROVE_CLIENT_FILE);
    EXPECT_EQ(client.soname(), "libnetrove_client.so." NETROVE_SOVERSION);
    EXPECT_EQ(fs::canonical(NETROVE_CLIENT_FILE).filename(), "libnetrove_client.so." NETROVE_VERSION);
    EXPECT_THAT(client.neededLibraries(), testing::Contains(host.soname()));
    const ElfFile module(NETROVE_MODULE_FILE);
    EXPECT_EQ(module.soname(), "libnetrove.so");
    EXPECT_THAT(module.neededLibraries(), testing::Contains(host.soname()));
}
