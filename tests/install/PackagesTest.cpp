// The Debian packages of this build: what is in them, what they say of themselves, and whether they work once unpacked.
#include "tests/install/InstallFixture.h"
#include "tests/support/process/ElfFile.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace {

namespace fs = std::filesystem;
using namespace installtest;
using namespace testsupport;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using testing::UnorderedElementsAreArray;

// The packages are made once a process: packing takes seconds.
class Packages : public testing::Test {
protected:
    static void SetUpTestSuite() {
        Folder = std::make_unique<TemporaryFolder>();
        makeIn(*Folder, "cpack -G DEB --config '" NETROVE_BUILD_FOLDER "/CPackConfig.cmake' -B .\n"
                        "for package in *.deb; do\n"
                        "    dpkg-deb -x $package ${package%%_*}\n"
                        "    dpkg-deb -e $package ${package%%_*}.control\n"
                        "    dpkg-deb -x $package root\n"
                        "done");
    }
    static void TearDownTestSuite() { Folder.reset(); }

    static std::string place(const std::string& name) { return Folder->file(name); }

    static std::vector<std::string> files(const std::string& package) { return filesBelow(place(package)); }

    // One field of the control file; empty where there is none.
    static std::string field(const std::string& package, const std::string& name) {
        const auto values = docstest::matches("\n" + readFile(place(package + ".control/control")),
                                              ("\n" + name + ": ([^\n]*)").c_str());
        return values.empty() ? "" : values.front();
    }

private:
    static std::unique_ptr<TemporaryFolder> Folder;
};

std::unique_ptr<TemporaryFolder> Packages::Folder;

const std::vector<std::string> kPackages = {"libnetrove0", "libnetrove-dev", "netrove", "python3-netrove"};
const std::string kLib = "usr/" NETROVE_LIBRARY_FOLDER "/";
constexpr const char* kSameVersion = "libnetrove0 (= " NETROVE_VERSION ")";

// What every package has under its own name.
std::vector<std::string> with(const std::string& package, std::vector<std::string> files) {
    files.push_back("usr/share/doc/" + package + "/changelog.gz");
    files.push_back("usr/share/doc/" + package + "/copyright");
    return files;
}

} // namespace

TEST_F(Packages, RuntimePackageHoldsWhatRunningProgramsNeed) {
    EXPECT_THAT(files("libnetrove0"),
                UnorderedElementsAreArray(with(
                    "libnetrove0",
                    {kLib + "libnetrove.so", kLib + "libnetrove_client.so." NETROVE_SOVERSION,
                     kLib + "libnetrove_client.so." NETROVE_VERSION, kLib + "libvantik_embedded.so." NETROVE_SOVERSION,
                     kLib + "libvantik_embedded.so." NETROVE_VERSION, kLib + "netrove/libnetrove_icu.so",
                     kLib + "netrove/libnetrove_libproxy.so", kLib + "netrove/libnetrove_poco.so",
                     "usr/share/lintian/overrides/libnetrove0", "usr/share/netrove/messages/en.txt"})));
}

TEST_F(Packages, ToolPackageHoldsTheProgramWithItsPages) {
    std::vector<std::string> expected = with(
        "netrove", {"usr/bin/netrove", kLib + "netrove/libnetrove_demo.so",
                    "usr/share/bash-completion/completions/netrove", "usr/share/fish/vendor_completions.d/netrove.fish",
                    "usr/share/man/man1/netrove.1.gz", "usr/share/zsh/vendor-completions/_netrove"});
    for (const char* command : {"get", "save", "send", "batch", "proxy", "describe", "demo", "help"}) {
        expected.push_back("usr/share/man/man1/netrove-" + std::string(command) + ".1.gz");
    }
    EXPECT_THAT(files("netrove"), UnorderedElementsAreArray(expected));
}

TEST_F(Packages, PythonPackageHoldsTheModulesWithTheirTypes) {
    const std::string folder = "usr/lib/python3/dist-packages/netrove/";
    std::vector<std::string> expected =
        with("python3-netrove", {folder + NETROVE_PYTHON_EXTENSION, "usr/share/lintian/overrides/python3-netrove"});
    for (const std::string& file : filesBelow(sourcePath("python/netrove"))) {
        if (file.find("__pycache__") == std::string::npos) {
            expected.push_back(folder + file);
        }
    }
    EXPECT_THAT(files("python3-netrove"), UnorderedElementsAreArray(expected));
}

TEST_F(Packages, DevelopmentPackageHoldsHeadersAndFilesOfBuildSystems) {
    std::vector<std::string> expected =
        with("libnetrove-dev",
             {kLib + "libnetrove_client.so", kLib + "libvantik_embedded.so", kLib + "cmake/netrove/netroveConfig.cmake",
              kLib + "cmake/netrove/netroveConfigVersion.cmake", kLib + "pkgconfig/netrove.pc",
              kLib + "pkgconfig/netrove-client.pc", "usr/share/doc/netrove/LICENSE"});
    for (const std::string& header : filesBelow(sourcePath("embedded/include"))) {
        expected.push_back("usr/include/" + header);
    }
    for (const std::string& header : clientHeaders()) {
        expected.push_back("usr/include/" + header);
    }
    std::vector<std::string> documents = docstest::sourcesIn(".", ".md");
    for (const char* folder : {"bench", "docs", "examples"}) {
        for (const std::string& file : filesBelow(sourcePath(folder))) {
            if (folder == std::string("examples") || file.ends_with(".md") || file.ends_with(".svg") ||
                file.ends_with(".png")) {
                documents.push_back(folder + ("/" + file));
            }
        }
    }
    for (const std::string& document : documents) {
        expected.push_back("usr/share/doc/netrove/" + document);
    }
    EXPECT_THAT(files("libnetrove-dev"), UnorderedElementsAreArray(expected));
}

TEST_F(Packages, ControlFieldsSayWhatEachIs) {
    for (const std::string& package : kPackages) {
        EXPECT_EQ(field(package, "Package"), package);
        EXPECT_EQ(field(package, "Version"), NETROVE_VERSION);
        EXPECT_EQ(field(package, "Priority"), "optional");
        EXPECT_THAT(field(package, "Maintainer"), HasSubstr("netrove maintainers"));
        EXPECT_FALSE(field(package, "Description").empty());
        EXPECT_EQ(field(package, "Homepage"), "https://netrove.example.org/");
    }
    EXPECT_EQ(field("libnetrove0", "Section"), "libs");
    EXPECT_EQ(field("libnetrove-dev", "Section"), "libdevel");
    EXPECT_EQ(field("netrove", "Section"), "web");
    EXPECT_EQ(field("python3-netrove", "Section"), "python");
    EXPECT_EQ(field("netrove", "Description"), "command line for HTTP requests and transfers");
}

TEST_F(Packages, DependOnTheLibrariesTheyAreLinkedWithAndOnEachOther) {
    const std::string runtime = field("libnetrove0", "Depends");
    for (const char* library : {"libcurl4", "libicu", "libboost-url", "libproxy1", "libpoconet", "libssl3", "libc6"}) {
        EXPECT_THAT(runtime, HasSubstr(library));
    }
    EXPECT_EQ(field("libnetrove0", "Recommends"), "ca-certificates, shared-mime-info");
    EXPECT_EQ(field("libnetrove-dev", "Depends"), kSameVersion);
    EXPECT_THAT(field("netrove", "Depends"), HasSubstr(kSameVersion));
    EXPECT_THAT(field("netrove", "Depends"), HasSubstr("ca-certificates"));
    EXPECT_THAT(field("python3-netrove", "Depends"),
                StartsWith(kSameVersion + std::string(", ca-certificates, python3 (>= 3.")));
    EXPECT_THAT(field("python3-netrove", "Depends"), HasSubstr(", python3 (<< 3."));
    const std::string needed = " " NETROVE_SOVERSION " libnetrove0 (>= " NETROVE_VERSION "), libnetrove0 (<< 0.2~)\n";
    EXPECT_EQ(readFile(place("libnetrove0.control/shlibs")),
              "libvantik_embedded" + needed + "libnetrove_client" + needed);
}

TEST_F(Packages, LinksForBuildingLeadIntoTheRuntimePackage) {
    for (const std::string library : {"libnetrove_client.so", "libvantik_embedded.so"}) {
        EXPECT_EQ(fs::read_symlink(place("libnetrove-dev/" + kLib + library)).string(),
                  library + "." NETROVE_SOVERSION);
        EXPECT_TRUE(fs::exists(place("root/" + kLib + library)));
    }
}

// Each package's pages are of use without the others. The licence is in every Debian system.
TEST_F(Packages, LinksOfThePagesLeadIntoTheSamePackage) {
    EXPECT_EQ(fs::read_symlink(place("libnetrove-dev/usr/share/doc/netrove/LICENSE")).string(),
              "../../common-licenses/Apache-2.0");
    for (const std::string& package : kPackages) {
        for (const std::string& page : files(package)) {
            if (page.ends_with(".md")) {
                for (const std::string& target : docstest::relativeLinks(readFile(place(package + "/" + page)))) {
                    const fs::path file = fs::path(place(package + "/" + page)).parent_path() / target;
                    EXPECT_NE(fs::symlink_status(file).type(), fs::file_type::not_found)
                        << package << ": " << page << " links to " << target;
                }
            }
        }
    }
}

TEST_F(Packages, BinariesAreStrippedAndLookForTheirOwnBesideThem) {
    for (const std::string& file : {kLib + "libnetrove.so", kLib + "libnetrove_client.so." NETROVE_VERSION,
                                    kLib + "libvantik_embedded.so." NETROVE_VERSION}) {
        EXPECT_TRUE(ElfFile(place("libnetrove0/" + file)).allSymbols().empty()) << file;
        EXPECT_THAT(ElfFile(place("libnetrove0/" + file)).runPath(), Not(HasSubstr("/"))) << file;
    }
    EXPECT_TRUE(ElfFile(place("python3-netrove/usr/lib/python3/dist-packages/netrove/" NETROVE_PYTHON_EXTENSION))
                    .allSymbols()
                    .empty());
    EXPECT_EQ(ElfFile(place("netrove/usr/bin/netrove")).runPath(),
              "$ORIGIN/../" NETROVE_LIBRARY_FOLDER ":$ORIGIN/../" NETROVE_LIBRARY_FOLDER "/netrove");
}

TEST_F(Packages, CompressedPagesAreWhole) {
    EXPECT_EQ(shell("gzip -dc netrove/usr/share/man/man1/netrove.1.gz", place("")).Out, run({"help", "man"}).Out);
    EXPECT_EQ(shell("gzip -dc netrove/usr/share/man/man1/netrove-save.1.gz", place("")).Out,
              run({"help", "man-save"}).Out);
    EXPECT_EQ(shell("gzip -dc netrove/usr/share/doc/netrove/changelog.gz", place("")).Out,
              source("packaging/debian/changelog"));
    EXPECT_THAT(source("packaging/debian/changelog"), testing::StartsWith("netrove (" NETROVE_VERSION ") "));
}

TEST_F(Packages, ToolRunsWhereTheyAreUnpacked) {
    ScriptedServer server({step::expectHead(), step::send(response("hello")), step::awaitPeerEnd()});
    const Outcome got = shell("root/usr/bin/netrove get " + server.url(), place(""));
    EXPECT_EQ(got.Status, 0);
    EXPECT_EQ(got.Out, "hello");
}

// With the libraries of libnetrove0, those that are loaded late among them.
TEST_F(Packages, PythonImportsItWhereTheyAreUnpacked) {
    ScriptedServer server({step::expectHead(),
                           step::send(response("\xC9t\xE9", {"Content-Type: text/plain; charset=iso-8859-1"})),
                           step::awaitPeerEnd()});
    const Outcome got = shell(NETROVE_PYTHON " -B -c '\n"
                                             "import netrove\n"
                                             "print(netrove.get(\"" +
                                  server.url() +
                                  "\", proxy=False).text)\n"
                                  "for line in open(\"/proc/self/maps\"):\n"
                                  "    if \"netrove\" in line and \" r-xp \" in line:\n"
                                  "        print(line.split()[-1])'",
                              place(""), {{"PYTHONPATH", place("root/usr/lib/python3/dist-packages")}});
    EXPECT_EQ(got.Status, 0);
    const std::vector<std::string> lines = docstest::matches(got.Out, "([^\n]+)\n");
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.front(), "Été");
    const std::string library = fs::canonical(place("root")).string() + "/" + kLib;
    for (const std::string file :
         {"libnetrove.so", "libnetrove_client.so." NETROVE_VERSION, "netrove/libnetrove_icu.so"}) {
        EXPECT_THAT(lines, Contains(library + file));
    }
}
