#include "embedded/classes/InternTable.h"

#include "tests/embedded/classes/ClassFixture.h"

using vantik::detail::Scope;
using vantik::detail::ScopeEntry;

namespace {

class Names : public ClassFixture {};

} // namespace

TEST_F(Names, EqualTextsShareOneAddress) {
    const vcos::InternedName first = name("startInternal");
    EXPECT_NE(first, name("closeInternal"));
    for (int number = 0; number < 10000; ++number) {
        name("name" + std::to_string(number));
    }
    EXPECT_EQ(name(std::string("start") + "Internal"), first);
    EXPECT_EQ(*first, "startInternal");
    EXPECT_EQ(name(""), nullptr);
    EXPECT_EQ(Home->Names.intern(std::string_view()), nullptr);
}

TEST_F(Names, TwoScopesHaveTheirOwn) {
    const vcos::InternedName here = name("shared");
    const ScopeEntry other(std::make_shared<Scope>());
    EXPECT_NE(name("shared"), here);
}
