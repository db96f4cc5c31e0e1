// What `cmake --install` puts where, and whether it works from another place than the one it was made for.
#include "tests/install/InstallFixture.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <regex>

namespace {

using namespace installtest;
using namespace testsupport;
using testing::Contains;
using testing::HasSubstr;
using testing::StartsWith;

std::vector<std::string> installedHeaders(const std::string& prefix) {
    return filesBelow(prefix + "/include");
}

} // namespace

TEST_F(InstalledTree, HasEachKindOfFileInItsUsualPlace) {
    std::vector<std::string> expected = {"bin/netrove"};
    for (const char* file :
         {"libnetrove.so", "libnetrove_client.so", "libnetrove_client.so." NETROVE_SOVERSION,
          "libnetrove_client.so." NETROVE_VERSION, "libvantik_embedded.so", "libvantik_embedded.so." NETROVE_SOVERSION,
          "libvantik_embedded.so." NETROVE_VERSION, "netrove/libnetrove_icu.so", "netrove/libnetrove_poco.so",
          "netrove/libnetrove_libproxy.so", "netrove/libnetrove_demo.so", "cmake/netrove/netroveConfig.cmake",
          "cmake/netrove/netroveConfigVersion.cmake", "pkgconfig/netrove.pc", "pkgconfig/netrove-client.pc"}) {
        expected.push_back(NETROVE_LIBRARY_FOLDER "/" + std::string(file));
    }
    for (const std::string& header : clientHeaders()) {
        expected.push_back("include/" + header);
    }
    for (const char* header : {"Array.h", "Failure.h", "Host.h", "HostClass.h", "Object.h"}) {
        expected.push_back(std::string("include/vantik/") + header);
    }
    for (const char* file :
         {"netrove/messages/en.txt", "man/man1/netrove.1", "man/man1/netrove-batch.1",
          "bash-completion/completions/netrove", "zsh/vendor-completions/_netrove",
          "fish/vendor_completions.d/netrove.fish", "doc/netrove/LICENSE", "doc/netrove/README.md",
          "doc/netrove/CHANGELOG.md", "doc/netrove/docs/install.md", "doc/netrove/examples/CMakeLists.txt",
          "doc/netrove/examples/download.cpp", "doc/netrove/examples/embedding/get_to_memory.cpp"}) {
        expected.push_back(std::string("share/") + file);
    }
    EXPECT_THAT(filesBelow(prefix()), testing::IsSupersetOf(expected));
}

TEST_F(InstalledTree, NamesNoFolderOfTheBuild) {
    for (const std::string& file : filesBelow(prefix())) {
        if (file.find("/libvantik_embedded") != std::string::npos || file.find("/libnetrove") != std::string::npos ||
            file.find("/_netrove.") != std::string::npos || file == "bin/netrove") {
            continue; // debug information names its sources
        }
        const std::string content = readFile(prefix() + "/" + file);
        EXPECT_EQ(content.find(NETROVE_BUILD_FOLDER), std::string::npos) << file;
        EXPECT_EQ(content.find(NETROVE_SOURCES), std::string::npos) << file;
    }
}

TEST_F(InstalledTree, ProgramRunsFromAnotherPlace) {
    ScriptedServer server({step::expectHead(), step::send(response("hello")), step::awaitPeerEnd()});
    const std::string program = "'" + prefix() + "/bin/netrove' ";
    const Outcome got = shell(program + "get " + server.url(), scratch("run"));
    EXPECT_EQ(got.Status, 0);
    EXPECT_EQ(got.Out, "hello");
    // What is loaded when it is first needed is found beside the rest too: ICU, Poco and the server of the tour.
    EXPECT_THAT(shell(program + "--version", scratch("version")).Out, StartsWith("netrove " NETROVE_VERSION "\n"));
    EXPECT_EQ(shell(program + "demo", scratch("demo")).Status, 0);
}

TEST_F(InstalledTree, MessagesOfAnotherLanguageAreFoundBesideIt) {
    writeFile(prefix() + "/share/netrove/messages/de.txt", "VANTIK:webservices:UnknownHost Gibt es nicht: {0}.\n");
    const Outcome outcome = shell("'" + prefix() + "/bin/netrove' get -x none http://no-such-host.invalid/",
                                  scratch("language"), {{"LC_ALL", "de_AT.UTF-8"}});
    std::filesystem::remove(prefix() + "/share/netrove/messages/de.txt");
    EXPECT_EQ(outcome.Status, 6) << outcome.Out;
    EXPECT_THAT(outcome.Out, HasSubstr("Gibt es nicht: http://no-such-host.invalid/."));
}

TEST_F(InstalledTree, EachHeaderCompilesAlone) {
    const std::string folder = scratch("headers");
    const std::vector<std::string> headers = installedHeaders(prefix());
    ASSERT_THAT(headers, Contains("vantik/Host.h"));
    for (const std::string& header : headers) {
        writeFile(folder + "/alone.cpp", "#include <" + header + ">\n");
        const Outcome outcome = shell("g++ -std=c++20 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I '" + prefix() +
                                          "/include' alone.cpp",
                                      folder);
        EXPECT_EQ(outcome.Status, 0) << header << "\n" << outcome.Out;
    }
}

TEST_F(InstalledTree, HasTheHeadersOfTheClientAndTheseIncludeNoOther) {
    std::vector<std::string> installed = installedHeaders(prefix());
    std::erase_if(installed, [](const std::string& header) { return !header.starts_with("netrove/"); });
    EXPECT_EQ(installed, clientHeaders());
    for (const std::string& header : installed) {
        for (const std::string& included :
             docstest::matches(readFile(prefix() + "/include/" + header), R"re(#include ["<]([^">]+)[">])re")) {
            EXPECT_TRUE(testing::Value(installed, Contains(included)) || included.find_first_of("./") == included.npos)
                << header << " includes " << included;
        }
    }
}

TEST_F(InstalledTree, LinksOfThePagesLeadToInstalledFiles) {
    std::size_t links = 0;
    for (const std::string& page : filesBelow(prefix())) {
        if (page.ends_with(".md")) {
            for (const std::string& target : docstest::relativeLinks(readFile(prefix() + "/" + page))) {
                const auto file = std::filesystem::path(prefix() + "/" + page).parent_path() / target;
                EXPECT_TRUE(std::filesystem::exists(file)) << page << " links to " << target;
                ++links;
            }
        }
    }
    EXPECT_GT(links, 20u);
}

TEST_F(InstalledTree, HeadersShowNoTypeOfAnotherLibrary) {
    const std::regex comment("//[^\n]*"); // which may well name one
    const char* const libraries = "curl|boost|icu|unicode/|uchar|poco|libproxy|cppmicroservices|nlohmann|openssl|evp";
    for (const std::string& header : installedHeaders(prefix())) {
        const std::string code = std::regex_replace(readFile(prefix() + "/include/" + header), comment, "");
        std::smatch found;
        EXPECT_FALSE(std::regex_search(code, found, std::regex(libraries, std::regex::icase)))
            << header << " shows " << found.str();
    }
}

TEST_F(InstalledTree, PackageForCMakeSuitsTheMinorVersionsThatItShould) {
    const std::string folder = scratch("versions");
    writeFile(folder + "/CMakeLists.txt", "cmake_minimum_required(VERSION 3.25)\n"
                                          "project(versions LANGUAGES NONE)\n"
                                          "foreach(version 0.0 0.1 " NETROVE_VERSION " 0.1.99 0.2 1.0)\n"
                                          "  find_package(netrove ${version} CONFIG QUIET)\n"
                                          "  message(STATUS \"${version}: ${netrove_FOUND}\")\n"
                                          "  unset(netrove_DIR CACHE)\n"
                                          "endforeach()\n");
    const Outcome outcome = shell("cmake -S . -B build -G Ninja -DCMAKE_PREFIX_PATH='" + prefix() + "'", folder);
    EXPECT_EQ(outcome.Status, 0) << outcome.Out;
    for (const char* line : {"0.0: 0\n", "0.1: 1\n", NETROVE_VERSION ": 1\n", "0.1.99: 0\n", "0.2: 0\n", "1.0: 0\n"}) {
        EXPECT_THAT(outcome.Out, HasSubstr(line));
    }
}

TEST_F(InstalledTree, BothPackagesSayWhereTheModuleIs) {
    const std::string folder = scratch("module");
    writeFile(folder + "/CMakeLists.txt", "cmake_minimum_required(VERSION 3.25)\n"
                                          "project(module LANGUAGES NONE)\n"
                                          "find_package(netrove CONFIG REQUIRED)\n"
                                          "file(GENERATE OUTPUT ${CMAKE_BINARY_DIR}/place\n"
                                          "     CONTENT $<TARGET_FILE:netrove::netrove>)\n");
    const Outcome outcome = shell("cmake -S . -B build -G Ninja -DCMAKE_PREFIX_PATH='" + prefix() +
                                      "' >log || { cat log; false; }\n"
                                      "realpath \"$(cat build/place)\"\n"
                                      "realpath \"$(pkg-config --variable=module netrove)\"\n"
                                      "pkg-config --modversion netrove netrove-client\n",
                                  folder, {{"PKG_CONFIG_PATH", library("pkgconfig")}});
    EXPECT_EQ(outcome.Status, 0);
    const std::string module = std::filesystem::canonical(library("libnetrove.so")).string();
    EXPECT_EQ(outcome.Out, module + "\n" + module + "\n" NETROVE_VERSION "\n" NETROVE_VERSION "\n");
}
