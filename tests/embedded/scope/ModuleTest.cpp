// Loading modules and calling their builtins.
#include "embedded/scope/ModuleTable.h"
#include "tests/embedded/program/ProgramFixture.h"
#include "tests/support/process/BuiltFile.h"

#include <cstdlib>
#include <filesystem>

using vantik::Array;

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

    static std::vector<int> counts(vantik::Host& host) {
        const std::string text = host.callBuiltin("vantikTestPlainBuiltin", {}).text();
        const std::size_t slash = text.find('/');
        return {std::stoi(text.substr(0, slash)), std::stoi(text.substr(slash + 1))};
    }
};

} // namespace

TEST_F(Modules, IsFoundByNameOrPath) {
    Home->load("vantik_test_module");
    const std::vector<int> before = counts(*Home);
    vantik::Host other;
    other.load(kModule.string());
    EXPECT_EQ(counts(other)[0], before[0] + 1);
}

TEST_F(Modules, IsFoundBesideTheHost) {
    unsetenv("VANTIK_MODULE_PATH");
    // The tests are their own host: the folder of this program.
    const std::filesystem::path here = std::filesystem::canonical("/proc/self/exe").parent_path();
    const std::filesystem::path link = here / "libvantik_test_module.so";
    std::error_code ignored;
    std::filesystem::create_symlink(kModule, link, ignored); // another process of these tests may have made it
    Home->load("vantik_test_module");
    EXPECT_GT(counts(*Home)[0], 0);
}

TEST_F(Modules, IsInitializedWithEachLoadAndTerminatedOnceWithItsScope) {
    vantik::Host watching;
    watching.load("vantik_test_module");
    const std::vector<int> start = counts(watching);
    Home->load("vantik_test_module");
    Home->load("vantik_test_module");
    EXPECT_EQ(counts(watching), (std::vector<int>{start[0] + 2, start[1]}));
    Home.reset();
    EXPECT_EQ(counts(watching), (std::vector<int>{start[0] + 2, start[1] + 1}));
}

TEST_F(Modules, ThatCannotBeLoadedSaysWhy) {
    const auto failure = [&](const char* module) { return failureOf([&] { Home->load(module); }); };
    EXPECT_TRUE(failure("no_such_module").starts_with("VANTIK:host:ModuleNotLoaded(no_such_module, "));
    EXPECT_NE(failure("no_such_module").find("libno_such_module.so"), std::string::npos);
    EXPECT_TRUE(failure("/nowhere/libx.so").starts_with("VANTIK:host:ModuleNotLoaded(/nowhere/libx.so, "));
    EXPECT_TRUE(failure("").starts_with("VANTIK:host:ModuleNotLoaded(, "));
    EXPECT_TRUE(failure("/").starts_with("VANTIK:host:ModuleNotLoaded(/, "));
    // A shared object without the entry point.
    const std::string stranger = failure("/lib/x86_64-linux-gnu/libm.so.6");
    EXPECT_NE(stranger.find("VKInitialize_m"), std::string::npos) << stranger;
}

TEST_F(Modules, FailedInitializationPassesAndLeavesNothing) {
    setenv("VANTIK_TEST_MODULE_FAILS", "1", 1);
    EXPECT_EQ(failureOf([&] { Home->load("vantik_test_module"); }),
              "VANTIK:host:Failure(the module does not like this)");
    EXPECT_EQ(failureOf([&] { counts(*Home); }), "VANTIK:host:UnknownBuiltin(vantikTestPlainBuiltin)");
    unsetenv("VANTIK_TEST_MODULE_FAILS");
    Home->load("vantik_test_module");
    EXPECT_GT(counts(*Home)[0], 0);
}

TEST_F(Modules, BuiltinIsCalledWithOneResultWanted) {
    Home->load("vantik_test_module");
    const Array inputs[] = {"one", "two"};
    EXPECT_EQ(Home->callBuiltin("test_base::echoBuiltin", inputs).text(), "1 one two");
    EXPECT_EQ(Home->callBuiltin("_ZN9test_base11echoBuiltinEiPP11vxArray_tagiS2_", inputs).text(), "1 one two");
    EXPECT_EQ(Home->callBuiltin("test_base::inner::silentBuiltin", {}).className(), "");
    EXPECT_EQ(failureOf([&] {
                  const Array number[] = {1.0};
                  Home->callBuiltin("test_base::echoBuiltin", number);
              }),
              "VANTIK:vx:ExpectedText(double)");
}

TEST_F(Modules, BuiltinOfALibraryBehindTheModuleIsNone) {
    EXPECT_EQ(failureOf([&] { Home->callBuiltin("test_base::echoBuiltin", {}); }),
              "VANTIK:host:UnknownBuiltin(test_base::echoBuiltin)")
        << "not loaded in this scope";
    Home->load("vantik_test_module");
    for (const char* other : {"test_base::missing", "", "::", "malloc", "a::b::c::d::e"}) {
        EXPECT_EQ(failureOf([&] { Home->callBuiltin(other, {}); }),
                  std::string("VANTIK:host:UnknownBuiltin(") + other + ")");
    }
}

TEST(ModuleNames, GiveFileAndEntryPoint) {
    using vantik::detail::moduleFile;
    EXPECT_EQ(moduleFile("netrove").File, "libnetrove.so");
    EXPECT_EQ(moduleFile("netrove").Name, "netrove");
    EXPECT_EQ(moduleFile("/opt/lib/libnetrove.so.1.2").Name, "netrove");
    EXPECT_EQ(moduleFile("/opt/lib/libnetrove.so.1.2").File, "/opt/lib/libnetrove.so.1.2");
    EXPECT_EQ(moduleFile("./other.so").Name, "other");
}

TEST(ModuleNames, BuiltinSymbolIsTheCompilersOwn) {
    using vantik::detail::builtinSymbol;
    EXPECT_EQ(builtinSymbol("ws_base::getProxyInfoBuiltin"), "_ZN7ws_base19getProxyInfoBuiltinEiPP11vxArray_tagiS2_");
    EXPECT_EQ(builtinSymbol("run"), "_Z3runiPP11vxArray_tagiS1_");
    EXPECT_EQ(builtinSymbol("a::b::run"), "_ZN1a1b3runEiPP11vxArray_tagiS3_");
}
