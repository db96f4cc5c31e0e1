// Reading and writing properties through the class system.
#include "embedded/arrays/CallFrame.h"
#include "embedded/objects/ObjectCalls.h"
#include "tests/embedded/classes/ClassFixture.h"

#include <bit>
#include <limits>

namespace vx = matrix::detail::noninlined::vx_array_api;
using vantik::detail::arrayFromSlot;
using vantik::detail::arrayIn;
using vantik::detail::ArrayOwner;
using vantik::detail::CallFrame;
using vantik::detail::liveArrays;
using vantik::detail::slotOf;

namespace {

class Properties : public ClassFixture {
protected:
    // A class with one property "Value" whose slot is kept as it was set.
    ArrayOwner objectWith(const char* typeWord, ScriptedProperty::Accessors accessors) {
        addClass("Thing", [&](vcos::COSClass& definition) {
            ScriptedProperty::addTo(definition, "Value", typeWord, std::move(accessors));
        });
        return make("test.Thing");
    }
    ScriptedProperty::Accessors keeping(vcos::COSValue& slot) {
        return {[&slot](vcos::COSInterface&, vcos::COSValue& value) { value = slot; },
                [&slot](vcos::COSInterface&, const vcos::COSValue& value) { slot = value; },
                {}};
    }
    static ArrayOwner get(const ArrayOwner& object, const char* property = "Value") {
        return ArrayOwner(vantik::detail::getProperty(objectIn(object), property));
    }
    static void set(const ArrayOwner& object, const ArrayOwner& value, const char* property = "Value") {
        vantik::detail::setProperty(objectIn(object), property, value.get());
    }
};

} // namespace

TEST_F(Properties, NumbersLieInTheSlot) {
    vcos::COSValue slot;
    const ArrayOwner object = objectWith("int32 scalar", keeping(slot));
    set(object, ArrayOwner(vantik::detail::makeInt32(-5)));
    EXPECT_EQ(slot.Bits, 0xFFFFFFFFFFFFFFFBull) << "the sign goes on into the wider cell";
    const ArrayOwner back = get(object);
    EXPECT_EQ(vx::vxGetClassID(back.get()), vxINT32_CLASS);
    EXPECT_EQ(vx::vxGetScalar(back.get()), -5);
}

TEST_F(Properties, EachScalarTypeGivesItsOwnArray) {
    vcos::COSValue slot;
    {
        const ArrayOwner object = objectWith("double scalar", keeping(slot));
        slot.Bits = std::bit_cast<std::uint64_t>(2.5);
        const ArrayOwner value = get(object);
        EXPECT_EQ(vx::vxGetClassID(value.get()), vxDOUBLE_CLASS);
        EXPECT_EQ(vx::vxGetScalar(value.get()), 2.5);
    }
    {
        const ArrayOwner object = objectWith("uint64 scalar", keeping(slot));
        slot.Bits = std::numeric_limits<std::uint64_t>::max();
        const ArrayOwner value = get(object);
        EXPECT_EQ(vx::vxGetClassID(value.get()), vxUINT64_CLASS);
        EXPECT_EQ(*static_cast<const std::uint64_t*>(vx::vxGetData(static_cast<const vxArray_tag*>(value.get()))),
                  slot.Bits);
    }
    {
        const ArrayOwner object = objectWith("logical scalar", keeping(slot));
        slot.Bits = 256; // any slot but zero counts as true
        const ArrayOwner value = get(object);
        EXPECT_EQ(vx::vxGetClassID(value.get()), vxLOGICAL_CLASS);
        EXPECT_TRUE(*vx::vxGetLogicals(value.get()));
    }
}

TEST_F(Properties, TextIsPassedByPointer) {
    std::u16string stored;
    bool wasNull = false;
    const ArrayOwner object =
        objectWith("unicodeString", {[&](vcos::COSInterface&, vcos::COSValue& value) {
                                         value.Bits = stored.empty() ? 0 : reinterpret_cast<std::uintptr_t>(&stored);
                                     },
                                     [&](vcos::COSInterface&, const vcos::COSValue& value) {
                                         const auto* text = reinterpret_cast<const std::u16string*>(value.Bits);
                                         wasNull = text == nullptr;
                                         stored = text ? *text : std::u16string();
                                     },
                                     {}});
    set(object, ArrayOwner(vantik::detail::makeText(u"\u00FCber")));
    EXPECT_EQ(stored, u"\u00FCber");
    EXPECT_EQ(matrix::get_ustring(get(object).get()), u"\u00FCber");
    set(object, ArrayOwner(vantik::detail::makeText(u"")));
    EXPECT_FALSE(wasNull);
    const ArrayOwner empty = get(object);
    EXPECT_EQ(vx::vxGetClassID(empty.get()), vxCHAR_CLASS) << "a null text is an empty one";
    EXPECT_TRUE(vx::vxIsEmpty(empty.get()));
    set(object, ArrayOwner());
    EXPECT_TRUE(wasNull);
    set(object, ArrayOwner(vx::vxCreateEmptyUnknownArrayNotOnArrayList()));
    EXPECT_TRUE(wasNull);
}

TEST_F(Properties, GettersArrayGoesToItsReleaserAfterTheCopyIsTaken) {
    Log steps;
    const ArrayOwner object =
        objectWith("uint8 vector", {[&](vcos::COSInterface&, vcos::COSValue& value) {
                                        steps.push_back("get");
                                        value = slotOf(vantik::detail::makePlainFrom(vxUINT8_CLASS, 3, 1, "abc"));
                                    },
                                    {},
                                    [&](const vcos::COSValue& value) {
                                        steps.push_back("release");
                                        EXPECT_EQ(vantik::detail::elementCount(arrayIn(value)), 3u);
                                        matrix::destroyArray(arrayIn(value));
                                    }});
    const std::size_t before = liveArrays();
    const std::size_t reclaimed = CallFrame::reclaimed();
    const ArrayOwner value = get(object);
    EXPECT_EQ(steps, (Log{"get", "release"}));
    EXPECT_EQ(vantik::detail::elementCount(value.get()), 3u);
    EXPECT_EQ(liveArrays(), before + 1);
    EXPECT_EQ(CallFrame::reclaimed(), reclaimed) << "nothing was left for the frame";
}

TEST_F(Properties, GettersArrayWithoutAReleaserGoesWithTheCall) {
    const ArrayOwner object =
        objectWith("double vector", {[](vcos::COSInterface&, vcos::COSValue& value) {
                                         const double four[] = {1, 2, 3, 4};
                                         value = slotOf(vantik::detail::makePlainFrom(vxDOUBLE_CLASS, 1, 4, four));
                                     },
                                     {},
                                     {}});
    const std::size_t before = liveArrays();
    const std::size_t reclaimed = CallFrame::reclaimed();
    {
        const ArrayOwner value = get(object);
        EXPECT_EQ(vantik::detail::elementAsDouble(value.get(), 3), 4);
        EXPECT_EQ(liveArrays(), before + 1);
    }
    EXPECT_EQ(liveArrays(), before);
    EXPECT_EQ(CallFrame::reclaimed(), reclaimed + 1);
}

TEST_F(Properties, ObjectsOwnArrayStaysItsOwn) {
    vcos::COSValue slot;
    const ArrayOwner object = objectWith("any", keeping(slot));
    const ArrayOwner nothing = get(object);
    ASSERT_TRUE(nothing);
    EXPECT_EQ(vx::vxGetClassID(nothing.get()), vxUNKNOWN_CLASS);

    const ArrayOwner kept(vantik::detail::makeText(u"kept"));
    slot = slotOf(kept.get());
    const ArrayOwner value = get(object);
    EXPECT_NE(value.get(), kept.get());
    EXPECT_EQ(matrix::get_string(value.get()), "kept");
}

TEST_F(Properties, NothingIsNullForEveryTypeThatIsNoNumber) {
    for (const char* typeWord : {"any", "unicodeString", "uint8 vector", "double vector", "struct scalar", "char",
                                 "vantik.net.http.io.ContentProvider scalar"}) {
        vcos::COSValue slot{1};
        const ArrayOwner object = objectWith(typeWord, keeping(slot));
        set(object, ArrayOwner());
        EXPECT_EQ(slot.Bits, 0u) << typeWord;
        slot.Bits = 1;
        set(object, ArrayOwner(vx::vxCreateEmptyUnknownArrayNotOnArrayList()));
        EXPECT_EQ(slot.Bits, 0u) << typeWord;
    }
    for (const char* typeWord : {"logical scalar", "int32 scalar", "uint64 scalar", "double scalar"}) {
        vcos::COSValue slot{1};
        const ArrayOwner object = objectWith(typeWord, keeping(slot));
        EXPECT_EQ(failureOf([&] { set(object, ArrayOwner()); }),
                  std::string("VANTIK:vcos:WrongPropertyType(test.Thing, Value, ") + typeWord + ", nothing)");
        EXPECT_EQ(slot.Bits, 1u);
    }
}

TEST_F(Properties, EmptyArrayOfAClassIsNotNothing) {
    vcos::COSValue slot;
    bool empty = false;
    addClass("Thing", [&](vcos::COSClass& definition) {
        ScriptedProperty::addTo(definition, "Value", "uint8 vector",
                                {{},
                                 [&](vcos::COSInterface&, const vcos::COSValue& value) {
                                     slot = value;
                                     empty = vx::vxIsEmpty(arrayIn(value)) &&
                                             vx::vxGetClassID(arrayIn(value)) == vxUINT8_CLASS;
                                 },
                                 {}});
    });
    const ArrayOwner object = make("test.Thing");
    set(object, ArrayOwner(vantik::detail::makePlain(vxUINT8_CLASS, 0, 1)));
    EXPECT_TRUE(empty);
    empty = false;
    set(object, ArrayOwner(vantik::detail::makePlain(vxDOUBLE_CLASS, 0, 0)));
    EXPECT_TRUE(empty) << "converted";
}

TEST_F(Properties, OneWithoutASetterIsReadOnly) {
    vcos::COSValue slot;
    ScriptedProperty::Accessors accessors = keeping(slot);
    accessors.Set = nullptr;
    const ArrayOwner object = objectWith("logical scalar", std::move(accessors));
    EXPECT_EQ(failureOf([&] { set(object, ArrayOwner(vantik::detail::makeLogical(true))); }),
              "VANTIK:vcos:ReadOnlyProperty(test.Thing, Value)");
    EXPECT_EQ(vx::vxGetScalar(get(object).get()), 0);
}

TEST_F(Properties, UnknownOneIsRefusedWithAHint) {
    vcos::COSValue slot;
    const ArrayOwner object = objectWith("any", keeping(slot));
    EXPECT_EQ(failureOf([&] { get(object, "Valeu"); }), "VANTIK:vcos:UnknownProperty(test.Thing, Valeu, none)");
    EXPECT_EQ(failureOf([&] { get(object, "Vale"); }), "VANTIK:vcos:UnknownProperty(test.Thing, Vale, Value)");
    EXPECT_EQ(failureOf([&] { set(object, ArrayOwner(), "value"); }),
              "VANTIK:vcos:UnknownProperty(test.Thing, value, Value)");
}

TEST_F(Properties, OneThatIsNotPublicIsClosed) {
    vcos::COSValue slot;
    ScriptedProperty::Accessors accessors = keeping(slot);
    accessors.SetAccess = vcos::MemberAccess::Private;
    const ArrayOwner object = objectWith("any", accessors);
    EXPECT_TRUE(get(object));
    EXPECT_EQ(failureOf([&] { set(object, ArrayOwner()); }), "VANTIK:vcos:NoAccess(test.Thing, Value)");
    accessors.GetAccess = vcos::MemberAccess::Protected;
    const ArrayOwner closed = objectWith("any", accessors);
    EXPECT_EQ(failureOf([&] { get(closed); }), "VANTIK:vcos:NoAccess(test.Thing, Value)");
}

TEST_F(Properties, DerivedClassInheritsAndHidesThem) {
    vcos::COSValue rootSlot{1};
    vcos::COSValue leafSlot{1};
    addClass("Root", [&](vcos::COSClass& definition) {
        ScriptedProperty::addTo(definition, "Inherited", "logical scalar", keeping(rootSlot));
        ScriptedProperty::addTo(definition, "Hidden", "logical scalar", keeping(rootSlot));
    });
    addDerivedClass("Leaf", {"test.Root"}, [&](vcos::COSClass& definition) {
        ScriptedProperty::addTo(definition, "Hidden", "uint64 scalar", keeping(leafSlot));
    });
    const ArrayOwner leaf = make("test.Leaf");
    EXPECT_EQ(vx::vxGetClassID(get(leaf, "Inherited").get()), vxLOGICAL_CLASS);
    EXPECT_EQ(vx::vxGetClassID(get(leaf, "Hidden").get()), vxUINT64_CLASS);
    EXPECT_EQ(vx::vxGetClassID(get(make("test.Root"), "Hidden").get()), vxLOGICAL_CLASS);
}

TEST_F(Properties, FailuresOfTheAccessorsPass) {
    int released = 0;
    const ArrayOwner object =
        objectWith("any", {[](vcos::COSInterface&, vcos::COSValue&) {
                               vantik::detail::makeDouble(1); // the call's frame has it
                               throw std::out_of_range("get");
                           },
                           [](vcos::COSInterface&, const vcos::COSValue&) { throw std::domain_error("set"); },
                           [&](const vcos::COSValue&) { ++released; }});
    EXPECT_THROW(get(object), std::out_of_range);
    EXPECT_EQ(released, 0) << "there was nothing to release";
    EXPECT_THROW(set(object, ArrayOwner()), std::domain_error);
}

TEST_F(Properties, SetterMayDropTheLastReferenceToItsObject) {
    ArrayOwner object;
    addClass("Thing", [&](vcos::COSClass& definition) {
        ScriptedProperty::addTo(definition, "Value", "any",
                                {{},
                                 [&](vcos::COSInterface& self, const vcos::COSValue&) {
                                     object.reset();
                                     EXPECT_NE(self.getInstanceData(name("test.Thing")), nullptr) << "still there";
                                 },
                                 {}});
    });
    object = make("test.Thing");
    vantik::detail::setProperty(objectIn(object), "Value", nullptr);
    EXPECT_FALSE(object);
    EXPECT_EQ(Events.back(), "destroy Thing");
}
