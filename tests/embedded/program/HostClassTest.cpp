// Classes that a program describes with callables.
#include "vantik/HostClass.h"

#include "tests/embedded/program/ProgramFixture.h"

using ProgramClasses = ProgramFixture;

TEST_F(ProgramClasses, DeclaredInputsArriveConverted) {
    std::vector<std::string> classes;
    HostClass("test.Sink")
        .method("take", {"double scalar", "int32 scalar", "uint64 scalar", "logical scalar", "unicodeString", "any"},
                {}, doing([&](std::span<const Array> inputs) {
                    for (const Array& input : inputs) {
                        classes.push_back(input.className());
                    }
                }))
        .defineIn(*Home);
    Home->create("test.Sink").call("take", {std::int32_t{1}, 2.0, true, 0.0, "text", Array()});
    EXPECT_EQ(classes, (std::vector<std::string>{"test.Sink", "double", "int32", "uint64", "logical", "char", ""}));
}

TEST_F(ProgramClasses, DeclaredResultsAreCheckedAndConverted) {
    Array result;
    const vantik::Method deliver = [&](std::span<const Array>) { return std::vector<Array>{result}; };
    HostClass("test.Source")
        .method("int32", {}, {"int32 scalar"}, deliver)
        .method("text", {}, {"unicodeString"}, deliver)
        .method("bytes", {}, {"uint8 vector"}, deliver)
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

TEST_F(ProgramClasses, MoreResultsThanWantedAreDropped) {
    const std::vector<Array> three{1.0, 2.0, 3.0};
    HostClass("test.Source").method("three", [&](std::span<const Array>) { return three; }).defineIn(*Home);
    const Object source = Home->create("test.Source");
    EXPECT_EQ(source.call("three").number(), 1);
    EXPECT_EQ(source.call("three", {}, 2).size(), 2u);
    EXPECT_EQ(source.call("three", {}, 5).size(), 3u) << "what is not there is missing";
}

TEST_F(ProgramClasses, InputThatIsKeptDoesNotChange) {
    std::vector<Array> kept;
    HostClass("test.Keeper")
        .method("keep", doing([&](std::span<const Array> inputs) { kept.push_back(inputs[1]); }))
        .defineIn(*Home);
    const Object keeper = Home->create("test.Keeper");
    Array counter(std::uint64_t{0});
    auto* value = static_cast<std::uint64_t*>(vx::vxGetData(const_cast<vxArray_tag*>(counter.handle())));
    for (std::uint64_t number = 1; number <= 2; ++number) {
        *value = number; // the caller uses one scalar for all its calls
        callAsModule(keeper, "test.Keeper", "keep", counter, 0);
    }
    EXPECT_EQ(kept[0].number(), 1);
    EXPECT_EQ(kept[1].number(), 2);
}

TEST_F(ProgramClasses, BadDefinitionIsRefused) {
    const vantik::Method nothing = doing([](auto) {});
    HostClass("test.There").defineIn(*Home);
    const std::pair<std::function<void()>, const char*> rows[] = {
        {[&] { HostClass("Counter").defineIn(*Home); }, "InvalidName(Counter)"},
        {[&] { HostClass("test..Counter").defineIn(*Home); }, "InvalidName(test..Counter)"},
        {[&] { HostClass("test.A").method("run", {"flaot scalar!"}, {}, nothing).defineIn(*Home); },
         "UnknownType(test.A, run, flaot scalar!)"},
        {[&] { HostClass("test.A").method("run", nullptr).defineIn(*Home); }, "NoCallable(test.A, run)"},
        {[&] { HostClass("test.There").defineIn(*Home); }, "ClassExists(test.There)"},
        {[&] { HostClass("vantik.net.http.io.ContentProvider").defineIn(*Home); },
         "ClassExists(vantik.net.http.io.ContentProvider)"},
    };
    for (const auto& [define, failure] : rows) {
        EXPECT_EQ(failureOf(define), "VANTIK:vcos:" + std::string(failure));
    }
}

TEST_F(ProgramClasses, OneDescriptionServesSeveralHosts) {
    Host other;
    HostClass thing("test.Thing");
    thing.method("answer", [](std::span<const Array>) { return std::vector<Array>{42.0}; });
    for (Host* host : {&*Home, &other}) {
        thing.defineIn(*host);
        EXPECT_EQ(host->create("test.Thing").call("answer").number(), 42);
    }
}

TEST_F(ProgramClasses, DerivedClassUsesWhatItInherits) {
    defineCounter(*Home);
    HostClass("test.Loud")
        .derivesFrom("test.Counter")
        .method("both", [](std::span<const Array>) { return std::vector<Array>{"loud"}; })
        .defineIn(*Home);
    const Object loud = Home->create("test.Loud", {Array(5.0)});
    EXPECT_TRUE(loud.isA("test.Counter"));
    EXPECT_EQ(loud.call("add", {Array(1.0)}).number(), 6) << "constructor and method of the base class";
    EXPECT_EQ(loud.call("both").text(), "loud");
}
