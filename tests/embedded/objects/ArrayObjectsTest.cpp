// Arrays of objects and of enumeration members, together with the class system.
#include "embedded/arrays/CallFrame.h"
#include "embedded/scope/Scope.h"
#include "host/ClassSystem.h"
#include "tests/embedded/arrays/ArrayFixture.h"
#include "vantik/Host.h"
#include "vantik/HostClass.h"
#include "vantik/Object.h"

using namespace matrix::detail::noninlined::vx_array_api;
using namespace vantik::detail;
using vcos::internal::makeInterned;

namespace {

constexpr const char* kSchemes = "vantik.net.http.AuthenticationScheme";

class ObjectArrays : public ArrayFixture {
protected:
    static void define(vantik::Host& host) {
        vantik::HostClass("example.Base").defineIn(host);
        vantik::HostClass("example.Derived").derivesFrom("example.Base").defineIn(host);
    }
};

// An object that counts what refers to it.
class CountedObject final : public vcos::COSInterface {
public:
    int References = 0;
    void* getInstanceData(vcos::InternedName) override { return nullptr; }

private:
    void addReference() noexcept override { ++References; }
    void release() noexcept override { --References; }
};

} // namespace

TEST_F(ObjectArrays, ObjectIsOfItsClassAndItsBases) {
    vantik::Host host;
    define(host);
    const vantik::Object object = host.create("example.Derived");
    // The object knows its scope, so nobody has to be in it.
    EXPECT_EQ(Scope::currentOrNull(), nullptr);
    EXPECT_TRUE(object.array().isA("example.Derived"));
    EXPECT_TRUE(object.array().isA("example.Base"));
    EXPECT_FALSE(object.array().isA("example.Other"));
    EXPECT_FALSE(object.array().isA("example"));
    EXPECT_FALSE(host.create("example.Base").array().isA("example.Derived"));
}

TEST_F(ObjectArrays, ArrayWithoutObjectsIsJudgedByTheCallersScope) {
    vantik::Host host;
    define(host);
    const ArrayOwner none(makeObjectArray("example.Derived", {}));
    EXPECT_EQ(shapeOf(none), "0-by-0 example.Derived");
    EXPECT_TRUE(objectElements(none.get()).empty());
    EXPECT_TRUE(objectElements(nullptr).empty());
    EXPECT_TRUE(vxIsA(none.get(), "example.Derived"));
    EXPECT_FALSE(vxIsA(none.get(), "example.Base"));
    const ScopeEntry entry(host.scope());
    EXPECT_TRUE(vxIsA(none.get(), "example.Base"));
    EXPECT_FALSE(vxIsA(none.get(), "example.Other"));
}

TEST_F(ObjectArrays, CopiesNameTheSameObject) {
    CountedObject object;
    {
        std::vector<vcos::COSInterfacePtr> references;
        references.emplace_back(&object);
        const ArrayOwner array(makeObjectArray("example.Thing", std::move(references)));
        const ArrayOwner copy(vxCreateSharedDataCopy(array.get()));
        EXPECT_EQ(object.References, 1) << "the contents are shared";
        ASSERT_EQ(objectElements(copy.get()).size(), 1u);
        EXPECT_EQ(objectElements(copy.get())[0].get(), &object);
        EXPECT_EQ(vxGetData(copy.get()), nullptr);
    }
    EXPECT_EQ(object.References, 0);
}

TEST_F(ObjectArrays, EnumerationKnowsClassAndMembers) {
    vantik::Host host;
    const ScopeEntry entry(host.scope());
    const ArrayOwner schemes(makeEnumerationArray(kSchemes, {"Basic", "NTLM", "Basic"}));
    EXPECT_EQ(shapeOf(schemes), "1-by-3 " + std::string(kSchemes));
    EXPECT_EQ(omGetNumberOfElementsInUnderlyingArray(schemes.get()), 3u);
    EXPECT_TRUE(vxIsA(schemes.get(), kSchemes));
    EXPECT_EQ(elements<void>(schemes), nullptr);
    const char* const members[] = {"Basic", "NTLM", "Basic", ""};
    for (std::size_t index = 0; index < std::size(members); ++index) {
        EXPECT_EQ(omGetEnumerationID(schemes.get(), index), makeInterned(members[index]));
    }
    const ArrayOwner none(makeEnumerationArray(kSchemes, {}));
    EXPECT_EQ(shapeOf(none), "0-by-0 " + std::string(kSchemes));
    EXPECT_TRUE(vxIsEmpty(none.get()));
}
