// scripts/package with a small project and a stand-in for lintian: whether the flags of the distribution reach what it
// packs.
#include "tests/scripts/ScriptFixture.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <string>

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testsupport::Outcome;

constexpr const char* kProject = R"(
cmake_minimum_required(VERSION 3.25)
project(small VERSION 1.0 LANGUAGES C CXX)
add_executable(small main.cpp)
install(TARGETS small)
set(CPACK_PACKAGE_CONTACT "nobody <nobody@example.org>")
include(CPack)
)";
constexpr const char* kPresets = R"({"version": 6, "configurePresets": [{"name": "release", "generator": "Ninja",
    "cacheVariables": {"CMAKE_BUILD_TYPE": "Release"}}]})";
// Copies text into an array that may be too small.
constexpr const char* kProgram = "#include <cstdio>\n"
                                 "#include <cstring>\n"
                                 "int main(int count, char** words) {\n"
                                 "    char room[8];\n"
                                 "    std::strcpy(room, words[count - 1]);\n"
                                 "    return std::puts(room) < 0;\n"
                                 "}\n";

class PackageScript : public ScriptFixture {
protected:
    PackageScript() {
        std::filesystem::create_directory(Folder.file("bin"));
        copy("scripts/package");
        standIn("bin/lintian", "");
        standIn("look", "dpkg-deb -x build/packages/*.deb unpacked\n"
                        "nm --dynamic --undefined-only unpacked/usr/bin/small\n"
                        "readelf --dynamic --wide unpacked/usr/bin/small\n");
        write("CMakeLists.txt", kProject);
        write("CMakePresets.json", kPresets);
        write("main.cpp", kProgram);
    }

    // What the dynamic loader sees of the packed program.
    std::string packed() const {
        const Outcome outcome = run("scripts/package", {});
        EXPECT_EQ(outcome.Status, 0) << outcome.Out << outcome.Err;
        return run("look", {}).Out;
    }
};

} // namespace

TEST_F(PackageScript, FlagsOfTheDistributionReachTheProgramAlsoWhereItWasBuiltBefore) {
    standIn("bin/dpkg-buildflags", "for name in CPPFLAGS CFLAGS CXXFLAGS LDFLAGS; do echo \"export $name=''\"; done\n");
    EXPECT_THAT(packed(), AllOf(HasSubstr("strcpy"), Not(HasSubstr("__strcpy_chk")), Not(HasSubstr("BIND_NOW"))));

    std::filesystem::remove(Folder.file("bin/dpkg-buildflags"));
    EXPECT_THAT(packed(), AllOf(HasSubstr("__strcpy_chk"), HasSubstr("__stack_chk_fail"), HasSubstr("BIND_NOW")));
}
