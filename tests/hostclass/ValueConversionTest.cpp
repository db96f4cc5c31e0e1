#include "hostclass/ValueConversion.h"

#include "host/Messages.h"
#include "hostcalls/HostObjectCall.h"
#include "tests/hostclass/ClassFixture.h"
#include "tests/support/host/ScriptedObjects.h"

#include <algorithm>
#include <string>
#include <vector>

namespace vx = matrix::detail::noninlined::vx_array_api;
using vantik::Array;

// Arrays of bytes and of doubles, and field texts: PropertyTableTest and MethodTableTest.
class ValueConversion : public ScopeFixture {};

TEST_F(ValueConversion, CountWithoutLinesMakesElementsWithoutValues) {
    const std::vector<std::string> none;
    const HostArray fields = makeFieldStruct(2, none.begin(), none.end());
    EXPECT_EQ(arrayElementCount(fields.get()), 2u);
    EXPECT_EQ(vx::vxGetField(fields.get(), 0, "Name"), nullptr);
}

TEST_F(ValueConversion, StoredLinesBecomeNamesAndValues) {
    using namespace std::string_literals;
    struct Row {
        std::string Line, Name, Value;
    };
    const std::vector<Row> rows = {
        {"Server: one", "Server", "one"},
        {"no colon at all", "no colon at all", ""},
        {"Blank:    after  ", "Blank", "after  "},
        {"Tab:\tkept", "Tab", "\tkept"},
        {"End:", "End", ""},
        {"Url: http://h:1/", "Url", "http://h:1/"},
        {": nameless", "", "nameless"},
        {"", "", ""},
        {"Na\0me: va\0lue"s, "Na", "va"}, // no host text goes beyond a NUL
        {"Server: caf\xE9", "Server", "caf\uFFFD"},
    };
    std::vector<std::string> lines;
    std::ranges::transform(rows, std::back_inserter(lines), &Row::Line);
    const Array fields = Array::adopt(makeFieldStruct(lines.size(), lines.begin(), lines.end()).release());
    ASSERT_EQ(fields.dimensions(), (std::vector<std::size_t>{1, rows.size()}));
    for (std::size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(fields.field("Name", i).text(), rows[i].Name) << rows[i].Line;
        EXPECT_EQ(fields.field("Value", i).text(), rows[i].Value) << rows[i].Line;
    }
}

TEST_F(ValueConversion, ArrayWithoutPlainElementsHasNone) {
    const HostArray nothing(vx::vxCreateEmptyUnknownArrayNotOnArrayList());
    EXPECT_TRUE(bytesOf(nothing.get()).empty());
    EXPECT_TRUE(doublesOf(nothing.get()).empty());
}

TEST_F(ValueConversion, NullEmptyAndMatchingArraysPassTheClassCheck) {
    EXPECT_NO_THROW(checkArrayClass(nullptr, kProviderClassName));
    const Array empty = Array::doubles({});
    EXPECT_NO_THROW(checkArrayClass(empty.handle(), kProviderClassName));
    const vantik::Object provider = testsupport::makeScriptedProvider(host()).object();
    EXPECT_NO_THROW(checkArrayClass(provider.array().handle(), kProviderClassName)); // a derived class
    const Array number(1.0);
    EXPECT_NO_THROW(checkArrayClass(number.handle(), "double"));
}

TEST_F(ValueConversion, FieldThatIsMissingOrHasNoValueIsRefusedByTheHost) {
    static constexpr const char* names[] = {"Name"};
    const HostArray fields(vx::vxCreateStructMatrix(1, 1, 1, names));
    EXPECT_THROW(fieldString(fields.get(), 0, "Name"), foundation::core::except::IUserException);
    EXPECT_THROW(fieldUString(fields.get(), 0, "Value"), foundation::core::except::IUserException);
    EXPECT_THROW(fieldString(fields.get(), 7, "Name"), foundation::core::except::IUserException);
}
