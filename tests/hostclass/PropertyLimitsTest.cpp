// Values at the edges of what a property or a port takes, through the class, and what is left after one that is
// refused.
#include "errors/HTTPException.h"
#include "host/Messages.h"
#include "tests/hostclass/ClassFixture.h"
#include "tests/hostclass/HostCalls.h"
#include "tests/support/host/FailureText.h"
#include "transfer/CurlSingleton.h"

#include <boost/numeric/conversion/cast.hpp>

#include <bit>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using vantik::Array;
using vantik::Object;

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
const double kNaN = std::nan("");
const double kSmallest = std::numeric_limits<double>::denorm_min();
const double kLargest = std::numeric_limits<double>::max();

double below(double value) {
    return std::nextafter(value, -kInfinity);
}
double above(double value) {
    return std::nextafter(value, kInfinity);
}

struct Taken {
    double Given;
    double Stored;
};

struct Refused {
    double Given;
    const char* Text;
};
constexpr const char* kTooLarge = "bad numeric conversion: positive overflow";
constexpr const char* kTooSmall = "bad numeric conversion: negative overflow";

class Limits : public ClassFixture {
protected:
    Object Adapter = makeAdapter();
    HTTPConnection& connection() { return native(Adapter).Connection; }
    void openThroughProxy(const char* host, Array port) {
        Adapter.call("openProxyConnection", {Array::structure({{"Host", host}, {"Port", std::move(port)}})});
    }
};

} // namespace

TEST_F(Limits, ResponseCodesThatFitAreRoundedTowardsZero) {
    for (const Taken& row : {Taken{2147483647.0, 2147483647.0},
                             {2147483647.9, 2147483647.0},
                             {below(2147483648.0), 2147483647.0},
                             {-2147483648.0, -2147483648.0},
                             {above(-2147483649.0), -2147483648.0},
                             {200.9, 200.0},
                             {0.0, 0.0},
                             {-0.0, 0.0},
                             {-0.5, 0.0},
                             {below(1.0), 0.0},
                             {above(-1.0), 0.0},
                             {-1.0, -1.0},
                             {kSmallest, 0.0},
                             {-kSmallest, 0.0},
                             {kNaN, -2147483648.0}}) { // passes both range tests
        Adapter.set("ResponseCode", Array(row.Given));
        const double stored = Adapter.get("ResponseCode").number();
        EXPECT_EQ(stored, row.Stored) << row.Given;
        EXPECT_FALSE(std::signbit(stored) && stored == 0.0) << row.Given;
    }
}

TEST_F(Limits, ResponseCodesThatDoNotFitAreRefusedAndTheOldOneStays) {
    for (const Refused& row : {Refused{2147483648.0, kTooLarge},
                               {above(2147483648.0), kTooLarge},
                               {kLargest, kTooLarge},
                               {kInfinity, kTooLarge},
                               {-2147483649.0, kTooSmall},
                               {below(-2147483649.0), kTooSmall},
                               {-kLargest, kTooSmall},
                               {-kInfinity, kTooSmall}}) {
        Adapter.set("ResponseCode", Array(204.0));
        const vantik::Message failure = failureOf([&] { Adapter.set("ResponseCode", Array(row.Given)); });
        EXPECT_EQ(failure.identifier(), "VANTIK:host:Failure"); // no message identifier of its own
        EXPECT_EQ(failure.Text, row.Text) << row.Given;
        EXPECT_EQ(Adapter.get("ResponseCode").number(), 204.0) << row.Given;
    }
}

TEST_F(Limits, ProxyPortsThatFitAreRoundedTowardsZero) {
    for (const Taken& row : {Taken{65535.0, 65535},
                             {65535.9, 65535},
                             {below(65536.0), 65535},
                             {443.999, 443},
                             {0.0, 0},
                             {-0.0, 0},
                             {-0.5, 0},
                             {above(-1.0), 0},
                             {kSmallest, 0},
                             {kNaN, 0}}) { // passes both range tests
        connection().Settings.ProxyPort = 7;
        openThroughProxy("proxy.example", row.Given);
        EXPECT_EQ(connection().Settings.ProxyPort, row.Stored) << row.Given;
        EXPECT_EQ(connection().Settings.ProxyHost, "proxy.example");
    }
}

TEST_F(Limits, ProxyPortsThatDoNotFitAreRefusedBeforeTheOpen) {
    Adapter.set("URL", "http://127.0.0.1:9/");
    for (const Refused& row : {Refused{65536.0, kTooLarge},
                               {above(65536.0), kTooLarge},
                               {kLargest, kTooLarge},
                               {kInfinity, kTooLarge},
                               {-1.0, kTooSmall},
                               {below(-1.0), kTooSmall},
                               {-kLargest, kTooSmall},
                               {-kInfinity, kTooSmall}}) {
        connection().Settings.ProxyHost = "before";
        connection().Settings.ProxyPort = 7;
        const vantik::Message failure = failureOf([&] { openThroughProxy("after", row.Given); });
        EXPECT_EQ(failure.identifier(), "VANTIK:host:Failure");
        EXPECT_EQ(failure.Text, row.Text) << row.Given;
        EXPECT_EQ(connection().Settings.ProxyHost, "after");
        EXPECT_EQ(connection().Settings.ProxyPort, 7);
        EXPECT_FALSE(connection().Transfer.Opened);
        EXPECT_FALSE(connection().Handles->ConnectionOpen);
    }
    openThroughProxy("after", 8080.0);
    EXPECT_TRUE(connection().Transfer.Opened);
    EXPECT_EQ(connection().Settings.ProxyPort, 8080);
}

TEST_F(Limits, ProxyPortIsTheFirstNumberOfAnyArrayAndEightyForAnyEmptyOne) {
    struct Row {
        const char* Name;
        Array Port;
        int Stored;
    };
    for (const Row& row : {Row{"int32", Array(std::int32_t{3128}), 3128},
                           {"uint64", Array(std::uint64_t{65535}), 65535},
                           {"logical", Array(true), 1},
                           {"row", Array::doubles({8080, 1}), 8080},
                           {"no class", Array(), 80},
                           {"empty double", Array::doubles({}), 80},
                           {"empty char", Array(""), 80},
                           {"empty bytes", Array::bytes(std::string_view()), 80},
                           {"empty struct", Array::structures({"A"}, {}), 80}}) {
        connection().Settings.ProxyPort = 7;
        openThroughProxy("p", row.Port);
        EXPECT_EQ(connection().Settings.ProxyPort, row.Stored) << row.Name;
    }
}

TEST_F(Limits, TimeoutsAreKeptBitByBit) {
    const std::vector<double> odd = {kNaN, -kInfinity, -0.0, kSmallest, kLargest, -1.0, 0.0, kInfinity};
    for (std::size_t first = 0; first < odd.size(); ++first) {
        std::vector<double> given;
        for (std::size_t i = 0; i < 4; ++i) {
            given.push_back(odd[(first + i) % odd.size()]);
        }
        Adapter.set("TimeoutInMilliseconds", Array::doubles(given));
        const std::vector<double> stored = Adapter.get("TimeoutInMilliseconds").doubles();
        ASSERT_EQ(stored.size(), 4u);
        for (std::size_t i = 0; i < 4; ++i) {
            EXPECT_EQ(std::bit_cast<std::uint64_t>(stored[i]), std::bit_cast<std::uint64_t>(given[i])) << given[i];
        }
    }
}

TEST_F(Limits, NoTimeoutsAtAllLeaveTheDefaults) {
    for (const Array& nothing : {Array(), Array::doubles({}), Array("")}) {
        Adapter.set("TimeoutInMilliseconds", nothing);
        EXPECT_EQ(Adapter.get("TimeoutInMilliseconds").doubles(),
                  (std::vector<double>{5000, kInfinity, kInfinity, kInfinity}));
    }
}

TEST_F(Limits, NumbersThatTheirSlotLacksNeverReachTheLibrary) {
    Adapter.set("Debug", Array(std::int32_t{0}));
    Adapter.set("ProviderBufferSize", Array(std::uint64_t{5}));
    for (const double value : {2147483648.0, -2147483649.0, 0.5, kNaN, kInfinity}) {
        EXPECT_EQ(failureOf([&] { Adapter.set("Debug", Array(value)); }).identifier(), "VANTIK:vcos:WrongPropertyType");
    }
    for (const double value : {18446744073709551616.0, -1.0, 0.5, kNaN, kInfinity}) {
        EXPECT_EQ(failureOf([&] { Adapter.set("ProviderBufferSize", Array(value)); }).identifier(),
                  "VANTIK:vcos:WrongPropertyType");
    }
    EXPECT_EQ(Adapter.get("Debug").number(), 0.0);
    EXPECT_EQ(Adapter.get("ProviderBufferSize").unsignedInteger(), 5u);
}

TEST_F(Limits, TextThatCannotBeEncodedIsKeptForTheHostAndTheConnectionKeepsTheOldOne) {
    struct Row {
        const char* Property;
        std::string* Stored;
        const char16_t* Lacking;
        const char* Encoding;
    };
    RequestSettings& settings = connection().Settings;
    for (const Row& row : {Row{"Username", &settings.Username, u"\u4E2D", "windows-1252"},
                           {"Password", &settings.Password, u"\u4E2D", "windows-1252"},
                           {"ProxyUsername", &settings.ProxyUsername, u"\u4E2D", "windows-1252"},
                           {"ProxyPassword", &settings.ProxyPassword, u"\u4E2D", "windows-1252"},
                           {"ContentType", &connection().Metadata.ContentType, u"\u00E9", "ascii"},
                           {"ContentEncoding", &connection().Metadata.ContentEncoding, u"\u00E9", "ascii"},
                           {"RequestMethod", &settings.RequestMethod, u"\u00E9", "ascii"}}) {
        Adapter.set(row.Property, "OLD");
        const vantik::Message failure = failureOf([&] { Adapter.set(row.Property, Array(row.Lacking)); });
        EXPECT_EQ(failure.identifier(), "VANTIK:webservices:EncodingFailure") << row.Property;
        ASSERT_EQ(failure.Arguments.size(), 3u);
        EXPECT_EQ(failure.Arguments[0], vantik::MessageArgument(Array(row.Lacking).text()));
        EXPECT_EQ(failure.Arguments[1], vantik::MessageArgument(std::string(row.Encoding)));
        EXPECT_EQ(*row.Stored, "OLD") << row.Property;
    }
    // Those that are read back from the adapter show what the host last set.
    for (const char* property : {"Username", "Password", "ProxyUsername", "ProxyPassword"}) {
        EXPECT_EQ(Adapter.get(property).wideText(), u"\u4E2D") << property;
    }
    EXPECT_EQ(Adapter.get("RequestMethod").wideText(), u"\u00E9");
    // Those that are read from the connection show what it has.
    EXPECT_EQ(Adapter.get("ContentType").text(), "OLD");
    EXPECT_EQ(Adapter.get("ContentEncoding").text(), "OLD");
}

TEST_F(Limits, RedirectThatCannotBeEncodedLeavesTheOldTarget) {
    Adapter.set("URL", "http://a/b/c/d;p?q");
    Adapter.set("RedirectURL", "../g");
    EXPECT_EQ(failureOf([&] { Adapter.set("RedirectURL", Array(u"\u00E9")); }).identifier(),
              "VANTIK:webservices:EncodingFailure");
    EXPECT_EQ(Adapter.get("RedirectURL").text(), "http://a/b/g");
}

TEST_F(Limits, UrlThatIsRefusedLeavesTheOldOne) {
    Adapter.set("URL", "http://first.example/p");
    for (const auto& [refused, identifier] : {std::pair{"no scheme", "VANTIK:webservices:MalformedURL"},
                                              {"http://a b/", "VANTIK:webservices:MalformedURL"},
                                              {"http://h:99999/", "VANTIK:webservices:MalformedURL"},
                                              {"ftp://h/", "VANTIK:webservices:ExpectedProtocol"}}) {
        EXPECT_EQ(failureOf([&, url = refused] { Adapter.set("URL", url); }).identifier(), identifier) << refused;
        EXPECT_EQ(Adapter.get("URL").text(), "http://first.example/p") << refused;
    }
    Adapter.set("URL", "http://second.example/");
    EXPECT_EQ(Adapter.get("URL").text(), "http://second.example/");
}

// The setter has a translation of its own, narrower than that of the transfer.
TEST_F(Limits, UrlSetterTranslatesTwoFailuresAndPassesEveryOther) {
    struct Row {
        std::function<void()> Raise;
        const char* Seen;
    };
    using namespace webservices;
    const std::vector<Row> rows = {
        {[] { throw HTTPURLException("u"); }, "VANTIK:webservices:MalformedURL[U:u]"},
        {[] { throw HTTPDNSException("h"); }, "VANTIK:webservices:UnknownHost[U:h]"},
        {[] { throw HTTPFileNotFoundException("f"); }, "HTTPFileNotFoundException[f]"},
        {[] { throw std::length_error("l"); }, "std::length_error[l]"},
    };
    const std::u16string url = u"http://h/";
    for (const Row& row : rows) {
        HostCalls calls;
        std::u16string given;
        calls.OnSetUrl = [&](const std::u16string& text) {
            given = text;
            row.Raise();
        };
        EXPECT_EQ(testsupport::failureText([&] { accessorsOf<Text>("URL").Setter(native(Adapter), &url); }), row.Seen);
        EXPECT_EQ(given, url);
    }
}

TEST_F(Limits, NullTextsCountAsEmptyOnes) {
    Adapter.set("URL", "http://h/");
    Adapter.set("RedirectURL", "/x");
    for (const char* property : {"URL", "CertificateFilename", "ContentType", "ContentEncoding", "ProxyUsername",
                                 "ProxyPassword", "Username", "Password", "RedirectURL", "RequestMethod", "PostData"}) {
        Adapter.set(property, property == std::string("URL") ? "http://h/" : "text");
        Adapter.set(property, Array()); // reaches the setter as null
        EXPECT_EQ(Adapter.get(property).text(), "") << property;
    }
    EXPECT_EQ(connection().Settings.RequestMethod, "GET");
}
