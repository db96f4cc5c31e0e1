// Calling methods through the class system.
#include "embedded/arrays/CallFrame.h"
#include "embedded/objects/ObjectCalls.h"
#include "tests/embedded/classes/ClassFixture.h"

#include <bit>

namespace vx = matrix::detail::noninlined::vx_array_api;
using vantik::detail::arrayIn;
using vantik::detail::ArrayOwner;
using vantik::detail::CallFrame;
using vantik::detail::liveArrays;
using vantik::detail::slotOf;
using Signature = ScriptedMethod::Signature;

namespace {

class Methods : public ClassFixture {
protected:
    void addMethod(const char* methodName, std::optional<Signature> signature, ScriptedMethod::Body body,
                   vcos::MemberAccess access = vcos::MemberAccess::Public) {
        addClass("Thing", [&](vcos::COSClass& definition) {
            ScriptedMethod::addTo(definition, methodName, std::move(signature), std::move(body), access);
        });
    }

    // What a module does; -1 results: the method was not found.
    static std::vector<ArrayOwner> om(const std::string& className, const std::string& method,
                                      std::vector<vxArray_tag*> arguments, int wanted, bool& found,
                                      vcos::COSClient* client = getSystemClient(), bool onlyStatic = false) {
        std::vector<vxArray_tag*> results(static_cast<std::size_t>(std::max(wanted, 0)), nullptr);
        found = omCallMethod(name(className), name(method), client, wanted, results.data(),
                             static_cast<int>(arguments.size()), arguments.data(), onlyStatic);
        std::vector<ArrayOwner> owned;
        for (vxArray_tag* result : results) {
            owned.emplace_back(result);
        }
        return owned;
    }
    static bool finds(const std::string& className, const std::string& method, std::vector<vxArray_tag*> arguments,
                      vcos::COSClient* client = getSystemClient(), bool onlyStatic = false) {
        bool found = false;
        om(className, method, std::move(arguments), 0, found, client, onlyStatic);
        return found;
    }
    static ScriptedMethod::Body nothing() {
        return [](int&, vcos::COSValue*, int, const vcos::COSValue*) {};
    }
};

} // namespace

TEST_F(Methods, ClassOfTheCallIsATypeCheckAndTheObjectsOwnClassDecides) {
    addClass("Root", [&](vcos::COSClass& definition) {
        ScriptedMethod::addTo(definition, "run", {}, [&](auto&&...) { Events.push_back("root"); });
        ScriptedMethod::addTo(definition, "inherited", {}, [&](auto&&...) { Events.push_back("inherited"); });
    });
    addDerivedClass("Leaf", {"test.Root"}, [&](vcos::COSClass& definition) {
        ScriptedMethod::addTo(definition, "run", {}, [&](auto&&...) { Events.push_back("leaf"); });
    });
    const ArrayOwner root = make("test.Root");
    const ArrayOwner leaf = make("test.Leaf");
    Events.clear();
    EXPECT_TRUE(finds("test.Root", "run", {leaf.get()}));
    EXPECT_TRUE(finds("test.Leaf", "run", {leaf.get()}));
    EXPECT_TRUE(finds("test.Root", "run", {root.get()}));
    EXPECT_TRUE(finds("test.Leaf", "inherited", {leaf.get()}));
    EXPECT_EQ(Events, (Log{"leaf", "leaf", "root", "inherited"}));
    EXPECT_FALSE(finds("test.Leaf", "run", {root.get()}));
    EXPECT_FALSE(finds("test.Missing", "run", {leaf.get()}));
    EXPECT_FALSE(finds("test.Root", "missing", {leaf.get()}));
    EXPECT_EQ(Events.size(), 4u);
}

TEST_F(Methods, WithoutAnObjectNothingIsFound) {
    addMethod("run", {}, nothing());
    const ArrayOwner object = make("test.Thing");
    const ArrayOwner number(vantik::detail::makeDouble(1));
    const ArrayOwner empty(vantik::detail::makeObjectArray("test.Thing", {}));
    EXPECT_TRUE(finds("test.Thing", "run", {object.get()}));
    EXPECT_FALSE(finds("test.Thing", "run", {}));
    EXPECT_FALSE(finds("test.Thing", "run", {nullptr}));
    EXPECT_FALSE(finds("test.Thing", "run", {number.get()}));
    EXPECT_FALSE(finds("test.Thing", "run", {empty.get()}));
    EXPECT_FALSE(finds("", "run", {object.get()}));
    EXPECT_FALSE(finds("test.Thing", "", {object.get()}));
    EXPECT_FALSE(finds("test.Thing", "run", {object.get()}, nullptr));
    EXPECT_FALSE(finds("test.Thing", "run", {object.get()}, getSystemClient(), true)) << "it is not static";
}

TEST_F(Methods, InternalOnesExistForTheSystemClientOnly) {
    ASSERT_NE(getSystemClient(), COSGetPublicClient());
    addMethod("startInternal", {}, nothing());
    const ArrayOwner object = make("test.Thing");
    EXPECT_TRUE(finds("test.Thing", "startInternal", {object.get()}, getSystemClient()));
    EXPECT_FALSE(finds("test.Thing", "startInternal", {object.get()}, COSGetPublicClient()));
    EXPECT_EQ(
        failureOf([&] { vantik::detail::requireMethod(objectIn(object), "startInternl", *COSGetPublicClient()); }),
        "VANTIK:vcos:UnknownMethod(test.Thing, startInternl, none)")
        << "a hint must not give it away";
    EXPECT_EQ(failureOf([&] { vantik::detail::requireMethod(objectIn(object), "startInternl", *getSystemClient()); }),
              "VANTIK:vcos:UnknownMethod(test.Thing, startInternl, startInternal)");
}

TEST_F(Methods, PrivateOnesExistForTheSystemClientOnly) {
    addMethod("run", {}, nothing(), vcos::MemberAccess::Private);
    const ArrayOwner object = make("test.Thing");
    EXPECT_TRUE(finds("test.Thing", "run", {object.get()}, getSystemClient()));
    EXPECT_FALSE(finds("test.Thing", "run", {object.get()}, COSGetPublicClient()));
}

TEST_F(Methods, ConstructorIsNoMethod) {
    addMethod("Thing", {}, nothing());
    const ArrayOwner object = make("test.Thing");
    EXPECT_FALSE(finds("test.Thing", "Thing", {object.get()}));
    addDerivedClass("Leaf", {"test.Thing"});
    EXPECT_FALSE(finds("test.Thing", "Thing", {make("test.Leaf").get()}));
}

TEST_F(Methods, ObjectIsTheFirstInput) {
    std::vector<const vxArray_tag*> seen;
    addMethod("run", Signature{{"test.Thing scalar", "any"}, {}, 0},
              [&](int&, vcos::COSValue*, int count, const vcos::COSValue* inputs) {
                  for (int index = 0; index < count; ++index) {
                      seen.push_back(arrayIn(inputs[index]));
                  }
              });
    const ArrayOwner object = make("test.Thing");
    const ArrayOwner text(vantik::detail::makeText(u"text"));
    EXPECT_TRUE(finds("test.Thing", "run", {object.get(), text.get()}));
    EXPECT_EQ(seen, (std::vector<const vxArray_tag*>{object.get(), text.get()}));
}

TEST_F(Methods, InputsAreCountedWithoutTheObject) {
    addMethod("run", Signature{{"test.Thing scalar", "any", "any", "any"}, {}, 1}, nothing());
    const ArrayOwner object = make("test.Thing");
    const auto with = [&](std::size_t inputs) {
        std::vector<vxArray_tag*> arguments(inputs + 1, nullptr);
        arguments[0] = object.get();
        return failureOf([&] { EXPECT_TRUE(finds("test.Thing", "run", arguments)); });
    };
    EXPECT_EQ(with(0), "VANTIK:vcos:NotEnoughInputs(test.Thing, run, 2, 0)");
    EXPECT_EQ(with(1), "VANTIK:vcos:NotEnoughInputs(test.Thing, run, 2, 1)");
    EXPECT_EQ(with(2), "");
    EXPECT_EQ(with(3), "");
    EXPECT_EQ(with(4), "VANTIK:vcos:TooManyInputs(test.Thing, run, 3, 4)");
}

TEST_F(Methods, ResultsAreOwnedByTheCaller) {
    addMethod("run", Signature{{"test.Thing scalar"}, {"char vector", "int32 scalar", "logical scalar"}, 0},
              [](int&, vcos::COSValue* results, int, const vcos::COSValue*) {
                  results[0] = slotOf(vantik::detail::makeText(u"one"));
                  results[1].Bits = static_cast<std::uint64_t>(std::int64_t{-2});
                  results[2].Bits = 1;
              });
    const ArrayOwner object = make("test.Thing");
    const std::size_t before = liveArrays();
    bool found = false;
    {
        const auto results = om("test.Thing", "run", {object.get()}, 3, found);
        EXPECT_TRUE(found);
        EXPECT_EQ(matrix::get_string(results[0].get()), "one");
        EXPECT_EQ(vx::vxGetClassID(results[1].get()), vxINT32_CLASS);
        EXPECT_EQ(vx::vxGetScalar(results[1].get()), -2);
        EXPECT_EQ(vx::vxGetClassID(results[2].get()), vxLOGICAL_CLASS);
    }
    EXPECT_EQ(liveArrays(), before);
}

TEST_F(Methods, MoreResultsThanDeclaredAreMissing) {
    int asked = -1;
    addMethod("run", Signature{{"test.Thing scalar"}, {"double scalar"}, 0},
              [&](int& wanted, vcos::COSValue*, int, const vcos::COSValue*) { asked = wanted; });
    const ArrayOwner object = make("test.Thing");
    bool found = false;
    const auto results = om("test.Thing", "run", {object.get()}, 3, found);
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(vx::vxGetScalar(results[0].get()), 0);
    EXPECT_FALSE(results[1]);
    EXPECT_FALSE(results[2]);
    om("test.Thing", "run", {object.get()}, -1, found);
    EXPECT_EQ(asked, 0);
}

TEST_F(Methods, ResultThatWasNotDeliveredIsNull) {
    addMethod("run", Signature{{"test.Thing scalar"}, {"char vector", "any"}, 0}, nothing());
    const ArrayOwner object = make("test.Thing");
    bool found = false;
    const auto results = om("test.Thing", "run", {object.get()}, 2, found);
    EXPECT_TRUE(found);
    EXPECT_FALSE(results[0]);
    EXPECT_FALSE(results[1]);
}

TEST_F(Methods, ResultGivenUnaskedIsHandedOutOrReleased) {
    addMethod("run", Signature{{"test.Thing scalar"}, {"uint8 vector"}, 0},
              [](int& wanted, vcos::COSValue* results, int, const vcos::COSValue*) {
                  wanted = std::max(wanted, 1);
                  results[0] = slotOf(vantik::detail::makePlainFrom(vxUINT8_CLASS, 3, 1, "abc"));
                  vx::vxSetArrayScope(arrayIn(results[0]), vxPERSISTENT_SCOPE);
              });
    const ArrayOwner object = make("test.Thing");
    const std::size_t before = liveArrays();
    bool found = false;
    om("test.Thing", "run", {object.get()}, 0, found);
    EXPECT_TRUE(found);
    EXPECT_EQ(liveArrays(), before) << "released";

    auto& host = objectIn(object);
    vxArray_tag* self = object.get();
    const auto results = vantik::detail::runMethod(
        host, vantik::detail::requireMethod(host, "run", *COSGetPublicClient()), 0, {&self, 1});
    ASSERT_EQ(results.size(), 1u) << "handed out";
    EXPECT_EQ(vantik::detail::elementCount(results[0].get()), 3u);
}

TEST_F(Methods, ResultBeyondTheCountIsReleased) {
    addMethod("run", Signature{{"test.Thing scalar"}, {"any", "any"}, 0},
              [](int& wanted, vcos::COSValue* results, int, const vcos::COSValue*) {
                  EXPECT_EQ(wanted, 1);
                  for (int index = 0; index < 2; ++index) {
                      results[index] = slotOf(vx::vxCreateEmptyUnknownArrayNotOnArrayList());
                  }
              });
    const ArrayOwner object = make("test.Thing");
    const std::size_t before = liveArrays();
    bool found = false;
    {
        const auto results = om("test.Thing", "run", {object.get()}, 1, found);
        EXPECT_EQ(liveArrays(), before + 1);
    }
    EXPECT_EQ(liveArrays(), before);
}

TEST_F(Methods, CountBeyondTheRoomIsCut) {
    addMethod("run", Signature{{"test.Thing scalar"}, {"double scalar"}, 0},
              [](int& wanted, vcos::COSValue*, int, const vcos::COSValue*) { wanted = 1000000; });
    const ArrayOwner object = make("test.Thing");
    auto& host = objectIn(object);
    vxArray_tag* self = object.get();
    EXPECT_EQ(vantik::detail::runMethod(host, vantik::detail::requireMethod(host, "run", *COSGetPublicClient()), 0,
                                        {&self, 1})
                  .size(),
              1u);
}

TEST_F(Methods, ArraysLeftBehindGoWithTheCall) {
    addMethod("run", {}, [](int&, vcos::COSValue* results, int, const vcos::COSValue*) {
        vantik::detail::makeText(u"left behind on purpose");
        results[0] = slotOf(vantik::detail::makeDouble(1));
    });
    const ArrayOwner object = make("test.Thing");
    const std::size_t before = liveArrays();
    const std::size_t reclaimed = CallFrame::reclaimed();
    bool found = false;
    const auto results = om("test.Thing", "run", {object.get()}, 1, found);
    EXPECT_EQ(CallFrame::reclaimed(), reclaimed + 1);
    EXPECT_EQ(liveArrays(), before + 1);
}

TEST_F(Methods, ResultOfAnInnerCallBelongsToTheOuterOne) {
    addClass("Thing", [&](vcos::COSClass& definition) {
        ScriptedMethod::addTo(definition, "inner", {}, [](int&, vcos::COSValue* results, int, const vcos::COSValue*) {
            results[0] = slotOf(vantik::detail::makeDouble(1));
        });
        ScriptedMethod::addTo(definition, "outer", {}, [](int&, vcos::COSValue*, int, const vcos::COSValue* inputs) {
            vxArray_tag* result = nullptr;
            vxArray_tag* self = arrayIn(inputs[0]);
            EXPECT_TRUE(
                omCallMethod(name("test.Thing"), name("inner"), getSystemClient(), 1, &result, 1, &self, false));
            EXPECT_EQ(vx::vxGetScalar(result), 1); // dropped on purpose
        });
    });
    const ArrayOwner object = make("test.Thing");
    const std::size_t before = liveArrays();
    EXPECT_TRUE(finds("test.Thing", "outer", {object.get()}));
    EXPECT_EQ(liveArrays(), before);
}

TEST_F(Methods, WhatTheMethodRaisesPasses) {
    addMethod("run", {}, [](int&, vcos::COSValue*, int, const vcos::COSValue*) {
        vantik::detail::makeText(u"left behind on purpose");
        throw std::out_of_range("no");
    });
    const ArrayOwner object = make("test.Thing");
    const std::size_t before = liveArrays();
    EXPECT_THROW(finds("test.Thing", "run", {object.get()}), std::out_of_range);
    EXPECT_EQ(liveArrays(), before);
}

TEST_F(Methods, ObjectOfARemovedClassStillWorks) {
    addMethod("run", Signature{{"test.Thing scalar"}, {}, 0}, nothing());
    const ArrayOwner object = make("test.Thing");
    classes().removeClass("test.Thing");
    EXPECT_TRUE(finds("test.Thing", "run", {object.get()}));
}
