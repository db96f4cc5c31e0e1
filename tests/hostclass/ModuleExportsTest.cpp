// What the module lets others see, read from its dynamic symbol table.
#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/process/ElfFile.h"

TEST(ModuleExports, AreTheThreeEntryPointsAndNothingElse) {
    std::vector<std::string> names = testsupport::ElfFile(NETROVE_MODULE_FILE).exportedSymbols();
    std::ranges::transform(names, names.begin(), testsupport::demangled);
    EXPECT_THAT(names,
                testing::UnorderedElementsAre("VKInitialize_netrove", "VKTerminate_netrove",
                                              "ws_base::getProxyInfoBuiltin(int, vxArray_tag**, int, vxArray_tag**)"));
}
