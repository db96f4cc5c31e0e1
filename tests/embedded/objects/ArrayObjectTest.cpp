// Object and enumeration arrays with the class system behind them.
#include "embedded/arrays/CallFrame.h"
#include "embedded/scope/Scope.h"
#include "host/ArrayApi.h"
#include "host/ClassSystem.h"
#include "tests/embedded/arrays/ArrayFixture.h"
#include "vantik/Host.h"
#include "vantik/HostClass.h"
#include "vantik/Object.h"

#include <string>

namespace {

using namespace matrix::detail::noninlined::vx_array_api;
using vantik::detail::ArrayOwner;
using vantik::detail::ScopeEntry;

class ObjectArrays : public ArrayFixture {
protected:
    static void define(vantik::Host& host) {
        vantik::HostClass("example.Base").defineIn(host);
        vantik::HostClass("example.Derived").derivesFrom("example.Base").defineIn(host);
    }
};

TEST_F(ObjectArrays, ObjectIsOfItsClassAndItsBases) {
    vantik::Host host;
    define(host);
    const vantik::Object object = host.create("example.Derived");
    // The object knows its scope, so nobody has to be in it.
    EXPECT_EQ(vantik::detail::Scope::currentOrNull(), nullptr);
    EXPECT_TRUE(object.array().isA("example.Derived"));
    EXPECT_TRUE(object.array().isA("example.Base"));
    EXPECT_FALSE(object.array().isA("example.Other"));
    EXPECT_FALSE(object.array().isA("example"));
    const vantik::Object base = host.create("example.Base");
    EXPECT_FALSE(base.array().isA("example.Derived"));
}

TEST_F(ObjectArrays, ArrayWithoutObjectsIsJudgedByTheCallersScope) {
    vantik::Host host;
    define(host);
    const ArrayOwner none(vantik::detail::makeObjectArray("example.Derived", {}));
    EXPECT_TRUE(vxIsA(none.get(), "example.Derived"));
    EXPECT_FALSE(vxIsA(none.get(), "example.Base"));
    const ScopeEntry entry(host.scope());
    EXPECT_TRUE(vxIsA(none.get(), "example.Base"));
    EXPECT_FALSE(vxIsA(none.get(), "example.Other"));
}

TEST_F(ObjectArrays, ObjectLivesAsLongAsOneOfItsArrays) {
    auto state = std::make_shared<int>(0);
    const std::weak_ptr<int> alive = state;
    vantik::Host host;
    vantik::Array kept;
    {
        vantik::ContentProvider provider;
        provider.read = [state](std::uint64_t) { return vantik::Array::bytes(std::string_view()); };
        const vantik::Object object = vantik::makeProvider(host, std::move(provider));
        kept = vantik::Array::structure({{"Provider", object.array()}});
    }
    state.reset();
    EXPECT_FALSE(alive.expired());
    EXPECT_TRUE(kept.field("Provider").isA("vantik.net.http.io.ContentProvider"));
}

TEST_F(ObjectArrays, EnumerationMembersAreInternedNames) {
    vantik::Host host;
    const ScopeEntry entry(host.scope());
    const ArrayOwner schemes(
        vantik::detail::makeEnumerationArray("vantik.net.http.AuthenticationScheme", {"Basic", "NTLM", "Basic"}));
    ASSERT_NE(omGetEnumerationID(schemes.get(), 1), nullptr);
    EXPECT_EQ(*omGetEnumerationID(schemes.get(), 1), "NTLM");
    EXPECT_EQ(omGetEnumerationID(schemes.get(), 0), omGetEnumerationID(schemes.get(), 2));
    EXPECT_EQ(omGetEnumerationID(schemes.get(), 0), vcos::internal::makeInterned("Basic"));
    EXPECT_EQ(omGetEnumerationID(schemes.get(), 3), nullptr);
}

} // namespace
