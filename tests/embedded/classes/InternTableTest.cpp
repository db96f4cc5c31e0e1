#include "embedded/classes/InternTable.h"

#include "tests/embedded/classes/ClassFixture.h"

using Names = ClassFixture;

TEST_F(Names, EqualTextsOfAScopeShareOneAddress) {
    const vcos::InternedName first = name("startInternal");
    EXPECT_NE(first, name("closeInternal"));
    for (int number = 0; number < 10000; ++number) {
        name("name" + std::to_string(number));
    }
    EXPECT_EQ(name(std::string("start") + "Internal"), first);
    EXPECT_EQ(*first, "startInternal");
    EXPECT_EQ(name(""), nullptr);
    EXPECT_EQ(Home->Names.intern(std::string_view()), nullptr);
    const vantik::detail::ScopeEntry other(std::make_shared<vantik::detail::Scope>());
    EXPECT_NE(name("startInternal"), first);
}
