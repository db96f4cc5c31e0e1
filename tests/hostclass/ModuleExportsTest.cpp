// What the module lets others see, read from its dynamic symbol table.
#include "tests/support/process/BuiltFile.h"
#include "tests/support/process/ElfFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

TEST(ModuleExports, AreTheThreeEntryPointsAndNothingElse) {
    std::vector<std::string> names =
        testsupport::ElfFile(testsupport::builtFile("lib/libnetrove.so")).exportedSymbols();
    std::ranges::transform(names, names.begin(), testsupport::demangled);
    EXPECT_THAT(names,
                testing::UnorderedElementsAre("VKInitialize_netrove", "VKTerminate_netrove",
                                              "ws_base::getProxyInfoBuiltin(int, vxArray_tag**, int, vxArray_tag**)"));
}
