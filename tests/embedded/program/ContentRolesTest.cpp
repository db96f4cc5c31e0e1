// Content providers, content consumers and progress reporters made of callables, called as a client calls them.
#include "embedded/classes/HostClasses.h"
#include "tests/embedded/program/ProgramFixture.h"

#include <limits>

using namespace vantik::detail;

namespace {

class ContentRoles : public ProgramFixture {
protected:
    ArrayOwner provider(const Object& object, const char* method, const Array& input = {}, int wanted = 1) {
        return callAsModule(object, kContentProviderClass, method, input, wanted);
    }
    ArrayOwner consumer(const Object& object, const char* method, const Array& input = {}, int wanted = 1) {
        return callAsModule(object, kContentConsumerClass, method, input, wanted);
    }
};

} // namespace

TEST_F(ContentRoles, ProviderIsRewoundAndRead) {
    std::vector<std::uint64_t> wanted;
    int rewinds = 0;
    const Object object = makeProvider(*Home, {[&] { ++rewinds; },
                                               [&](std::uint64_t most) {
                                                   wanted.push_back(most);
                                                   return Array::bytes("abc");
                                               }});
    EXPECT_TRUE(object.isA(kContentProviderClass));
    provider(object, "startInternal", {}, 0);
    EXPECT_EQ(rewinds, 1);
    const ArrayOwner content = provider(object, "getDataInternal", Array(std::uint64_t{16384}));
    EXPECT_EQ(wanted, std::vector<std::uint64_t>{16384});
    EXPECT_EQ(shapeOf(content), "3-by-1 uint8");
}

TEST_F(ContentRoles, ContentIsAlwaysAColumnOfBytes) {
    Array given;
    const Object object = makeProvider(*Home, {{}, [&](std::uint64_t) { return given; }});
    provider(object, "startInternal", {}, 0); // nothing to rewind
    const auto get = [&] { return provider(object, "getDataInternal", Array(std::uint64_t{1})); };
    EXPECT_EQ(elementCount(get().get()), 0u) << "no value is the end";
    given = Array::bytes("");
    EXPECT_EQ(elementCount(get().get()), 0u);
    given = Array::doubles({97, 98, 99});
    const ArrayOwner row = get();
    EXPECT_EQ(shapeOf(row), "3-by-1 uint8") << "the client counts the rows";
    EXPECT_EQ(std::string_view(elements<char>(row), 3), "abc");
    given = Array("text");
    EXPECT_THAT(failureOf([&] { get(); }), testing::StartsWith("VANTIK:vcos:WrongOutputType("));
}

TEST_F(ContentRoles, ConsumerHearsOfEverything) {
    std::vector<std::string> events;
    const auto text = [](std::span<const std::byte> bytes) { return std::string(vantik::asText(bytes)); };
    std::optional<double> taken = 2;
    const Object object =
        makeConsumer(*Home, {[&] {
                                 events.push_back("start");
                                 return std::optional<double>(100);
                             },
                             [&](std::span<const std::byte> piece) {
                                 events.push_back("write " + text(piece));
                                 return taken;
                             },
                             [&] { events.push_back("close"); }, [&] { events.push_back("interrupted"); },
                             [&](std::span<const std::byte> saved) { events.push_back("saved " + text(saved)); }});
    EXPECT_EQ(vx::vxGetScalar(consumer(object, "startInternal").get()), 100);
    EXPECT_EQ(vx::vxGetScalar(consumer(object, "putDataInternal", Array::bytes("abc")).get()), 2);
    taken.reset();
    const ArrayOwner stop = consumer(object, "putDataInternal", Array::bytes("d"));
    ASSERT_TRUE(stop);
    EXPECT_TRUE(vx::vxIsEmpty(stop.get()));
    consumer(object, "interruptInternal", {}, 0);
    consumer(object, "closeInternal", {}, 0);
    consumer(object, "savePayloadInternal", Array::bytes(""), 0);
    EXPECT_EQ(events, (std::vector<std::string>{"start", "write abc", "write d", "interrupted", "close", "saved "}));
}

TEST_F(ContentRoles, WhatWasTakenIsAnyNumberButNotATruth) {
    vantik::Taken given = std::nullopt;
    const Object object = makeConsumer(*Home, {.write = [&](std::span<const std::byte>) { return given; }});
    const auto answer = [&](vantik::Taken taken) {
        given = taken;
        const ArrayOwner result = consumer(object, "putDataInternal", Array::bytes("abc"));
        return vx::vxIsEmpty(result.get()) ? -1.0 : vx::vxGetScalar(result.get());
    };
    EXPECT_EQ(answer(std::size_t{3}), 3);
    EXPECT_EQ(answer(2), 2);
    EXPECT_EQ(answer(1.5), 1.5);
    EXPECT_EQ(answer(std::optional<double>(0)), 0);
    EXPECT_EQ(answer(std::nullopt), -1);
    EXPECT_EQ(answer(std::optional<double>()), -1);
    static_assert(!std::is_convertible_v<bool, vantik::Taken>); // true would end the copy after one byte
    // The other callables may be left out.
    const ArrayOwner size = consumer(object, "startInternal");
    ASSERT_TRUE(size);
    EXPECT_TRUE(vx::vxIsEmpty(size.get()));
    EXPECT_NO_THROW(consumer(object, "interruptInternal", {}, 0));
    EXPECT_NO_THROW(consumer(object, "closeInternal", {}, 0));
    EXPECT_NO_THROW(consumer(object, "savePayloadInternal", Array::bytes("abc"), 0));
}

TEST_F(ContentRoles, ReporterAnswersEveryClient) {
    std::vector<std::uint64_t> seen;
    const Object object = makeProgressReporter(*Home, [&](std::uint64_t bytes) {
        seen.push_back(bytes);
        return bytes < 10;
    });
    constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
    for (const std::uint64_t bytes : {std::uint64_t{5}, kMost}) {
        const ArrayOwner answer =
            callAsModule(object, object.className().c_str(), "update", bytes, 1, COSGetPublicClient());
        EXPECT_EQ(shapeOf(answer), "1-by-1 logical");
        EXPECT_EQ(*vx::vxGetLogicals(answer.get()), bytes < 10);
    }
    EXPECT_EQ(seen, (std::vector<std::uint64_t>{5, kMost}));
    EXPECT_FALSE(object.call("update", {Array(10.0)}).truth());
}

TEST_F(ContentRoles, MissingCallableIsRefused) {
    EXPECT_EQ(failureOf([&] { makeProvider(*Home, {}); }),
              "VANTIK:vcos:NoCallable(vantik.net.http.io.ContentProvider, read)");
    EXPECT_EQ(failureOf([&] { makeConsumer(*Home, {}); }),
              "VANTIK:vcos:NoCallable(vantik.net.http.io.ContentConsumer, write)");
    EXPECT_EQ(failureOf([&] { makeProgressReporter(*Home, {}); }),
              "VANTIK:vcos:NoCallable(vantik.net.http.internal.ProgressReporter, update)");
}

TEST_F(ContentRoles, AnyNumberOfObjectsNeedsOneHiddenClass) {
    const std::vector<std::string> before = Home->classNames();
    std::vector<Object> objects;
    for (int number = 0; number < 100; ++number) {
        objects.push_back(makeProgressReporter(*Home, [number](std::uint64_t) { return number % 2 == 0; }));
    }
    EXPECT_TRUE(objects[0].call("update", {Array(1.0)}).truth()) << "each has its own callable";
    EXPECT_FALSE(objects[1].call("update", {Array(1.0)}).truth());
    EXPECT_EQ(Home->classNames(), before);
    EXPECT_EQ(failureOf([&] { Home->create(objects[0].className()); }),
              "VANTIK:vcos:NotConstructible(vantik.embedded.ProgressReporter)");
}

TEST_F(ContentRoles, WhatACallableRaisesIsCarried) {
    const Object reporter = makeProgressReporter(*Home, [](std::uint64_t) -> bool { throw std::out_of_range("mine"); });
    EXPECT_THROW(reporter.call("update", {Array(1.0)}), std::out_of_range);
    const Object source = makeProvider(*Home, {{}, [](std::uint64_t) -> Array { throw 7; }});
    EXPECT_THROW(provider(source, "getDataInternal", Array(std::uint64_t{1})),
                 foundation::core::except::IUserException);
}

TEST_F(ContentRoles, NeedTheBaseClassOfTheirRole) {
    Home->scope()->Classes.removeClass(kContentConsumerClass);
    EXPECT_EQ(
        failureOf([&] { makeConsumer(*Home, {.write = [](std::span<const std::byte>) { return std::nullopt; }}); }),
        "VANTIK:vcos:UnknownClass(vantik.net.http.io.ContentConsumer, none)");
}
