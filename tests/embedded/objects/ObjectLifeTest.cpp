// Objects: how they are made, what they hold, when they go.
#include "embedded/objects/HostObject.h"
#include "tests/embedded/classes/ClassFixture.h"

using vantik::detail::ArrayOwner;
using vantik::detail::Scope;
using vantik::detail::ScopeEntry;

namespace {

class Objects : public ClassFixture {
protected:
    // A constructor that notes its inputs and sets the instance's number from the first one.
    static ScriptedClass::Define constructorOf(const char* shortName, Log* log, const char* typeWord = "int32 scalar") {
        return [=](vcos::COSClass& definition) {
            const vcos::InternedName key = definition.getFullName();
            ScriptedMethod::addTo(
                definition, shortName, ScriptedMethod::Signature{{typeWord}, {*key}, 1},
                [=](int& resultCount, vcos::COSValue* results, int inputCount, const vcos::COSValue* inputs) {
                    EXPECT_EQ(resultCount, 1);
                    log->push_back("construct with " + std::to_string(inputCount));
                    const vcos::COSInterfacePtr object = omGetArrayElement(vantik::detail::arrayIn(results[0]), 0);
                    auto* instance = static_cast<ScriptedClass::Instance*>(object->getInstanceData(key));
                    instance->Number = inputCount == 0 ? -1 : static_cast<int>(inputs[0].Bits);
                });
        };
    }
    static int numberIn(const ArrayOwner& object, const char* key) {
        return static_cast<ScriptedClass::Instance*>(objectIn(object).getInstanceData(name(key)))->Number;
    }
};

} // namespace

TEST_F(Objects, InstanceComesBeforeTheConstructor) {
    addClass("Thing", constructorOf("Thing", &Events));
    const ArrayOwner seven(vantik::detail::makeInt32(7));
    const ArrayOwner object = make("test.Thing", {seven.get()});
    EXPECT_EQ(Events, (Log{"create Thing", "construct with 1"}));
    EXPECT_EQ(numberIn(object, "test.Thing"), 7);
}

TEST_F(Objects, OptionalInputMayBeMissing) {
    addClass("Thing", constructorOf("Thing", &Events));
    EXPECT_EQ(numberIn(make("test.Thing"), "test.Thing"), -1);
}

TEST_F(Objects, InputsAreCheckedBeforeAnythingIsMade) {
    addClass("Thing", constructorOf("Thing", &Events));
    const ArrayOwner text(vantik::detail::makeText(u"seven"));
    EXPECT_EQ(failureOf([&] { make("test.Thing", {text.get()}); }),
              "VANTIK:vcos:WrongInputType(test.Thing, Thing, 1, int32 scalar, 1-by-5 char)");
    EXPECT_EQ(failureOf([&] {
                  make("test.Thing", {text.get(), text.get()});
              }),
              "VANTIK:vcos:TooManyInputs(test.Thing, Thing, 1, 2)");
    EXPECT_EQ(Events, Log{});
}

TEST_F(Objects, WithoutAConstructorThereAreNoInputs) {
    addClass("Thing");
    const ArrayOwner text(vantik::detail::makeText(u"seven"));
    EXPECT_EQ(failureOf([&] { make("test.Thing", {text.get()}); }),
              "VANTIK:vcos:TooManyInputs(test.Thing, Thing, 0, 1)");
    EXPECT_TRUE(make("test.Thing"));
}

TEST_F(Objects, EachClassOfTheLineageHasItsInstance) {
    addClass("Root");
    addDerivedClass("Left", {"test.Root"});
    addDerivedClass("Right", {"test.Root"});
    addDerivedClass("Leaf", {"test.Left", "test.Right"});
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

TEST_F(Objects, NearestConstructorRunsAlone) {
    addClass("Root", constructorOf("Root", &Events));
    addDerivedClass("Middle", {"test.Root"});
    EXPECT_EQ(numberIn(make("test.Middle"), "test.Root"), -1) << "inherited";
    addDerivedClass("Leaf", {"test.Middle"}, constructorOf("Leaf", &Events));
    const ArrayOwner leaf = make("test.Leaf");
    EXPECT_EQ(numberIn(leaf, "test.Leaf"), -1);
    EXPECT_EQ(numberIn(leaf, "test.Root"), 0) << "not run";
}

TEST_F(Objects, MissingInstanceIsAFailedAllocation) {
    addClass("Root");
    addDerivedClass("Leaf", {"test.Root"})->GivesNoInstance = true;
    EXPECT_THROW(make("test.Leaf"), foundation::core::except::bad_alloc);
    EXPECT_EQ(Events, (Log{"create Root", "create Leaf", "destroy Root"}));
}

TEST_F(Objects, FailureWhileMadeUndoesWhatWasMade) {
    addClass("Root");
    addDerivedClass("Leaf", {"test.Root"})->CreateScript = [] { throw std::out_of_range("no"); };
    EXPECT_THROW(make("test.Leaf"), std::out_of_range);
    EXPECT_EQ(Events, (Log{"create Root", "create Leaf", "destroy Root"}));

    Events.clear();
    addClass("Thing", [](vcos::COSClass& definition) {
        ScriptedMethod::addTo(definition, "Thing", {}, [](int&, vcos::COSValue*, int, const vcos::COSValue*) {
            vantik::detail::makeDouble(1); // left behind on purpose: the call's frame has it
            throw std::out_of_range("no");
        });
    });
    EXPECT_THROW(make("test.Thing"), std::out_of_range);
    EXPECT_EQ(Events, (Log{"create Thing", "destroy Thing"}));
}

TEST_F(Objects, ClassDecidesWhetherItMakesAny) {
    addClass("Base")->Abstract = true;
    addClass("Closed")->Constructible = false;
    EXPECT_EQ(failureOf([&] { make("test.Base"); }), "VANTIK:vcos:AbstractClass(test.Base)");
    EXPECT_EQ(failureOf([&] { make("test.Closed"); }), "VANTIK:vcos:NotConstructible(test.Closed)");
    EXPECT_EQ(failureOf([&] { make("test.Missing"); }), "VANTIK:vcos:UnknownClass(test.Missing, none)");
}

TEST_F(Objects, ArrayElementsAreTheObjects) {
    addClass("Thing");
    const ArrayOwner one = make("test.Thing");
    const ArrayOwner two = make("test.Thing");
    const ArrayOwner both(vantik::detail::makeObjectArray(
        "test.Thing", {omGetArrayElement(one.get(), 0), omGetArrayElement(two.get(), 0)}));
    EXPECT_EQ(omGetArrayElement(both.get(), 1).get(), omGetArrayElement(two.get(), 0).get());
    EXPECT_FALSE(omGetArrayElement(both.get(), 2));
    EXPECT_FALSE(omGetArrayElement(nullptr, 0));
    EXPECT_FALSE(vantik::detail::scalarObject(both.get()));
    EXPECT_TRUE(vantik::detail::scalarObject(one.get()));
}

TEST_F(Objects, ReferencesShareOneObject) {
    addClass("Thing");
    ArrayOwner object = make("test.Thing");
    vcos::COSInterfacePtr first = omGetArrayElement(object.get(), 0);
    vcos::COSInterfacePtr second = first;
    vcos::COSInterfacePtr moved = std::move(first);
    object.reset();
    EXPECT_FALSE(first);
    EXPECT_EQ(second.get(), moved.get());
    second = moved;
    moved = vcos::COSInterfacePtr();
    Events.clear();
    second = vcos::COSInterfacePtr();
    EXPECT_EQ(Events, (Log{"destroy Thing"}));
}

TEST_F(Objects, NativeInstanceIsFoundBehindAValue) {
    addClass("Root");
    addDerivedClass("Leaf", {"test.Root"});
    const ArrayOwner object = make("test.Leaf");
    const vcos::COSValue value = vantik::detail::slotOf(object.get());
    EXPECT_EQ(vcos::vcosGetScalarObjectValue(name("test.Root"), value),
              objectIn(object).getInstanceData(name("test.Root")));
    const ArrayOwner number(vantik::detail::makeDouble(1));
    EXPECT_EQ(failureOf([&] { vcos::vcosGetScalarObjectValue(name("test.Other"), value); }),
              "VANTIK:vcos:NotAnObjectOf(test.Other)");
    EXPECT_EQ(
        failureOf([&] { vcos::vcosGetScalarObjectValue(name("test.Root"), vantik::detail::slotOf(number.get())); }),
        "VANTIK:vcos:NotAnObjectOf(test.Root)");
    EXPECT_EQ(failureOf([&] { vcos::vcosGetScalarObjectValue(name("test.Root"), {}); }),
              "VANTIK:vcos:NotAnObjectOf(test.Root)");
}

TEST_F(Objects, KeepTheirScopeUntilTheyAreGone) {
    addClass("Thing");
    ArrayOwner object = make("test.Thing");
    const std::weak_ptr<Scope> watched = Home;
    Scope* const home = Home.get();
    Entry.reset();
    Home.reset();
    ASSERT_FALSE(watched.expired());
    EXPECT_EQ(objectIn(object).scope().get(), home);
    Events.clear();
    object.reset();
    EXPECT_TRUE(watched.expired());
    EXPECT_EQ(Events, (Log{"destroy Thing", "forget Thing"}));
}

TEST_F(Objects, AreDestroyedInTheirScope) {
    class Watching final : public vcos::COSClassInfo {
    public:
        explicit Watching(Scope*& seen) : Seen(seen) {}
        std::string getName() const override { return "Watching"; }
        void defineClass(vcos::COSClass&) override {}
        void* createInstance() override { return this; }
        void destroyInstance(void*) override { Seen = &Scope::current(); }
        bool isConstructible() const override { return true; }
        bool isHandle() const override { return true; }

    private:
        Scope*& Seen;
    };
    Scope* seen = nullptr;
    classes().ensurePackage("test");
    vcos::COSPackage::getNamespace(name("test"))->addClass(new Watching(seen), 0, 2);
    ArrayOwner object = make("test.Watching");
    {
        const ScopeEntry other(std::make_shared<Scope>());
        object.reset();
        EXPECT_NE(&Scope::current(), Home.get());
    }
    EXPECT_EQ(seen, Home.get());
}

TEST_F(Objects, FailureOfTheDestructionIsDropped) {
    addClass("Root");
    addDerivedClass("Leaf", {"test.Root"})->ThrowsWhenDestroyed = true;
    make("test.Leaf");
    EXPECT_EQ(Events, (Log{"create Root", "create Leaf", "destroy Leaf", "destroy Root"}));
}
