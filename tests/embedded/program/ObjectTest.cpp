// Objects as a C++ program makes and uses them.
#include "vantik/Object.h"

#include "tests/embedded/program/ProgramFixture.h"

namespace {

class ProgramObjects : public ProgramFixture {
protected:
    ProgramObjects() { defineCounter(*Home); }
};

} // namespace

TEST_F(ProgramObjects, AreMadeAndCalled) {
    const Object counter = Home->create("test.Counter", {Array(40.0)});
    EXPECT_TRUE(counter);
    EXPECT_EQ(counter.className(), "test.Counter");
    EXPECT_TRUE(counter.isA("test.Counter"));
    EXPECT_FALSE(counter.isA("test.Other"));
    EXPECT_EQ(counter.call("add", {Array(2.0)}).number(), 42);
    EXPECT_EQ(counter.call("add", {Array(1.0)}, 1).at(0).number(), 43);
    const std::vector<Array> both = counter.call("both", {}, 2);
    ASSERT_EQ(both.size(), 2u);
    EXPECT_EQ(both[1].text(), "text");
    EXPECT_EQ(counter.call("both", {}, 1).size(), 1u);
    EXPECT_EQ(counter.call("both", {}, 0).size(), 0u);
}

TEST_F(ProgramObjects, FailureNamesClassAndMember) {
    const Object counter = Home->create("test.Counter");
    const std::vector<Array> two = {1.0, 2.0};
    const std::pair<std::function<void()>, const char*> rows[] = {
        {[&] { Home->create("test.Countr"); }, "VANTIK:vcos:UnknownClass(test.Countr, test.Counter)"},
        {[&] { Home->describe("test.Countr"); }, "VANTIK:vcos:UnknownClass(test.Countr, test.Counter)"},
        {[&] { counter.get("Total"); }, "VANTIK:vcos:UnknownProperty(test.Counter, Total, none)"},
        {[&] { counter.set("Total", Array(1.0)); }, "VANTIK:vcos:UnknownProperty(test.Counter, Total, none)"},
        {[&] { counter.call("ad"); }, "VANTIK:vcos:UnknownMethod(test.Counter, ad, add)"},
        {[&] { counter.call("hiddenInternal"); }, "VANTIK:vcos:UnknownMethod(test.Counter, hiddenInternal, none)"},
        {[&] { counter.call("add"); }, "VANTIK:vcos:NotEnoughInputs(test.Counter, add, 1, 0)"},
        {[&] { counter.call("add", two, 0); }, "VANTIK:vcos:TooManyInputs(test.Counter, add, 1, 2)"},
        {[&] { counter.call("add", {"one"}); },
         "VANTIK:vcos:WrongInputType(test.Counter, add, 1, double scalar, 1-by-3 char)"},
        {[&] { counter.call("both", {}, 3); }, "VANTIK:vcos:TooManyOutputs(test.Counter, both, 2, 3)"},
        {[] { Object().get("Total"); }, "VANTIK:vcos:NoObject()"},
        {[] { Object().className(); }, "VANTIK:vcos:NoObject()"},
        {[] { Object(Array(1.0)); }, "VANTIK:vcos:NoObject()"},
    };
    for (const auto& [operation, failure] : rows) {
        EXPECT_EQ(failureOf(operation), failure);
    }
}

TEST_F(ProgramObjects, CopiesNameOneObject) {
    const Object counter = Home->create("test.Counter");
    const Object same(counter.array());
    EXPECT_EQ(same.call("add", {Array(1.0)}).number(), 1);
    EXPECT_EQ(counter.call("add", {Array(1.0)}).number(), 2);
}

TEST_F(ProgramObjects, UnknownEnumerationMemberIsRefused) {
    const std::string className = "vantik.net.http.AuthenticationScheme";
    std::vector<std::string> seen;
    HostClass("test.Sink")
        .method("take", {className + " vector"}, {},
                doing([&](std::span<const Array> inputs) { seen.push_back(inputs[1].className()); }))
        .defineIn(*Home);
    const Object sink = Home->create("test.Sink");
    sink.call("take", {Array::enumeration(className, {"Basic", "NTLM"})});
    sink.call("take", {Array()});
    EXPECT_EQ(seen, (std::vector<std::string>(2, className)));
    for (const char* unknown : {"Digets", "basic", ""}) {
        const Array members = Array::enumeration(className, {"Basic", unknown});
        EXPECT_EQ(failureOf([&] { sink.call("take", {members}); }),
                  "VANTIK:vcos:UnknownMember(" + className + ", " + unknown + ", Basic, Digest, NTLM, Negotiate)");
    }
}

TEST_F(ProgramObjects, ObjectOfAnotherHostIsRefused) {
    HostClass thing("test.Thing");
    thing.method("take", doing([](auto) {}));
    thing.defineIn(*Home);
    Host other;
    thing.defineIn(other);
    const Object here = Home->create("test.Thing");
    const Object there = other.create("test.Thing");
    here.call("take", {here});
    EXPECT_EQ(failureOf([&] { here.call("take", {there}); }), "VANTIK:vcos:ForeignObject(test.Thing)");
}

TEST_F(ProgramObjects, OutliveTheirHost) {
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
