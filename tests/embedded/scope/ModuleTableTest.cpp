// Loading modules and calling their builtins.
#include "embedded/scope/ModuleTable.h"

#include "tests/embedded/program/ProgramFixture.h"
#include "tests/support/process/BuiltFile.h"
#include "tests/support/process/TemporaryFolder.h"

#include <cstdlib>
#include <filesystem>

using testing::HasSubstr;
using testing::StartsWith;

namespace {

const std::filesystem::path kModule = testsupport::builtFile("lib/libvantik_test_module.so");

class Modules : public ProgramFixture {
protected:
    void SetUp() override { setenv("VANTIK_MODULE_PATH", kModule.parent_path().c_str(), 1); }
    void TearDown() override {
        unsetenv("VANTIK_MODULE_PATH");
        unsetenv("VANTIK_TEST_MODULE_FAILS");
        ProgramFixture::TearDown();
    }

    // How often the module was initialized and terminated in this process.
    static std::pair<int, int> counts(Host& host) {
        const std::string text = host.callBuiltin("vantikTestPlainBuiltin", {}).text();
        return {std::stoi(text), std::stoi(text.substr(text.find('/') + 1))};
    }
};

} // namespace

TEST_F(Modules, AreFoundByNameOrPathOrBesideTheHost) {
    Home->load("vantik_test_module");
    const int before = counts(*Home).first;
    Host byPath;
    byPath.load(kModule.string());
    EXPECT_EQ(counts(byPath).first, before + 1);
    unsetenv("VANTIK_MODULE_PATH");
    // The tests are their own host: the folder of this program.
    const std::filesystem::path here = std::filesystem::canonical("/proc/self/exe").parent_path();
    std::error_code ignored; // another process of these tests may have made it
    std::filesystem::create_symlink(kModule, here / "libvantik_test_module.so", ignored);
    Host beside;
    beside.load("vantik_test_module");
    EXPECT_GT(counts(beside).first, 0);
}

TEST_F(Modules, OfTwoWithTheSameBuiltinTheNewerCounts) {
    const testsupport::TemporaryFolder folder;
    const std::string copy = folder.file("libvantik_test_module.so");
    std::filesystem::copy_file(kModule, copy); // another module for the loader, with counts of its own
    Home->load("vantik_test_module");
    Home->load(kModule.string());
    EXPECT_GT(counts(*Home).first, 1);
    Home->load(copy);
    EXPECT_EQ(counts(*Home), (std::pair{1, 0}));
}

TEST_F(Modules, AreInitializedWithEachLoadAndTerminatedOnceWithTheirScope) {
    Host watching;
    watching.load("vantik_test_module");
    const auto [initialized, terminated] = counts(watching);
    Home->load("vantik_test_module");
    Home->load("vantik_test_module");
    EXPECT_EQ(counts(watching), (std::pair{initialized + 2, terminated}));
    Home.reset();
    EXPECT_EQ(counts(watching), (std::pair{initialized + 2, terminated + 1}));
}

TEST_F(Modules, ThatCannotBeLoadedSayWhy) {
    for (const auto& [module, reason] :
         {std::pair{"no_such_module", "libno_such_module.so"}, {"/nowhere/libx.so", ""}, {"", ""}, {"/", ""}}) {
        const std::string failure = failureOf([&, name = module] { Home->load(name); });
        EXPECT_THAT(failure, StartsWith("VANTIK:host:ModuleNotLoaded(" + std::string(module) + ", "));
        EXPECT_THAT(failure, HasSubstr(reason));
    }
    // A shared object without the entry point.
    EXPECT_THAT(failureOf([&] { Home->load("/lib/x86_64-linux-gnu/libm.so.6"); }), HasSubstr("VKInitialize_m"));
}

TEST_F(Modules, FailedInitializationPassesAndLeavesNothing) {
    setenv("VANTIK_TEST_MODULE_FAILS", "1", 1);
    EXPECT_EQ(failureOf([&] { Home->load("vantik_test_module"); }),
              "VANTIK:host:Failure(the module does not like this)");
    EXPECT_EQ(failureOf([&] { counts(*Home); }), "VANTIK:host:UnknownBuiltin(vantikTestPlainBuiltin)");
    unsetenv("VANTIK_TEST_MODULE_FAILS");
    Home->load("vantik_test_module");
    EXPECT_GT(counts(*Home).first, 0);
}

TEST_F(Modules, BuiltinIsCalledWithOneResultWantedAndThatOfAnotherLibraryOrScopeIsUnknown) {
    Home->load("vantik_test_module");
    const Array inputs[] = {"one", "two"};
    EXPECT_EQ(Home->callBuiltin("test_base::echoBuiltin", inputs).text(), "1 one two");
    EXPECT_EQ(Home->callBuiltin("_ZN9test_base11echoBuiltinEiPP11vxArray_tagiS2_", inputs).text(), "1 one two");
    EXPECT_EQ(Home->callBuiltin("test_base::inner::silentBuiltin", {}).className(), "");
    const Array number[] = {1.0};
    EXPECT_EQ(failureOf([&] { Home->callBuiltin("test_base::echoBuiltin", number); }),
              "VANTIK:vx:ExpectedText(double)");
    Host other;
    EXPECT_EQ(failureOf([&] { other.callBuiltin("test_base::echoBuiltin", {}); }),
              "VANTIK:host:UnknownBuiltin(test_base::echoBuiltin)");
    for (const char* unknown : {"test_base::missing", "", "::", "malloc", "a::b::c::d::e"}) {
        EXPECT_EQ(failureOf([&] { Home->callBuiltin(unknown, {}); }),
                  std::string("VANTIK:host:UnknownBuiltin(") + unknown + ")");
    }
}

TEST(ModuleNames, BecomeFilesAndTheCompilersSymbols) {
    using vantik::detail::builtinSymbol;
    for (const auto& [given, name, file] : {std::tuple{"netrove", "netrove", "libnetrove.so"},
                                            {"/opt/lib/libnetrove.so.1.2", "netrove", "/opt/lib/libnetrove.so.1.2"},
                                            {"./other.so", "other", "./other.so"}}) {
        EXPECT_EQ(vantik::detail::moduleFile(given).Name, name);
        EXPECT_EQ(vantik::detail::moduleFile(given).File, file);
    }
    EXPECT_EQ(builtinSymbol("ws_base::getProxyInfoBuiltin"), "_ZN7ws_base19getProxyInfoBuiltinEiPP11vxArray_tagiS2_");
    EXPECT_EQ(builtinSymbol("run"), "_Z3runiPP11vxArray_tagiS1_");
    EXPECT_EQ(builtinSymbol("a::b::run"), "_ZN1a1b3runEiPP11vxArray_tagiS3_");
}
