// Packages and classes: how they are added, found, replaced and refused.
#include "embedded/classes/ClassRegistry.h"

#include "tests/embedded/classes/ClassFixture.h"

#include <algorithm>
#include <bit>

using namespace vantik::detail;
using vcos::COSClass;
using vcos::COSPackage;

namespace {

class PackageScript final : public vcos::COSNamespaceInfo {
public:
    PackageScript(std::string shortName, Log* log) : Name(std::move(shortName)), Events(log) {}
    std::string getName() const override { return Name; }
    void initializePackage(COSPackage& package) override {
        Events->push_back("begin " + package.getFullName());
        if (Fails) {
            throw std::runtime_error("no package");
        }
    }
    void unloadDynamicContent() override { Events->push_back("end " + Name); }

    bool Fails = false;

private:
    std::string Name;
    Log* Events;
};

class Packages : public ClassFixture {
protected:
    PackageScript* script(const char* shortName) { return new PackageScript(shortName, &Events); }
};

class Classes : public ClassFixture {
protected:
    // What adding a class with these members fails with; empty where it succeeds.
    std::string failureOfAdding(const ScriptedClass::Define& define) {
        return failureOf([&] { addClass("Thing", define); });
    }
};

} // namespace

TEST_F(Packages, AreFoundByTheirDottedNamesAndEndWithTheirScopeInnerOnesFirst) {
    EXPECT_EQ(COSPackage::getNamespace(name("outer")), nullptr);
    COSPackage::addNamespace(script("outer"));
    COSPackage* outer = COSPackage::getNamespace(name("outer"));
    ASSERT_NE(outer, nullptr);
    EXPECT_EQ(outer->getFullName(), "outer");
    outer->addInnerNamespace(script("inner"));
    COSPackage* inner = COSPackage::getNamespace(name("outer.inner"));
    ASSERT_NE(inner, nullptr);
    EXPECT_EQ(inner->getFullName(), "outer.inner");
    EXPECT_EQ(COSPackage::getNamespace(name("inner")), nullptr);
    EXPECT_EQ(COSPackage::getNamespace(nullptr), nullptr);
    Entry.reset();
    Home.reset();
    EXPECT_EQ(Events, (Log{"begin outer", "begin outer.inner", "end inner", "end outer"}));
}

TEST_F(Packages, NameThatIsTakenOrNotAnIdentifierIsRefused) {
    COSPackage::addNamespace(script("outer"));
    EXPECT_EQ(failureOf([&] { COSPackage::addNamespace(script("outer")); }), "VANTIK:vcos:PackageExists(outer)");
    EXPECT_EQ(failureOf([&] { COSPackage::getNamespace(name("vantik"))->addInnerNamespace(script("net")); }),
              "VANTIK:vcos:PackageExists(vantik.net)");
    for (const char* bad : {"", "a.b", "1a", "a b", "_a", "\xC3\xA4"}) {
        EXPECT_EQ(failureOf([&] { COSPackage::addNamespace(script(bad)); }),
                  std::string("VANTIK:vcos:InvalidName(") + bad + ")");
    }
}

TEST_F(Packages, FailedAllocationOrInitializationLeavesNoPackage) {
    EXPECT_THROW(COSPackage::addNamespace(nullptr), foundation::core::except::bad_alloc);
    PackageScript* failing = script("outer");
    failing->Fails = true;
    EXPECT_THROW(COSPackage::addNamespace(failing), std::runtime_error);
    EXPECT_EQ(COSPackage::getNamespace(name("outer")), nullptr);
}

TEST_F(Classes, AreFoundByTheirFullName) {
    std::string definedAs;
    addClass("Thing", [&](COSClass& definition) {
        definedAs = *definition.getFullName();
        EXPECT_EQ(COSClass::getClass(name("test.Thing")), &definition) << "its members may name it as a type";
    });
    EXPECT_EQ(definedAs, "test.Thing");
    COSClass* found = COSClass::getClass(name("test.Thing"));
    ASSERT_NE(found, nullptr);
    found->load(true);
    EXPECT_EQ(found->getFullName(), name("test.Thing"));
    EXPECT_EQ(COSClass::getClass(name("test.Other")), nullptr);
    EXPECT_EQ(COSClass::getClass(nullptr), nullptr);
}

TEST_F(Classes, FailedDefinitionLeavesEverythingAsItWasAndPasses) {
    const auto half = [](COSClass&) { throw std::out_of_range("half way"); };
    EXPECT_THROW(addClass("Thing", half), std::out_of_range);
    EXPECT_EQ(COSClass::getClass(name("test.Thing")), nullptr);
    EXPECT_EQ(Events, (Log{"forget Thing"}));
    addClass("Thing");
    COSClass* first = COSClass::getClass(name("test.Thing"));
    EXPECT_NE(first, nullptr) << "a later attempt is free to succeed";
    EXPECT_THROW(addClass("Thing", half), std::out_of_range);
    EXPECT_EQ(COSClass::getClass(name("test.Thing")), first);
}

TEST_F(Classes, SecondDescriptionReplacesTheFirstForNewObjects) {
    const auto answering = [](double answer) {
        return [answer](COSClass& definition) {
            ScriptedMethod::addTo(definition, "answer",
                                  ScriptedMethod::Signature{{"test.Thing scalar"}, {"double scalar"}},
                                  [answer](auto call) { call.Results[0].Bits = std::bit_cast<std::uint64_t>(answer); });
        };
    };
    const auto ask = [&](const ArrayOwner& object) {
        vxArray_tag* self = object.get();
        const auto& method = requireMethod(objectIn(object), "answer", *COSGetPublicClient());
        return elementAsDouble(runMethod(objectIn(object), method, 1, {&self, 1}).front().get(), 0);
    };
    addClass("Thing", answering(1));
    ArrayOwner before = make("test.Thing");
    addClass("Thing", answering(2));
    const ArrayOwner after = make("test.Thing");
    EXPECT_EQ(ask(before), 1);
    EXPECT_EQ(ask(after), 2);
    EXPECT_EQ(std::ranges::count(classes().classNames(), "test.Thing"), 1);
    Events.clear();
    before.reset();
    EXPECT_EQ(Events, (Log{"destroy Thing", "forget Thing"})) << "the old description goes with its last object";
}

TEST_F(Classes, FailedAllocationsAreReported) {
    classes().ensurePackage("test");
    EXPECT_THROW(COSPackage::getNamespace(name("test"))->addClass(nullptr, 0, 2), foundation::core::except::bad_alloc);
    EXPECT_THROW(addClass("Thing", [](COSClass& definition) { definition.addMethod(nullptr); }),
                 foundation::core::except::bad_alloc);
    EXPECT_THROW(addClass("Thing", [](COSClass& definition) { definition.addProperty(nullptr); }),
                 foundation::core::except::bad_alloc);
}

TEST_F(Classes, NamesThatAreNotIdentifiersAreRefused) {
    EXPECT_EQ(failureOf([&] { addClass("a.Thing"); }), "VANTIK:vcos:InvalidName(a.Thing)");
    EXPECT_EQ(failureOfAdding([](COSClass& definition) { ScriptedMethod::addTo(definition, "do it", {}, {}); }),
              "VANTIK:vcos:InvalidName(do it)");
    EXPECT_EQ(failureOfAdding([](COSClass& definition) { definition.validatePropertyType(name("1st"), name("any")); }),
              "VANTIK:vcos:InvalidName(1st)");
}

TEST_F(Classes, ClassOfCopiedObjectsIsRefused) {
    auto* description = new ScriptedClass("Thing", &Events);
    description->Handle = false;
    EXPECT_EQ(failureOf([&] { addClass(description); }), "VANTIK:vcos:NotAHandleClass(test.Thing)");
}

TEST_F(Classes, TypeThatNobodyKnowsIsRefused) {
    const auto validate = [&](const char* typeWord) {
        return failureOfAdding(
            [&](COSClass& definition) { definition.validatePropertyType(name("Size"), name(typeWord)); });
    };
    for (const char* known : {"any", "unicodeString", "uint8 vector", "double scalar", "struct scalar",
                              "test.Thing scalar", "vantik.net.http.io.ContentProvider vector", "logical"}) {
        EXPECT_EQ(validate(known), "");
    }
    for (const char* unknown : {"", "uint8 matrix", "uint8  vector", "test.Missing scalar", "float"}) {
        EXPECT_EQ(validate(unknown), std::string("VANTIK:vcos:UnknownType(test.Thing, Size, ") + unknown + ")");
    }
    // A method's classes are looked for with each call: only the form of the word counts.
    EXPECT_EQ(
        failureOfAdding([](COSClass& definition) {
            ScriptedMethod::addTo(definition, "run", ScriptedMethod::Signature{{"test.Thing scalar", "a.B!"}, {}}, {});
        }),
        "VANTIK:vcos:UnknownType(test.Thing, run, a.B!)");
}

TEST_F(Classes, MemberIsAddedOnce) {
    EXPECT_EQ(failureOfAdding([](COSClass& definition) {
                  ScriptedMethod::addTo(definition, "run", {}, {});
                  ScriptedMethod::addTo(definition, "run", {}, {});
              }),
              "VANTIK:vcos:MemberExists(test.Thing, run)");
    EXPECT_EQ(failureOfAdding([](COSClass& definition) {
                  ScriptedProperty::addTo(definition, "Size", "any", {});
                  ScriptedProperty::addTo(definition, "Size", "any", {});
              }),
              "VANTIK:vcos:MemberExists(test.Thing, Size)");
}

TEST_F(Classes, UnknownOneIsRefusedWithAHint) {
    addClass("Connection");
    for (const auto& [given, hint] : {std::pair{"test.Conection", "test.Connection"},
                                      {"test.connection", "test.Connection"},
                                      {"elsewhere", "none"}}) {
        EXPECT_EQ(failureOf([&, unknown = given] { classes().require(unknown); }),
                  std::string("VANTIK:vcos:UnknownClass(") + given + ", " + hint + ")");
    }
}

TEST_F(Classes, HiddenOneHasNoNameInTheList) {
    auto* description = new ScriptedClass("Thing", &Events);
    description->Hidden = true;
    addClass(description);
    EXPECT_EQ(std::ranges::count(classes().classNames(), "test.Thing"), 0);
    EXPECT_NE(classes().find("test.Thing"), nullptr);
}

TEST_F(Classes, DeriveFromEachOfTheirBases) {
    addClass("Root");
    addDerivedClass("Left", {"test.Root"});
    addDerivedClass("Right", {"test.Root"});
    addDerivedClass("Leaf", {"test.Left", "test.Right"});
    for (const char* base : {"test.Leaf", "test.Left", "test.Right", "test.Root"}) {
        EXPECT_TRUE(classes().derivesFrom("test.Leaf", base)) << base;
    }
    EXPECT_FALSE(classes().derivesFrom("test.Root", "test.Leaf"));
    EXPECT_FALSE(classes().derivesFrom("test.Left", "test.Right"));
    EXPECT_TRUE(classes().derivesFrom("unknown.Thing", "unknown.Thing"));
    EXPECT_FALSE(classes().derivesFrom("unknown.Thing", "test.Root"));
    EXPECT_EQ(classes().require("test.Leaf")->baseClasses(), (Log{"test.Left", "test.Right"}));
}

TEST_F(Classes, BaseClassThatIsMissingOrTheClassItselfIsRefused) {
    EXPECT_EQ(failureOf([&] { addDerivedClass("Leaf", {"test.Rot"}); }), "VANTIK:vcos:UnknownClass(test.Rot, none)");
    addClass("Root");
    addDerivedClass("Leaf", {"test.Root"});
    EXPECT_EQ(failureOf([&] { addDerivedClass("Root", {"test.Leaf"}); }),
              "VANTIK:vcos:CircularBaseClass(test.Root, test.Leaf)");
    EXPECT_EQ(failureOf([&] { addDerivedClass("Self", {"test.Self"}); }),
              "VANTIK:vcos:CircularBaseClass(test.Self, test.Self)");
}

TEST_F(Classes, ServiceModelIsTheScopes) {
    EXPECT_TRUE(omGetVcosUsingUSM());
    Home->RegistersPerScope = false;
    EXPECT_FALSE(omGetVcosUsingUSM());
}
