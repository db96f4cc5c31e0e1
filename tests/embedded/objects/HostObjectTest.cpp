// Objects: how they are made, what they hold, when they go.
#include "embedded/objects/HostObject.h"

#include "tests/embedded/classes/ClassFixture.h"

using namespace vantik::detail;

namespace {

class Objects : public ClassFixture {
protected:
    // A constructor that notes its inputs and sets the instance's number from the first one.
    ScriptedClass::Define constructorOf(const char* shortName) {
        return [this, shortName](COSClass& definition) {
            const vcos::InternedName key = definition.getFullName();
            ScriptedMethod::addTo(
                definition, shortName, ScriptedMethod::Signature{{"int32 scalar"}, {*key}, 1}, [this, key](auto call) {
                    EXPECT_EQ(call.Wanted, 1);
                    Events.push_back("construct with " + std::to_string(call.Inputs.size()));
                    const auto object = omGetArrayElement(arrayIn(call.Results[0]), 0);
                    auto* instance = static_cast<ScriptedClass::Instance*>(object->getInstanceData(key));
                    instance->Number = call.Inputs.empty() ? -1 : static_cast<int>(call.Inputs[0].Bits);
                });
        };
    }
    static int numberIn(const ArrayOwner& object, const char* key) {
        return static_cast<ScriptedClass::Instance*>(objectIn(object).getInstanceData(name(key)))->Number;
    }
};

} // namespace

TEST_F(Objects, InstanceComesBeforeTheNearestConstructorWhichRunsAlone) {
    addClass("Root", constructorOf("Root"));
    const ArrayOwner seven(makeInt32(7));
    const ArrayOwner root = make("test.Root", {seven.get()});
    EXPECT_EQ(Events, (Log{"create Root", "construct with 1"}));
    EXPECT_EQ(numberIn(root, "test.Root"), 7);
    addDerivedClass("Middle", {"test.Root"});
    EXPECT_EQ(numberIn(make("test.Middle"), "test.Root"), -1) << "inherited, and its input is optional";
    addDerivedClass("Leaf", {"test.Middle"}, constructorOf("Leaf"));
    const ArrayOwner leaf = make("test.Leaf");
    EXPECT_EQ(numberIn(leaf, "test.Leaf"), -1);
    EXPECT_EQ(numberIn(leaf, "test.Root"), 0) << "not run";
}

TEST_F(Objects, ClassAndInputsAreCheckedBeforeAnythingIsMade) {
    addClass("Base")->Abstract = true;
    addClass("Closed")->Constructible = false;
    addClass("Plain"); // no constructor, no inputs
    addClass("Thing", constructorOf("Thing"));
    const ArrayOwner text(makeText(u"seven"));
    const auto refusal = [&](const char* className, std::size_t inputs) {
        return failureOf([&] { make(className, std::vector<vxArray_tag*>(inputs, text.get())); });
    };
    EXPECT_EQ(refusal("test.Thing", 1), "VANTIK:vcos:WrongInputType(test.Thing, Thing, 1, int32 scalar, 1-by-5 char)");
    EXPECT_EQ(refusal("test.Thing", 2), "VANTIK:vcos:TooManyInputs(test.Thing, Thing, 1, 2)");
    EXPECT_EQ(refusal("test.Plain", 1), "VANTIK:vcos:TooManyInputs(test.Plain, Plain, 0, 1)");
    EXPECT_EQ(refusal("test.Base", 0), "VANTIK:vcos:AbstractClass(test.Base)");
    EXPECT_EQ(refusal("test.Closed", 0), "VANTIK:vcos:NotConstructible(test.Closed)");
    EXPECT_EQ(refusal("test.Missing", 0), "VANTIK:vcos:UnknownClass(test.Missing, none)");
    EXPECT_EQ(Events, Log{});
}

TEST_F(Objects, EachClassOfTheLineageHasItsInstanceAndAFailureToDestroyOneIsDropped) {
    addClass("Root");
    addDerivedClass("Left", {"test.Root"});
    addDerivedClass("Right", {"test.Root"});
    addDerivedClass("Leaf", {"test.Left", "test.Right"})->DestroyScript = [] { throw std::runtime_error("dropped"); };
    {
        const ArrayOwner object = make("test.Leaf");
        EXPECT_EQ(Events, (Log{"create Root", "create Left", "create Right", "create Leaf"}));
        auto& host = objectIn(object);
        EXPECT_NE(host.getInstanceData(name("test.Root")), nullptr);
        EXPECT_NE(host.getInstanceData(name("test.Root")), host.getInstanceData(name("test.Leaf")));
        EXPECT_EQ(host.getInstanceData(name("test.Other")), nullptr);
        EXPECT_EQ(host.getInstanceData(nullptr), nullptr);
        Events.clear();
    }
    EXPECT_EQ(Events, (Log{"destroy Leaf", "destroy Right", "destroy Left", "destroy Root"}));
}

TEST_F(Objects, FailureWhileMadeUndoesWhatWasMade) {
    addClass("Root");
    addDerivedClass("Null", {"test.Root"})->MakesNoInstance = true;
    EXPECT_THROW(make("test.Null"), foundation::core::except::bad_alloc);
    EXPECT_EQ(std::exchange(Events, {}), (Log{"create Root", "create Null", "destroy Root"}));
    addDerivedClass("Leaf", {"test.Root"})->CreateScript = [] { throw std::out_of_range("no"); };
    EXPECT_THROW(make("test.Leaf"), std::out_of_range);
    EXPECT_EQ(std::exchange(Events, {}), (Log{"create Root", "create Leaf", "destroy Root"}));
    addClass("Thing", [](COSClass& definition) {
        ScriptedMethod::addTo(definition, "Thing", {}, [](auto) {
            makeDouble(1); // left over on purpose: the call's frame has it
            throw std::out_of_range("no");
        });
    });
    EXPECT_THROW(make("test.Thing"), std::out_of_range);
    EXPECT_EQ(Events, (Log{"create Thing", "destroy Thing"}));
}

TEST_F(Objects, ArrayElementsAreTheObjectsAndReferencesShareThem) {
    addClass("Thing");
    ArrayOwner one = make("test.Thing");
    const ArrayOwner two = make("test.Thing");
    ArrayOwner both(makeObjectArray("test.Thing", {omGetArrayElement(one.get(), 0), omGetArrayElement(two.get(), 0)}));
    EXPECT_EQ(omGetArrayElement(both.get(), 1).get(), omGetArrayElement(two.get(), 0).get());
    EXPECT_FALSE(omGetArrayElement(both.get(), 2));
    EXPECT_FALSE(omGetArrayElement(nullptr, 0));
    EXPECT_FALSE(scalarObject(both.get()));
    EXPECT_TRUE(scalarObject(one.get()));

    vcos::COSInterfacePtr first = omGetArrayElement(one.get(), 0);
    vcos::COSInterfacePtr second = first;
    vcos::COSInterfacePtr moved = std::move(first);
    one.reset();
    both.reset();
    EXPECT_FALSE(first);
    EXPECT_EQ(second.get(), moved.get());
    second = moved;
    moved = vcos::COSInterfacePtr();
    Events.clear();
    second = vcos::COSInterfacePtr();
    EXPECT_EQ(Events, (Log{"destroy Thing"}));
}

TEST_F(Objects, NativeInstanceOfAValueIsFoundByItsClass) {
    addClass("Root");
    addDerivedClass("Leaf", {"test.Root"});
    const ArrayOwner object = make("test.Leaf");
    const ArrayOwner number(makeDouble(1));
    EXPECT_EQ(vcos::vcosGetScalarObjectValue(name("test.Root"), slotOf(object.get())),
              objectIn(object).getInstanceData(name("test.Root")));
    const auto refusal = [](const char* key, COSValue value) {
        return failureOf([&] { vcos::vcosGetScalarObjectValue(name(key), value); });
    };
    EXPECT_EQ(refusal("test.Other", slotOf(object.get())), "VANTIK:vcos:NotAnObjectOf(test.Other)");
    EXPECT_EQ(refusal("test.Root", slotOf(number.get())), "VANTIK:vcos:NotAnObjectOf(test.Root)");
    EXPECT_EQ(refusal("test.Root", {}), "VANTIK:vcos:NotAnObjectOf(test.Root)");
}

TEST_F(Objects, KeepTheirScopeUntilTheyAreGoneAndAreDestroyedInIt) {
    ScriptedClass* description = addClass("Thing");
    Scope* seen = nullptr;
    description->DestroyScript = [&] { seen = &Scope::current(); };
    ArrayOwner object = make("test.Thing");
    const std::weak_ptr<Scope> watched = Home;
    Scope* const home = Home.get();
    Entry.reset();
    Home.reset();
    ASSERT_FALSE(watched.expired());
    EXPECT_EQ(objectIn(object).scope().get(), home);
    Events.clear();
    {
        const ScopeEntry other(std::make_shared<Scope>());
        object.reset();
        EXPECT_NE(&Scope::current(), home);
    }
    EXPECT_EQ(seen, home);
    EXPECT_TRUE(watched.expired());
    EXPECT_EQ(Events, (Log{"destroy Thing", "forget Thing"}));
}
