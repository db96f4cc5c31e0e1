// What a class is defined with: members, types and base classes.
#include "embedded/classes/ClassDefinition.h"

#include "tests/embedded/classes/ClassFixture.h"

using foundation::core::except::bad_alloc;

namespace {

class Definitions : public ClassFixture {
protected:
    // What adding "test.Thing" with these members fails with; empty where it succeeds.
    std::string failureOfAdding(const ScriptedClass::Define& define) {
        return failureOf([&] { addClass("Thing", define); });
    }
};

} // namespace

TEST_F(Definitions, FailedAllocationsAreReported) {
    classes().ensurePackage("test");
    EXPECT_THROW(vcos::COSPackage::getNamespace(name("test"))->addClass(nullptr, 0, 2), bad_alloc);
    EXPECT_THROW(addClass("Thing", [](COSClass& definition) { definition.addMethod(nullptr); }), bad_alloc);
    EXPECT_THROW(addClass("Thing", [](COSClass& definition) { definition.addProperty(nullptr); }), bad_alloc);
}

TEST_F(Definitions, NamesThatAreNotIdentifiersAreRefused) {
    EXPECT_EQ(failureOf([&] { addClass("a.Thing"); }), "VANTIK:vcos:InvalidName(a.Thing)");
    EXPECT_EQ(failureOfAdding([](COSClass& definition) { ScriptedMethod::addTo(definition, "do it", {}, {}); }),
              "VANTIK:vcos:InvalidName(do it)");
    EXPECT_EQ(failureOfAdding([](COSClass& definition) { definition.validatePropertyType(name("1st"), name("any")); }),
              "VANTIK:vcos:InvalidName(1st)");
}

TEST_F(Definitions, TypeThatNobodyKnowsIsRefused) {
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

TEST_F(Definitions, MemberIsAddedOnce) {
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

TEST_F(Definitions, DeriveFromEachOfTheirBases) {
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

TEST_F(Definitions, BaseClassThatIsMissingOrTheClassItselfIsRefused) {
    EXPECT_EQ(failureOf([&] { addDerivedClass("Leaf", {"test.Rot"}); }), "VANTIK:vcos:UnknownClass(test.Rot, none)");
    addClass("Root");
    addDerivedClass("Leaf", {"test.Root"});
    EXPECT_EQ(failureOf([&] { addDerivedClass("Root", {"test.Leaf"}); }),
              "VANTIK:vcos:CircularBaseClass(test.Root, test.Leaf)");
    EXPECT_EQ(failureOf([&] { addDerivedClass("Self", {"test.Self"}); }),
              "VANTIK:vcos:CircularBaseClass(test.Self, test.Self)");
}
