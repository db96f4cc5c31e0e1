// Hosts, objects and classes as a C++ program sees them.
#include "embedded/arrays/Array.h"
#include "embedded/messages/HostFailure.h"
#include "embedded/scope/Scope.h"
#include "host/ClassSystem.h"
#include "host/Messages.h"
#include "tests/embedded/program/ProgramFixture.h"
#include "vantik/Host.h"
#include "vantik/HostClass.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <optional>
#include <thread>

using vantik::Array;
using vantik::Host;
using vantik::HostClass;
using vantik::Object;

namespace {

class Programs : public ProgramFixture {
protected:
    // "test.Counter": a number that a constructor sets and methods change.
    void defineCounter() {
        const auto number = std::make_shared<double>(0);
        HostClass("test.Counter")
            .method("Counter",
                    [number](std::span<const Array> inputs) {
                        *number = inputs.size() > 1 ? inputs[1].number() : 0;
                        return std::vector<Array>{};
                    })
            .method("add", {"double scalar"}, {"double scalar"},
                    [number](std::span<const Array> inputs) {
                        *number += inputs[1].number();
                        return std::vector<Array>{*number};
                    })
            .method("both", {}, {"double scalar", "char vector"},
                    [number](std::span<const Array>) {
                        return std::vector<Array>{*number, "text"};
                    })
            .method("hiddenInternal", [](std::span<const Array>) { return std::vector<Array>{}; })
            .defineIn(*Home);
    }
};

} // namespace

TEST_F(Programs, ObjectIsMadeAndCalled) {
    defineCounter();
    const Object counter = Home->create("test.Counter", {Array(40.0)});
    EXPECT_TRUE(counter);
    EXPECT_EQ(counter.className(), "test.Counter");
    EXPECT_TRUE(counter.isA("test.Counter"));
    EXPECT_FALSE(counter.isA("test.Other"));
    EXPECT_EQ(counter.call("add", {Array(2.0)}).number(), 42);
    const std::vector<Array> both = counter.call("both", {}, 2);
    ASSERT_EQ(both.size(), 2u);
    EXPECT_EQ(both[1].text(), "text");
    EXPECT_EQ(counter.call("add", {Array(1.0)}, 1).at(0).number(), 43);
    EXPECT_EQ(counter.call("both", {}, 1).size(), 1u);
    EXPECT_EQ(counter.call("both", {}, 0).size(), 0u);
}

TEST_F(Programs, DeclaredInputsArriveConverted) {
    std::vector<std::string> classes;
    HostClass("test.Sink")
        .method("take", {"double scalar", "int32 scalar", "uint64 scalar", "logical scalar", "unicodeString", "any"},
                {},
                [&](std::span<const Array> inputs) {
                    for (const Array& input : inputs) {
                        classes.push_back(input.className());
                    }
                    return std::vector<Array>{};
                })
        .defineIn(*Home);
    Home->create("test.Sink")
        .call("take", {Array(std::int32_t{1}), Array(2.0), Array(true), Array(0.0), Array("text"), Array()});
    EXPECT_EQ(classes, (std::vector<std::string>{"test.Sink", "double", "int32", "uint64", "logical", "char", ""}));
}

TEST_F(Programs, DeclaredResultsAreCheckedAndConverted) {
    Array result;
    HostClass("test.Source")
        .method("int32", {}, {"int32 scalar"}, [&](std::span<const Array>) { return std::vector<Array>{result}; })
        .method("text", {}, {"unicodeString"}, [&](std::span<const Array>) { return std::vector<Array>{result}; })
        .method("bytes", {}, {"uint8 vector"}, [&](std::span<const Array>) { return std::vector<Array>{result}; })
        .defineIn(*Home);
    const Object source = Home->create("test.Source");
    result = Array(7.0);
    EXPECT_EQ(source.call("int32").className(), "int32");
    EXPECT_EQ(source.call("bytes").bytes().size(), 1u);
    EXPECT_EQ(failureOf([&] { source.call("text"); }),
              "VANTIK:vcos:WrongOutputType(test.Source, text, 1, unicodeString, double scalar 7)");
    result = Array("text");
    EXPECT_EQ(source.call("text").text(), "text");
    EXPECT_EQ(failureOf([&] { source.call("int32"); }),
              "VANTIK:vcos:WrongOutputType(test.Source, int32, 1, int32 scalar, 1-by-4 char)");
}

TEST_F(Programs, MoreResultsThanWantedAreDropped) {
    HostClass("test.Source")
        .method("three",
                [](std::span<const Array>) {
                    return std::vector<Array>{1.0, 2.0, 3.0};
                })
        .defineIn(*Home);
    const Object source = Home->create("test.Source");
    EXPECT_EQ(source.call("three").number(), 1);
    EXPECT_EQ(source.call("three", {}, 2).size(), 2u);
    EXPECT_EQ(source.call("three", {}, 5).size(), 3u) << "what is not there is missing";
}

TEST_F(Programs, InputThatIsKeptDoesNotChange) {
    std::vector<Array> kept;
    HostClass("test.Keeper")
        .method("keep",
                [&](std::span<const Array> inputs) {
                    kept.push_back(inputs[1]);
                    return std::vector<Array>{};
                })
        .defineIn(*Home);
    const Object keeper = Home->create("test.Keeper");
    const vantik::detail::ScopeEntry entry(Home->scope());
    vxArray_tag* counter = vantik::detail::makeUInt64(1);
    auto* value = static_cast<std::uint64_t*>(matrix::detail::noninlined::vx_array_api::vxGetData(counter));
    vxArray_tag* arguments[] = {const_cast<vxArray_tag*>(keeper.array().handle()), counter};
    for (std::uint64_t number = 1; number <= 2; ++number) {
        *value = number; // the caller uses one scalar for all its calls
        ASSERT_TRUE(omCallMethod(vcos::internal::makeInterned("test.Keeper"), vcos::internal::makeInterned("keep"),
                                 COSGetPublicClient(), 0, nullptr, 2, arguments, false));
    }
    matrix::destroyArray(counter);
    EXPECT_EQ(kept[0].number(), 1);
    EXPECT_EQ(kept[1].number(), 2);
}

TEST_F(Programs, FailureNamesClassAndMember) {
    defineCounter();
    const Object counter = Home->create("test.Counter");
    EXPECT_EQ(failureOf([&] { Home->create("test.Countr"); }), "VANTIK:vcos:UnknownClass(test.Countr, test.Counter)");
    EXPECT_EQ(failureOf([&] { counter.get("Total"); }), "VANTIK:vcos:UnknownProperty(test.Counter, Total, none)");
    EXPECT_EQ(failureOf([&] { counter.set("Total", Array(1.0)); }),
              "VANTIK:vcos:UnknownProperty(test.Counter, Total, none)");
    EXPECT_EQ(failureOf([&] { counter.call("ad"); }), "VANTIK:vcos:UnknownMethod(test.Counter, ad, add)");
    EXPECT_EQ(failureOf([&] { counter.call("hiddenInternal"); }),
              "VANTIK:vcos:UnknownMethod(test.Counter, hiddenInternal, none)");
    EXPECT_EQ(failureOf([&] { counter.call("add"); }), "VANTIK:vcos:NotEnoughInputs(test.Counter, add, 1, 0)");
    EXPECT_EQ(failureOf([&] {
                  counter.call("add", {Array(1.0), Array(2.0)});
              }),
              "VANTIK:vcos:TooManyInputs(test.Counter, add, 1, 2)");
    EXPECT_EQ(failureOf([&] { counter.call("add", {Array("one")}); }),
              "VANTIK:vcos:WrongInputType(test.Counter, add, 1, double scalar, 1-by-3 char)");
    EXPECT_EQ(failureOf([&] { counter.call("both", {}, 3); }), "VANTIK:vcos:TooManyOutputs(test.Counter, both, 2, 3)");
    EXPECT_EQ(failureOf([&] { Home->describe("test.Countr"); }), "VANTIK:vcos:UnknownClass(test.Countr, test.Counter)");
}

TEST_F(Programs, HintStandsInTheText) {
    defineCounter();
    try {
        Home->create("test.Countr");
        FAIL();
    } catch (const vantik::Failure& failure) {
        EXPECT_STREQ(failure.what(), "There is no class \"test.Countr\". Did you mean \"test.Counter\"?");
    }
    try {
        Home->create("elsewhere");
        FAIL();
    } catch (const vantik::Failure& failure) {
        EXPECT_STREQ(failure.what(), "There is no class \"elsewhere\".");
    }
}

TEST_F(Programs, OnlyAScalarObjectIsAnObject) {
    defineCounter();
    const Object none;
    EXPECT_FALSE(none);
    EXPECT_EQ(failureOf([&] { none.get("Total"); }), "VANTIK:vcos:NoObject()");
    EXPECT_EQ(failureOf([&] { none.className(); }), "VANTIK:vcos:NoObject()");
    EXPECT_EQ(failureOf([&] { Object(Array(1.0)); }), "VANTIK:vcos:NoObject()");
    const Object counter = Home->create("test.Counter");
    const Object same(counter.array());
    EXPECT_EQ(same.call("add", {Array(1.0)}).number(), 1);
    EXPECT_EQ(counter.call("add", {Array(1.0)}).number(), 2) << "both name one object";
}

TEST_F(Programs, BadDefinitionIsRefused) {
    const vantik::Method nothing = [](std::span<const Array>) { return std::vector<Array>{}; };
    EXPECT_EQ(failureOf([&] { HostClass("Counter").defineIn(*Home); }), "VANTIK:vcos:InvalidName(Counter)");
    EXPECT_EQ(failureOf([&] { HostClass("test..Counter").defineIn(*Home); }), "VANTIK:vcos:InvalidName(test..Counter)");
    EXPECT_EQ(failureOf([&] { HostClass("test.A").derivesFrom("test.Missing").defineIn(*Home); }),
              "VANTIK:vcos:UnknownClass(test.Missing, none)");
    EXPECT_EQ(failureOf([&] { HostClass("test.A").method("run", {"flaot scalar!"}, {}, nothing).defineIn(*Home); }),
              "VANTIK:vcos:UnknownType(test.A, run, flaot scalar!)");
    EXPECT_EQ(failureOf([&] { HostClass("test.A").method("run", nothing).method("run", nothing).defineIn(*Home); }),
              "VANTIK:vcos:MemberExists(test.A, run)");
    EXPECT_EQ(failureOf([&] { HostClass("test.A").method("run", nullptr).defineIn(*Home); }),
              "VANTIK:vcos:NoCallable(test.A, run)");
    HostClass("test.A").defineIn(*Home);
    EXPECT_EQ(failureOf([&] { HostClass("test.A").defineIn(*Home); }), "VANTIK:vcos:ClassExists(test.A)");
    EXPECT_EQ(failureOf([&] { HostClass("vantik.net.http.io.ContentProvider").defineIn(*Home); }),
              "VANTIK:vcos:ClassExists(vantik.net.http.io.ContentProvider)");
}

TEST_F(Programs, OneDescriptionServesSeveralHosts) {
    Host other;
    HostClass thing("test.Thing");
    thing.method("answer", [](std::span<const Array>) { return std::vector<Array>{42.0}; });
    thing.defineIn(*Home);
    thing.defineIn(other);
    EXPECT_EQ(Home->create("test.Thing").call("answer").number(), 42);
    EXPECT_EQ(other.create("test.Thing").call("answer").number(), 42);
}

TEST_F(Programs, DerivedClassUsesWhatItInherits) {
    defineCounter();
    HostClass("test.Loud")
        .derivesFrom("test.Counter")
        .method("both", [](std::span<const Array>) { return std::vector<Array>{"loud"}; })
        .defineIn(*Home);
    const Object loud = Home->create("test.Loud", {Array(5.0)});
    EXPECT_TRUE(loud.isA("test.Counter"));
    EXPECT_EQ(loud.call("add", {Array(1.0)}).number(), 6) << "constructor and method of the base class";
    EXPECT_EQ(loud.call("both").text(), "loud");
}

TEST_F(Programs, ClassIsDescribed) {
    defineCounter();
    HostClass("test.Loud").derivesFrom("test.Counter").defineIn(*Home);
    const vantik::ClassDescription description = Home->describe("test.Loud");
    EXPECT_EQ(description.Name, "test.Loud");
    EXPECT_EQ(description.BaseClasses, std::vector<std::string>{"test.Counter"});
    EXPECT_FALSE(description.Abstract);
    std::vector<std::string> methods;
    for (const vantik::MethodDescription& method : description.Methods) {
        methods.push_back(method.Name);
    }
    EXPECT_EQ(methods, (std::vector<std::string>{"Counter", "add", "both"})) << "constructor first, nothing internal";
    EXPECT_FALSE(description.Methods[0].Declared);
    EXPECT_EQ(description.Methods[1].Inputs, (std::vector<std::string>{"test.Counter scalar", "double scalar"}));
    EXPECT_EQ(description.Methods[1].Outputs, std::vector<std::string>{"double scalar"});
    EXPECT_TRUE(Home->describe("vantik.net.http.io.ContentProvider").Abstract);
    EXPECT_EQ(Home->describe("vantik.net.http.AuthenticationScheme").Members,
              (std::vector<std::string>{"Basic", "Digest", "NTLM", "Negotiate"}));
    const std::vector<std::string> names = Home->classNames();
    EXPECT_EQ(names.back(), "test.Loud");
    EXPECT_EQ(names.size(), 6u);
}

TEST_F(Programs, UnknownEnumerationMemberIsRefused) {
    std::vector<std::string> seen;
    HostClass("test.Sink")
        .method("take", {"vantik.net.http.AuthenticationScheme vector"}, {},
                [&](std::span<const Array> inputs) {
                    seen.push_back(inputs[1].className());
                    return std::vector<Array>{};
                })
        .defineIn(*Home);
    const Object sink = Home->create("test.Sink");
    const auto schemes = [](std::vector<std::string> members) {
        return Array::enumeration("vantik.net.http.AuthenticationScheme", members);
    };
    sink.call("take", {schemes({"Basic", "NTLM"})});
    sink.call("take", {Array()});
    const char* const className = "vantik.net.http.AuthenticationScheme";
    EXPECT_EQ(failureOf([&] {
                  sink.call("take", {Array::enumeration(className, {"Basic", "Digets"})});
              }),
              "VANTIK:vcos:UnknownMember(vantik.net.http.AuthenticationScheme, Digets, Basic, Digest, NTLM, Negotiate)")
        << "the second name of the list is looked at too";
    EXPECT_EQ(failureOf([&] {
                  sink.call("take", {schemes({"Basic", "basic"})});
              }),
              "VANTIK:vcos:UnknownMember(vantik.net.http.AuthenticationScheme, basic, Basic, Digest, NTLM, Negotiate)");
    EXPECT_EQ(failureOf([&] { sink.call("take", {schemes({""})}); }),
              "VANTIK:vcos:UnknownMember(vantik.net.http.AuthenticationScheme, , Basic, Digest, NTLM, Negotiate)");
    EXPECT_EQ(seen, (std::vector<std::string>(2, "vantik.net.http.AuthenticationScheme")));
}

TEST_F(Programs, ObjectOfAnotherHostIsRefused) {
    HostClass thing("test.Thing");
    thing.method("take", [](std::span<const Array>) { return std::vector<Array>{}; });
    thing.defineIn(*Home);
    Host other;
    thing.defineIn(other);
    const Object here = Home->create("test.Thing");
    const Object there = other.create("test.Thing");
    here.call("take", {here});
    EXPECT_EQ(failureOf([&] { here.call("take", {there}); }), "VANTIK:vcos:ForeignObject(test.Thing)");
}

TEST_F(Programs, ObjectOutlivesItsHost) {
    auto alive = std::make_shared<int>(1);
    const std::weak_ptr<int> watched = alive;
    HostClass("test.Thing")
        .method("answer", [alive](std::span<const Array>) { return std::vector<Array>{42.0}; })
        .defineIn(*Home);
    alive.reset();
    Object thing = Home->create("test.Thing");
    Home.reset();
    EXPECT_EQ(thing.call("answer").number(), 42);
    EXPECT_FALSE(watched.expired());
    thing = Object();
    EXPECT_TRUE(watched.expired()) << "classes and callables went with the last object";
}

TEST_F(Programs, ClassOfANewHostHasNothingOfAnOldOne) {
    defineCounter();
    Home.emplace();
    EXPECT_EQ(failureOf([&] { Home->create("test.Counter"); }), "VANTIK:vcos:UnknownClass(test.Counter, none)");
}

TEST_F(Programs, HostsRunOnThreadsOfTheirOwn) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 200;
    std::atomic<int> failures = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([thread, &failures] {
            for (int round = 0; round < kRounds; ++round) {
                Host host;
                double sum = 0;
                HostClass("test.Sum")
                    .method("add", {"double scalar"}, {"double scalar"},
                            [&sum](std::span<const Array> inputs) {
                                sum += inputs[1].number();
                                return std::vector<Array>{sum};
                            })
                    .defineIn(host);
                const Object object = host.create("test.Sum");
                for (int step = 1; step <= 10; ++step) {
                    object.call("add", {Array(static_cast<double>(step * (thread + 1)))});
                }
                try {
                    object.call("ad");
                    ++failures;
                } catch (const vantik::Failure& failure) {
                    failures += failure.identifier() == "VANTIK:vcos:UnknownMethod" ? 0 : 1;
                }
                failures += sum == 55.0 * (thread + 1) ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, 0);
}

TEST_F(Programs, InterruptStaysPendingUntilDropped) {
    EXPECT_FALSE(Home->interruptPending());
    Home->interrupt();
    EXPECT_TRUE(Home->interruptPending());
    Home->clearInterrupt();
    EXPECT_FALSE(Home->interruptPending());
    Home->interruptAfter(std::chrono::nanoseconds(0));
    EXPECT_TRUE(Home->interruptPending());
    Home->clearInterrupt();
    Home->interruptAfter(std::chrono::nanoseconds::max());
    EXPECT_FALSE(Home->interruptPending());
}

TEST_F(Programs, WarningGoesToTheHandlerWithItsText) {
    std::vector<vantik::Message> seen;
    Home->onWarning([&](const vantik::Message& message) { seen.push_back(message); });
    const vantik::detail::ScopeEntry entry(Home->scope());
    matrix::detail::noninlined::vx_array_api::vxWarningMsgId(vantik::detail::HostMessage(
        {std::int64_t{3}, std::string("10"), std::u16string(u"\u00FC")}, "VANTIK:webservices", "PartialFileWarning"));
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].identifier(), "VANTIK:webservices:PartialFileWarning");
    EXPECT_EQ(seen[0].Arguments,
              (std::vector<vantik::MessageArgument>{std::int64_t{3}, std::string("10"), std::string("\xC3\xBC")}));
    EXPECT_NE(seen[0].Text.find("\xC3\xBC"), std::string::npos);
}

TEST(HostComponents, NameLibrariesAndVersions) {
    const std::vector<std::string> components = vantik::hostComponents();
    for (const char* start : {"libcurl ", "ICU ", "Boost 1.", "libproxy 0.", "CppMicroServices "}) {
        EXPECT_TRUE(std::any_of(components.begin(), components.end(), [&](const std::string& line) {
            return line.starts_with(start);
        })) << start;
    }
}
