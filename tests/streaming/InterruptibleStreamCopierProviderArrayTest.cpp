// What a provider's array offers: its first dimension counts as bytes, whatever the class.
#include "streaming/InterruptibleStreamCopier.h"
#include "tests/streaming/CopierFixture.h"

#include <gmock/gmock.h>

#include <string>

using namespace streamingtest;

namespace {

class ProviderArray : public CopierFixture {
protected:
    // What goes up where the provider gives this array and then nothing. `performs` of them take what they can.
    std::string uploadOf(const std::function<vantik::Array()>& make, std::size_t performs = 1) {
        const auto provider = provide("");
        provider->OnRead = [make](int call, std::uint64_t) { return call == 1 ? make() : vantik::Array(); };
        Uploaded.clear();
        willPerform(std::vector<Perform>(performs, sends(1'000'000, 1)));
        InterruptibleStreamCopier copier(Connection);
        copier.sendRequest();
        EXPECT_EQ(provider->Wanted.size(), performs + 1) << "the end was not asked for";
        return Uploaded;
    }
};

TEST_F(ProviderArray, ColumnOffersAllItsBytes) {
    EXPECT_EQ(uploadOf([] { return byteMatrix(5, 1, std::string("ab\0de", 5)); }), std::string("ab\0de", 5));
}

TEST_F(ProviderArray, RowOffersOneByte) {
    EXPECT_EQ(uploadOf([] { return byteMatrix(1, 5, "abcde"); }), "a");
}

TEST_F(ProviderArray, MatrixOffersItsFirstColumnsHeight) {
    EXPECT_EQ(uploadOf([] { return byteMatrix(2, 3, "abcdef"); }), "ab");
}

TEST_F(ProviderArray, OtherClassesOfferTheirFirstBytes) {
    const double value = 0.1;
    EXPECT_EQ(uploadOf([&] {
                  return vantik::Array::doubles({value, 1.0});
              }),
              std::string(reinterpret_cast<const char*>(&value), 1));
    EXPECT_EQ(uploadOf([] { return zeros(7, 1, vxDOUBLE_CLASS); }), std::string(7, '\0'));
    EXPECT_EQ(uploadOf([] { return vantik::Array("text"); }), "t");
    EXPECT_EQ(uploadOf([] { return vantik::Array(true); }), "\x01");
}

TEST_F(ProviderArray, MoreThanWantedIsSent) {
    const std::string content(200'000, 'm');
    EXPECT_EQ(uploadOf([&] { return vantik::Array::bytes(std::string_view(content)); }), content);
}

TEST_F(ProviderArray, NothingInWhateverShapeIsTheEnd) {
    EXPECT_EQ(uploadOf([] { return vantik::Array(); }, 0), "");
    EXPECT_EQ(uploadOf([] { return zeros(0, 1, vxUINT8_CLASS); }, 0), "");
    EXPECT_EQ(uploadOf([] { return zeros(0, 0, vxUINT8_CLASS); }, 0), "");
    EXPECT_EQ(uploadOf([] { return zeros(1, 0, vxUINT8_CLASS); }, 0), ""); // a row without bytes has height 1
    EXPECT_EQ(uploadOf([] { return zeros(9, 0, vxUINT8_CLASS); }, 0), "");
    EXPECT_EQ(uploadOf([] { return vantik::Array(""); }, 0), "");
}

TEST_F(ProviderArray, NoResultAtAllIsTheEnd) {
    vantik::HostClass("test.silent.Provider")
        .derivesFrom("vantik.net.http.io.ContentProvider")
        .method("startInternal", [](std::span<const vantik::Array>) { return std::vector<vantik::Array>(); })
        .method("getDataInternal", [](std::span<const vantik::Array>) { return std::vector<vantik::Array>(); })
        .defineIn(host());
    const vantik::Object provider = host().create("test.silent.Provider");
    Connection.Settings.Provider = sharedOf(provider);
    InterruptibleStreamCopier copier(Connection);
    EXPECT_NO_THROW(copier.sendRequest());
}

TEST_F(ProviderArray, ArrayWithoutPlainBytesFails) {
    const std::string text = "vantik.net.http.io.ContentProvider.getDataInternal returned no bytes";
    EXPECT_EQ(internalErrorOf([&] { uploadOf([] { return vantik::Array::structure({{"A", 1.0}}); }); }), text);
    const auto other = testsupport::makeScriptedConsumer(host());
    const auto provider = provide("");
    provider->OnRead = [&](int, std::uint64_t) -> vantik::Array { return other; };
    InterruptibleStreamCopier copier(Connection);
    EXPECT_EQ(internalErrorOf([&] { copier.sendRequest(); }), text);
    std::string given;
    EXPECT_EQ(Curl.callRead(given, 100), std::size_t{CURL_READFUNC_ABORT});
}

// The bytes on offer are those of the array itself: it stays until the next one takes its place, and no longer.
TEST_F(ProviderArray, OneArrayLivesAtATime) {
    const auto provider = provide(std::string(10 * 16384, 'x'));
    InterruptibleStreamCopier copier(Connection);
    const std::size_t before = vantik::Host::liveArrays();
    std::vector<std::size_t> living;
    const Perform take = [&] {
        sends(65536, 1)();
        living.push_back(vantik::Host::liveArrays() - before);
        return 1;
    };
    willPerform(std::vector<Perform>(10, take));
    copier.sendRequest();
    // The wanted size, the counter of progress and the last array.
    EXPECT_THAT(living, testing::Each(3U));
    EXPECT_EQ(vantik::Host::liveArrays(), before);
}

TEST_F(ProviderArray, OfferPointsIntoTheHostsArray) {
    const auto provider = provide("");
    const vantik::Array content = vantik::Array::bytes(std::string_view("shared bytes"));
    provider->OnRead = [&](int call, std::uint64_t) { return call == 1 ? content : vantik::Array(); };
    InterruptibleStreamCopier copier(Connection);
    willPerform({[&] {
        EXPECT_EQ(static_cast<const void*>(copier.SendData), static_cast<const void*>(content.bytes().data()));
        return sends(100, 1)();
    }});
    copier.sendRequest();
    EXPECT_EQ(Uploaded, "shared bytes");
}

} // namespace
