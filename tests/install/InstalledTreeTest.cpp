// What `cmake --install` puts where, and whether it works from another place than the one it was made for.
#include "tests/install/InstallFixture.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <filesystem>

namespace {

using namespace installtest;
using namespace testsupport;
using testing::Contains;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::StartsWith;

std::vector<std::string> installedHeaders(const std::string& prefix) {
    std::vector<std::string> headers;
    for (const std::string& file : filesBelow(prefix + "/include")) {
        headers.push_back(file);
    }
    return headers;
}

// The code of a header without its comments, which may well name a library.
std::string withoutComments(const std::string& text) {
    std::string code;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        const std::string line = text.substr(start, end - start);
        code += line.substr(0, line.find("//")) + "\n";
        start = end + 1;
    }
    std::ranges::transform(code, code.begin(), [](unsigned char c) { return std::tolower(c); });
    return code;
}

} // namespace

TEST_F(InstalledTree, HasEachKindOfFileInItsUsualPlace) {
    const std::string lib = NETROVE_LIBRARY_FOLDER;
    EXPECT_THAT(filesBelow(prefix()), IsSupersetOf({
                                          lib + "/libnetrove.so",
                                          lib + "/libvantik_embedded.so",
                                          lib + "/libvantik_embedded.so." NETROVE_SOVERSION,
                                          lib + "/libvantik_embedded.so." NETROVE_VERSION,
                                          lib + "/cmake/netrove/netroveConfig.cmake",
                                          lib + "/cmake/netrove/netroveConfigVersion.cmake",
                                          lib + "/pkgconfig/netrove.pc",
                                          std::string("bin/netrove"),
                                          std::string("include/vantik/Array.h"),
                                          std::string("include/vantik/Failure.h"),
                                          std::string("include/vantik/Host.h"),
                                          std::string("include/vantik/HostClass.h"),
                                          std::string("include/vantik/Object.h"),
                                          std::string("share/netrove/messages/en.txt"),
                                          std::string("share/man/man1/netrove.1"),
                                          std::string("share/bash-completion/completions/netrove"),
                                          std::string("share/zsh/vendor-completions/_netrove"),
                                          std::string("share/fish/vendor_completions.d/netrove.fish"),
                                          std::string("share/doc/netrove/LICENSE"),
                                          std::string("share/doc/netrove/README.md"),
                                          std::string("share/doc/netrove/docs/install.md"),
                                      }));
}

TEST_F(InstalledTree, NamesNoFolderOfTheBuild) {
    for (const std::string& file : filesBelow(prefix())) {
        if (file.find("/libvantik_embedded") != std::string::npos || file.ends_with("libnetrove.so") ||
            file == "bin/netrove") {
            continue; // debug information names its sources
        }
        const std::string content = readFile(prefix() + "/" + file);
        EXPECT_EQ(content.find(NETROVE_BUILD_FOLDER), std::string::npos) << file;
        EXPECT_EQ(content.find(NETROVE_SOURCE_FOLDER), std::string::npos) << file;
    }
}

TEST_F(InstalledTree, ProgramRunsFromAnotherPlace) {
    ScriptedServer server({step::expectHead(), step::send(response("hello")), step::awaitPeerEnd()});
    const std::string program = "'" + prefix() + "/bin/netrove' ";
    const ShellOutcome got = shell(program + "get " + server.url(), scratch("run"));
    EXPECT_EQ(got.Status, 0);
    EXPECT_EQ(got.Out, "hello");
    EXPECT_THAT(shell(program + "--version", scratch("version")).Out, StartsWith("netrove " NETROVE_VERSION "\n"));
}

TEST_F(InstalledTree, MessagesOfAnotherLanguageAreFoundBesideIt) {
    writeFile(prefix() + "/share/netrove/messages/de.txt", "VANTIK:webservices:UnknownHost Gibt es nicht: {0}.\n");
    const ShellOutcome outcome = shell("'" + prefix() + "/bin/netrove' get -x none http://no-such-host.invalid/",
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
        const ShellOutcome outcome = shell("g++ -std=c++20 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I '" +
                                               prefix() + "/include' alone.cpp",
                                           folder);
        EXPECT_EQ(outcome.Status, 0) << header << "\n" << outcome.Out;
    }
}

TEST_F(InstalledTree, HeadersShowNoTypeOfAnotherLibrary) {
    for (const std::string& header : installedHeaders(prefix())) {
        const std::string code = withoutComments(readFile(prefix() + "/include/" + header));
        for (const char* name : {"curl", "boost", "icu", "unicode/", "uchar", "poco", "libproxy", "cppmicroservices"}) {
            EXPECT_EQ(code.find(name), std::string::npos) << header << " shows " << name;
        }
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
    const ShellOutcome outcome = shell("cmake -S . -B build -G Ninja -DCMAKE_PREFIX_PATH='" + prefix() + "'", folder);
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
    const ShellOutcome outcome = shell("cmake -S . -B build -G Ninja -DCMAKE_PREFIX_PATH='" + prefix() +
                                           "' >log || { cat log; false; }\n"
                                           "realpath \"$(cat build/place)\"\n"
                                           "realpath \"$(pkg-config --variable=module netrove)\"\n"
                                           "pkg-config --modversion netrove\n",
                                       folder, {{"PKG_CONFIG_PATH", library("pkgconfig")}});
    EXPECT_EQ(outcome.Status, 0);
    const std::string module = std::filesystem::canonical(library("libnetrove.so")).string();
    EXPECT_EQ(outcome.Out, module + "\n" + module + "\n" NETROVE_VERSION "\n");
}
