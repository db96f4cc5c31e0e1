// Calling methods, reading and writing properties through the class system.
#include "embedded/objects/ObjectCalls.h"

#include "embedded/arrays/CallFrame.h"
#include "tests/embedded/classes/ClassFixture.h"

#include <algorithm>
#include <bit>
#include <limits>

using namespace vantik::detail;
using Accessors = ScriptedProperty::Accessors;
using Words = std::vector<std::string>;

namespace {

class Methods : public ClassFixture {
protected:
    Methods() { Signature.Inputs = {"test.Thing scalar"}; }

    // An object of the class "test.Thing" with this one method, without a signature or with the fixture's.
    ArrayOwner undeclared(const char* method, ScriptedMethod::Body body,
                          vcos::MemberAccess access = vcos::MemberAccess::Public) {
        addClass("Thing",
                 [&](COSClass& definition) { ScriptedMethod::addTo(definition, method, {}, std::move(body), access); });
        return make("test.Thing");
    }
    ArrayOwner returning(Words outputs, ScriptedMethod::Body body) {
        Signature.Outputs = std::move(outputs);
        addClass("Thing",
                 [&](COSClass& definition) { ScriptedMethod::addTo(definition, "run", Signature, std::move(body)); });
        return make("test.Thing");
    }

    // What a module does; nothing where the method was not found.
    static std::optional<std::vector<ArrayOwner>> om(const std::string& className, const std::string& method,
                                                     std::vector<vxArray_tag*> arguments, int wanted,
                                                     vcos::COSClient* client = getSystemClient(),
                                                     bool onlyStatic = false) {
        std::vector<vxArray_tag*> results(static_cast<std::size_t>(std::max(wanted, 0)), nullptr);
        if (!omCallMethod(name(className), name(method), client, wanted, results.data(),
                          static_cast<int>(arguments.size()), arguments.data(), onlyStatic)) {
            return {};
        }
        return std::vector<ArrayOwner>(results.begin(), results.end());
    }
    static bool finds(const std::string& className, const std::string& method, std::vector<vxArray_tag*> arguments,
                      vcos::COSClient* client = getSystemClient(), bool onlyStatic = false) {
        return om(className, method, std::move(arguments), 0, client, onlyStatic).has_value();
    }
    // Results of "run" of a "test.Thing".
    static std::vector<ArrayOwner> run(const ArrayOwner& object, int wanted) {
        return om("test.Thing", "run", {object.get()}, wanted).value();
    }
    // The same as a program does, which wants none.
    static vantik::detail::ResultList runForNothing(const ArrayOwner& object) {
        vxArray_tag* self = object.get();
        const MethodEntry& method = requireMethod(objectIn(object), "run", *COSGetPublicClient());
        return runMethod(objectIn(object), method, 0, {&self, 1});
    }
    static void doNothing(ScriptedMethod::Call) {}

    ScriptedMethod::Signature Signature;
};

} // namespace

TEST_F(Methods, ClassOfTheCallIsATypeCheckAndTheObjectsOwnClassDecides) {
    const auto noting = [&](const char* text) { return [this, text](auto) { Events.push_back(text); }; };
    addClass("Root", [&](COSClass& definition) {
        ScriptedMethod::addTo(definition, "run", {}, noting("root"));
        ScriptedMethod::addTo(definition, "inherited", {}, noting("inherited"));
    });
    addDerivedClass("Leaf", {"test.Root"},
                    [&](COSClass& definition) { ScriptedMethod::addTo(definition, "run", {}, noting("leaf")); });
    const ArrayOwner root = make("test.Root");
    const ArrayOwner leaf = make("test.Leaf");
    Events.clear();
    EXPECT_TRUE(finds("test.Root", "run", {leaf.get()}));
    EXPECT_TRUE(finds("test.Leaf", "run", {leaf.get()}));
    EXPECT_TRUE(finds("test.Root", "run", {root.get()}));
    EXPECT_TRUE(finds("test.Leaf", "inherited", {leaf.get()}));
    EXPECT_FALSE(finds("test.Leaf", "run", {root.get()}));
    EXPECT_FALSE(finds("test.Missing", "run", {leaf.get()}));
    EXPECT_FALSE(finds("test.Root", "missing", {leaf.get()}));
    EXPECT_EQ(Events, (Log{"leaf", "leaf", "root", "inherited"}));
}

TEST_F(Methods, WithoutAnObjectNothingIsFound) {
    const ArrayOwner object = undeclared("run", doNothing);
    const ArrayOwner number(makeDouble(1));
    const ArrayOwner empty(makeObjectArray("test.Thing", {}));
    EXPECT_TRUE(finds("test.Thing", "run", {object.get()}));
    EXPECT_FALSE(finds("test.Thing", "run", {}));
    for (vxArray_tag* other : {static_cast<vxArray_tag*>(nullptr), number.get(), empty.get()}) {
        EXPECT_FALSE(finds("test.Thing", "run", {other}));
    }
    EXPECT_FALSE(finds("", "run", {object.get()}));
    EXPECT_FALSE(finds("test.Thing", "", {object.get()}));
    EXPECT_FALSE(finds("test.Thing", "run", {object.get()}, nullptr));
    EXPECT_FALSE(finds("test.Thing", "run", {object.get()}, getSystemClient(), true)) << "it is not static";
    classes().removeClass("test.Thing");
    EXPECT_TRUE(finds("test.Thing", "run", {object.get()})) << "the object keeps its class";
}

TEST_F(Methods, InternalAndPrivateOnesExistForTheSystemClientOnlyAndConstructorsForNobody) {
    ASSERT_NE(getSystemClient(), COSGetPublicClient());
    const ArrayOwner secret = undeclared("run", doNothing, vcos::MemberAccess::Private);
    EXPECT_TRUE(finds("test.Thing", "run", {secret.get()}, getSystemClient()));
    EXPECT_FALSE(finds("test.Thing", "run", {secret.get()}, COSGetPublicClient()));
    const ArrayOwner object = undeclared("startInternal", doNothing);
    EXPECT_TRUE(finds("test.Thing", "startInternal", {object.get()}, getSystemClient()));
    EXPECT_FALSE(finds("test.Thing", "startInternal", {object.get()}, COSGetPublicClient()));
    EXPECT_EQ(failureOf([&] { requireMethod(objectIn(object), "startInternl", *COSGetPublicClient()); }),
              "VANTIK:vcos:UnknownMethod(test.Thing, startInternl, none)")
        << "a hint must not reveal it";
    EXPECT_EQ(failureOf([&] { requireMethod(objectIn(object), "startInternl", *getSystemClient()); }),
              "VANTIK:vcos:UnknownMethod(test.Thing, startInternl, startInternal)");
    const ArrayOwner constructed = undeclared("Thing", doNothing);
    EXPECT_FALSE(finds("test.Thing", "Thing", {constructed.get()}));
    addDerivedClass("Leaf", {"test.Thing"});
    EXPECT_FALSE(finds("test.Thing", "Thing", {make("test.Leaf").get()}));
}

TEST_F(Methods, ObjectIsTheFirstInputAndIsNotCounted) {
    std::vector<const vxArray_tag*> seen;
    Signature = {{"test.Thing scalar", "any", "any", "any"}, {}, 1};
    const ArrayOwner object = returning({}, [&](auto call) {
        seen.clear();
        std::ranges::transform(call.Inputs, std::back_inserter(seen), arrayIn);
    });
    const ArrayOwner text(makeText(u"text"));
    const auto with = [&](std::size_t inputs) {
        std::vector<vxArray_tag*> arguments(inputs + 1, text.get());
        arguments[0] = object.get();
        return failureOf([&] { EXPECT_TRUE(finds("test.Thing", "run", arguments)); });
    };
    EXPECT_EQ(with(0), "VANTIK:vcos:NotEnoughInputs(test.Thing, run, 2, 0)");
    EXPECT_EQ(with(1), "VANTIK:vcos:NotEnoughInputs(test.Thing, run, 2, 1)");
    EXPECT_EQ(with(2), "");
    EXPECT_EQ(seen, (std::vector<const vxArray_tag*>{object.get(), text.get(), text.get()}));
    EXPECT_EQ(with(3), "");
    EXPECT_EQ(with(4), "VANTIK:vcos:TooManyInputs(test.Thing, run, 3, 4)");
}

TEST_F(Methods, ResultsAreOwnedByTheCallerAndNullWhereNoneIsDeclaredOrDelivered) {
    int asked = -1;
    const ArrayOwner object = returning({"char vector", "int32 scalar", "logical scalar", "any"}, [&](auto call) {
        asked = call.Wanted;
        if (asked > 0) {
            call.Results[0] = slotOf(makeText(u"one"));
            call.Results[1].Bits = static_cast<std::uint64_t>(std::int64_t{-2});
        }
    });
    const auto results = run(object, 5);
    EXPECT_EQ(asked, 4);
    EXPECT_EQ(matrix::get_string(results[0].get()), "one");
    EXPECT_EQ(shapeOf(results[1]), "1-by-1 int32");
    EXPECT_EQ(vx::vxGetScalar(results[1].get()), -2);
    EXPECT_EQ(shapeOf(results[2]), "1-by-1 logical");
    EXPECT_EQ(vx::vxGetScalar(results[2].get()), 0) << "not delivered";
    EXPECT_FALSE(results[3]) << "not delivered";
    EXPECT_FALSE(results[4]) << "not declared";
    run(object, -1);
    EXPECT_EQ(asked, 0);
}

TEST_F(Methods, ResultDeliveredUnaskedIsHandedOutOrReleased) {
    const ArrayOwner object = returning({"uint8 vector"}, [](auto call) {
        call.Wanted = std::max(call.Wanted, 1);
        call.Results[0] = slotOf(makePlainFrom(vxUINT8_CLASS, 3, 1, "abc"));
        vx::vxSetArrayScope(arrayIn(call.Results[0]), vxPERSISTENT_SCOPE);
    });
    const std::size_t before = liveArrays();
    run(object, 0);
    EXPECT_EQ(liveArrays(), before) << "released";
    const auto results = runForNothing(object);
    ASSERT_EQ(results.size(), 1u) << "handed out";
    EXPECT_EQ(elementCount(results[0].get()), 3u);
}

TEST_F(Methods, ResultBeyondTheCountIsReleasedAndTheCountIsCutToTheRoom) {
    const ArrayOwner object = returning({"any", "any"}, [](auto call) {
        for (int index = 0; index < 2; ++index) {
            call.Results[index] = slotOf(vx::vxCreateEmptyUnknownArrayNotOnArrayList());
        }
    });
    const std::size_t before = liveArrays();
    {
        const auto results = run(object, 1);
        EXPECT_EQ(liveArrays(), before + 1);
    }
    EXPECT_EQ(liveArrays(), before);
    const ArrayOwner boasting = returning({"double scalar"}, [](auto call) { call.Wanted = 1000000; });
    EXPECT_EQ(runForNothing(boasting).size(), 1u);
}

TEST_F(Methods, ArraysLeftOverGoWithTheCallWhetherItFailsOrNot) {
    bool fails = false;
    const ArrayOwner object = undeclared("run", [&](auto call) {
        makeText(u"left over on purpose");
        if (fails) {
            throw std::out_of_range("no");
        }
        call.Results[0] = slotOf(makeDouble(1));
    });
    const std::size_t before = liveArrays();
    const std::size_t reclaimed = CallFrame::reclaimed();
    const auto results = run(object, 1);
    EXPECT_EQ(CallFrame::reclaimed(), reclaimed + 1);
    EXPECT_EQ(liveArrays(), before + 1);
    fails = true;
    EXPECT_THROW(run(object, 1), std::out_of_range);
    EXPECT_EQ(liveArrays(), before + 1);
}

TEST_F(Methods, ResultOfAnInnerCallBelongsToTheOuterOne) {
    addClass("Thing", [&](COSClass& definition) {
        ScriptedMethod::addTo(definition, "inner", {}, [](auto call) { call.Results[0] = slotOf(makeDouble(1)); });
        ScriptedMethod::addTo(definition, "outer", {}, [](auto call) {
            ArrayOwner result = std::move(om("test.Thing", "inner", {arrayIn(call.Inputs[0])}, 1)->front());
            EXPECT_EQ(vx::vxGetScalar(result.release()), 1); // left over on purpose
        });
    });
    const ArrayOwner object = make("test.Thing");
    const std::size_t before = liveArrays();
    EXPECT_TRUE(finds("test.Thing", "outer", {object.get()}));
    EXPECT_EQ(liveArrays(), before);
}

namespace {

class Properties : public ClassFixture {
protected:
    // An object with one property "Value".
    ArrayOwner objectWith(const std::string& typeWord, Accessors accessors) {
        addClass("Thing", [&](COSClass& definition) {
            ScriptedProperty::addTo(definition, "Value", typeWord.c_str(), std::move(accessors));
        });
        return make("test.Thing");
    }
    // Keeps the slot as it was set.
    static Accessors keeping(COSValue& slot) {
        return {[&slot] { return slot; }, [&slot](auto&, const COSValue& value) { slot = value; }, {}};
    }
    static ArrayOwner get(const ArrayOwner& object, const char* property = "Value") {
        return ArrayOwner(getProperty(objectIn(object), property));
    }
    static std::string classOf(const ArrayOwner& array) { return vx::vxGetClassName(array.get()); }
    static void set(const ArrayOwner& object, const ArrayOwner& value, const char* property = "Value") {
        setProperty(objectIn(object), property, value.get());
    }

    COSValue Slot;
};

} // namespace

TEST_F(Properties, NumbersLieInTheSlot) {
    const ArrayOwner flag = objectWith("logical scalar", keeping(Slot));
    Slot.Bits = 256;
    EXPECT_TRUE(*vx::vxGetLogicals(get(flag).get())) << "anything but zero";
    for (const auto& [className, bits, number] :
         {std::tuple{"int32", std::uint64_t{0xFFFFFFFFFFFFFFFB}, -5.0}, // the sign fills the wider cell
          {"double", std::bit_cast<std::uint64_t>(2.5), 2.5},
          {"uint64", std::numeric_limits<std::uint64_t>::max(), 0x1p64},
          {"logical", std::uint64_t{1}, 1.0}}) {
        const ArrayOwner object = objectWith(std::string(className) + " scalar", keeping(Slot));
        Slot.Bits = bits;
        const ArrayOwner value = get(object);
        EXPECT_EQ(classOf(value), className);
        EXPECT_EQ(vx::vxGetScalar(value.get()), number);
        Slot.Bits = 0;
        set(object, value);
        EXPECT_EQ(Slot.Bits, bits) << className;
    }
}

TEST_F(Properties, TextIsPassedByPointer) {
    std::u16string stored;
    bool wasNull = false;
    const Accessors accessors{[&] { return COSValue{stored.empty() ? 0 : reinterpret_cast<std::uintptr_t>(&stored)}; },
                              [&](auto&, const COSValue& value) {
                                  const auto* text = reinterpret_cast<const std::u16string*>(value.Bits);
                                  wasNull = text == nullptr;
                                  stored = text ? *text : std::u16string();
                              },
                              {}};
    const ArrayOwner object = objectWith("unicodeString", accessors);
    set(object, ArrayOwner(makeText(u"\u00FCber")));
    EXPECT_EQ(stored, u"\u00FCber");
    EXPECT_EQ(matrix::get_ustring(get(object).get()), u"\u00FCber");
    set(object, ArrayOwner(makeText(u"")));
    EXPECT_FALSE(wasNull);
    const ArrayOwner empty = get(object);
    EXPECT_EQ(classOf(empty), "char") << "a null text is an empty one";
    EXPECT_TRUE(vx::vxIsEmpty(empty.get()));
}

TEST_F(Properties, GettersArrayGoesToItsReleaserAfterTheCopyIsTakenOrElseWithTheCall) {
    const auto release = [&](const COSValue& value) {
        Events.push_back("release");
        EXPECT_EQ(elementCount(arrayIn(value)), 4u);
        matrix::destroyArray(arrayIn(value));
    };
    const auto read = [&] {
        Events.push_back("get");
        return slotOf(makeText(u"text"));
    };
    for (const bool hasReleaser : {true, false}) {
        const ArrayOwner object =
            objectWith("char vector", {read, {}, hasReleaser ? release : decltype(Accessors::Release)()});
        const std::size_t before = liveArrays();
        const std::size_t reclaimed = CallFrame::reclaimed();
        Events.clear();
        const ArrayOwner value = get(object);
        EXPECT_EQ(Events, hasReleaser ? (Log{"get", "release"}) : Log{"get"});
        EXPECT_EQ(matrix::get_string(value.get()), "text");
        EXPECT_EQ(liveArrays(), before + 1);
        EXPECT_EQ(CallFrame::reclaimed(), reclaimed + (hasReleaser ? 0 : 1));
    }
}

TEST_F(Properties, ObjectsOwnArrayStaysItsOwn) {
    const ArrayOwner object = objectWith("any", keeping(Slot));
    const ArrayOwner empty = get(object);
    ASSERT_TRUE(empty);
    EXPECT_EQ(classOf(empty), "");
    const ArrayOwner kept(makeText(u"kept"));
    Slot = slotOf(kept.get());
    const ArrayOwner value = get(object);
    EXPECT_NE(value.get(), kept.get());
    EXPECT_EQ(matrix::get_string(value.get()), "kept");
}

TEST_F(Properties, NoValueIsNullForEveryTypeButNumbers) {
    const ArrayOwner noClass(vx::vxCreateEmptyUnknownArrayNotOnArrayList());
    for (const char* typeWord : {"any", "unicodeString", "uint8 vector", "double vector", "struct scalar", "char",
                                 "vantik.net.http.io.ContentProvider scalar"}) {
        const ArrayOwner object = objectWith(typeWord, keeping(Slot));
        for (vxArray_tag* none : {static_cast<vxArray_tag*>(nullptr), noClass.get()}) {
            Slot.Bits = 1;
            setProperty(objectIn(object), "Value", none);
            EXPECT_EQ(Slot.Bits, 0u) << typeWord;
        }
    }
    Slot.Bits = 1;
    for (const std::string typeWord : {"logical scalar", "int32 scalar", "uint64 scalar", "double scalar"}) {
        const ArrayOwner object = objectWith(typeWord, keeping(Slot));
        EXPECT_EQ(failureOf([&] { set(object, ArrayOwner()); }),
                  "VANTIK:vcos:WrongPropertyType(test.Thing, Value, " + typeWord + ", nothing)");
        EXPECT_EQ(Slot.Bits, 1u);
    }
}

TEST_F(Properties, OneThatIsReadOnlyOrNotPublicIsClosed) {
    Accessors accessors = keeping(Slot);
    accessors.Set = nullptr;
    const ArrayOwner readOnly = objectWith("logical scalar", accessors);
    EXPECT_EQ(failureOf([&] { set(readOnly, ArrayOwner(makeLogical(true))); }),
              "VANTIK:vcos:ReadOnlyProperty(test.Thing, Value)");
    EXPECT_EQ(vx::vxGetScalar(get(readOnly).get()), 0);
    accessors = keeping(Slot);
    accessors.SetAccess = vcos::MemberAccess::Private;
    const ArrayOwner object = objectWith("any", accessors);
    EXPECT_TRUE(get(object));
    EXPECT_EQ(failureOf([&] { set(object, ArrayOwner()); }), "VANTIK:vcos:NoAccess(test.Thing, Value)");
    accessors.GetAccess = vcos::MemberAccess::Protected;
    const ArrayOwner closed = objectWith("any", accessors);
    EXPECT_EQ(failureOf([&] { get(closed); }), "VANTIK:vcos:NoAccess(test.Thing, Value)");
}

TEST_F(Properties, UnknownOneIsRefusedWithAHint) {
    const ArrayOwner object = objectWith("any", keeping(Slot));
    EXPECT_EQ(failureOf([&] { get(object, "Valeu"); }), "VANTIK:vcos:UnknownProperty(test.Thing, Valeu, none)");
    EXPECT_EQ(failureOf([&] { get(object, "Vale"); }), "VANTIK:vcos:UnknownProperty(test.Thing, Vale, Value)");
    EXPECT_EQ(failureOf([&] { set(object, ArrayOwner(), "value"); }),
              "VANTIK:vcos:UnknownProperty(test.Thing, value, Value)");
}

TEST_F(Properties, DerivedClassInheritsAndHidesThem) {
    Slot.Bits = 1;
    addClass("Root", [&](COSClass& definition) {
        ScriptedProperty::addTo(definition, "Inherited", "logical scalar", keeping(Slot));
        ScriptedProperty::addTo(definition, "Hidden", "logical scalar", keeping(Slot));
    });
    addDerivedClass("Leaf", {"test.Root"}, [&](COSClass& definition) {
        ScriptedProperty::addTo(definition, "Hidden", "uint64 scalar", keeping(Slot));
    });
    const ArrayOwner leaf = make("test.Leaf");
    EXPECT_EQ(classOf(get(leaf, "Inherited")), "logical");
    EXPECT_EQ(classOf(get(leaf, "Hidden")), "uint64");
    EXPECT_EQ(classOf(get(make("test.Root"), "Hidden")), "logical");
}

TEST_F(Properties, FailuresOfTheAccessorsPass) {
    int released = 0;
    const auto failingGet = []() -> COSValue {
        makeDouble(1); // the call's frame has it
        throw std::out_of_range("get");
    };
    const auto failingSet = [](auto&, const COSValue&) { throw std::domain_error("set"); };
    const ArrayOwner object = objectWith("any", {failingGet, failingSet, [&](const COSValue&) { ++released; }});
    EXPECT_THROW(get(object), std::out_of_range);
    EXPECT_EQ(released, 0) << "there was nothing to release";
    EXPECT_THROW(set(object, ArrayOwner()), std::domain_error);
}

TEST_F(Properties, SetterMayDropTheLastReferenceToItsObject) {
    ArrayOwner object;
    const auto dropping = [&](vcos::COSInterface& self, const COSValue&) {
        object.reset();
        EXPECT_NE(self.getInstanceData(name("test.Thing")), nullptr) << "still there";
    };
    object = objectWith("any", {{}, dropping, {}});
    setProperty(objectIn(object), "Value", nullptr);
    EXPECT_FALSE(object);
    EXPECT_EQ(Events.back(), "destroy Thing");
}
