// The header lists as a property of any list of fields.
#include "tests/support/host/PropertyTexts.h"
#include "tests/transfer/ConnectionFixture.h"

#include <boost/multiprecision/cpp_int.hpp>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cctype>
#include <optional>

namespace {

using Field = std::pair<std::string, std::string>;
using Fields = std::vector<Field>;
using Lines = std::vector<std::string>;

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return text;
}

bool isNamed(const Field& field, const std::string& lowerName) {
    return lower(field.first) == lowerName;
}

// White space, a sign, digits and nothing behind them, within 64 bits.
bool isWholeNumber(const std::string& value) {
    const std::size_t sign = value.find_first_not_of(" \t\n\v\f\r");
    if (sign == std::string::npos) {
        return false;
    }
    const bool negative = value[sign] == '-';
    const std::string digits = value.substr(negative || value[sign] == '+' ? sign + 1 : sign);
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    // A leading nought would make the number octal to the parser of whole numbers.
    const std::size_t first = digits.find_first_not_of('0');
    const boost::multiprecision::cpp_int number(first == std::string::npos ? "0" : digits.substr(first));
    const boost::multiprecision::cpp_int bound = boost::multiprecision::cpp_int(1) << 63;
    return negative ? number <= bound : number < bound;
}

// What a send is to make of the caller's fields.
struct Expected {
    Lines Headers;
    Lines Proxy;
    std::string Cookie;
    std::optional<std::string> BadLength;
};

Expected expectedOf(Fields fields, bool decode, std::optional<std::size_t> postBytes) {
    for (const char* name : {decode ? "Accept-Encoding" : nullptr, "Accept"}) {
        if (name == nullptr) {
            continue;
        }
        const auto own =
            std::find_if(fields.begin(), fields.end(), [&](const Field& field) { return isNamed(field, lower(name)); });
        if (own == fields.end() || own->second.empty()) {
            fields.emplace_back(name, "");
        }
    }
    Expected expected;
    for (const auto& [name, value] : fields) {
        if (lower(name) == "cookie" && !value.empty()) {
            expected.Cookie += value + "; ";
        } else {
            Lines& list = lower(name) == "proxy-connection" ? expected.Proxy : expected.Headers;
            list.push_back(value.empty() ? name + ":" : name + ": " + value);
        }
    }
    const auto length =
        std::find_if(fields.begin(), fields.end(), [](const Field& field) { return isNamed(field, "content-length"); });
    const bool ownLength = length != fields.end();
    if (ownLength && !isWholeNumber(length->second)) {
        expected.BadLength = length->second;
    }
    if (!ownLength && postBytes) {
        expected.Headers.push_back("Content-Length: " + std::to_string(*postBytes));
    }
    const bool ownTransferEncoding = std::any_of(
        fields.begin(), fields.end(), [](const Field& field) { return isNamed(field, "transfer-encoding"); });
    if ((ownLength || postBytes) && !ownTransferEncoding) {
        expected.Headers.push_back("Transfer-Encoding:");
    }
    return expected;
}

rc::Gen<std::string> valueText() {
    return rc::gen::oneOf(rc::gen::just(std::string()), rc::gen::element<std::string>("a=1", " x ", "b: c", "d;e=f; "),
                          rc::gen::string<std::string>());
}

rc::Gen<std::string> lengthText() {
    const auto number = rc::gen::map(rc::gen::resize(rc::kNominalSize, rc::gen::arbitrary<std::int64_t>()),
                                     [](std::int64_t value) { return std::to_string(value); });
    const auto decorated = rc::gen::apply([](const std::string& before, const std::string& digits,
                                             const std::string& behind) { return before + digits + behind; },
                                          rc::gen::element<std::string>("", "", " ", "\t+", "-", "+-", "0"),
                                          rc::gen::nonEmpty(propertytexts::textOf("0123456789")),
                                          rc::gen::element<std::string>("", "", "", " ", "x", ".0"));
    return rc::gen::weightedOneOf<std::string>(
        {{6, number},
         {3, decorated},
         {1, propertytexts::textOf("0189+- x")},
         {1, rc::gen::element<std::string>("9223372036854775807", "9223372036854775808", "-9223372036854775808",
                                           "-9223372036854775809")}});
}

rc::Gen<Field> field() {
    const auto plain = rc::gen::pair(
        rc::gen::element<std::string>("X-A", "x-a", "X-B", "Accept", "ACCEPT", "accept-encoding", "User-Agent",
                                      "Cookie", "COOKIE", "cookie", "Proxy-Connection", "proxy-CONNECTION",
                                      "Transfer-Encoding", "TRANSFER-ENCODING", "Cookies", "Content-Lengt", ""),
        valueText());
    const auto length = rc::gen::pair(rc::gen::element<std::string>("Content-Length", "content-LENGTH"), lengthText());
    return rc::gen::weightedOneOf<Field>({{8, plain}, {1, length}});
}

// NULs end a text on its way through libcurl's lists, so none is given.
rc::Gen<Fields> fieldList() {
    return rc::gen::map(rc::gen::container<Fields>(field()), [](Fields fields) {
        for (auto& [name, value] : fields) {
            std::erase(value, '\0');
        }
        return fields;
    });
}

class HeaderListProperty : public OpenConnectionFixture {
protected:
    void sendAndCompare(const Fields& fields, std::optional<std::size_t> postBytes) {
        const Expected expected = expectedOf(fields, connection.Settings.Decode, postBytes);
        const std::string outcome = sendWith(fields);
        const CurlCall* headers = curl.lastOption(CURLOPT_HTTPHEADER);
        if (expected.BadLength) {
            RC_ASSERT(outcome == internalError("Bad Content-Length value " + *expected.BadLength));
            RC_ASSERT(headers == nullptr);
            RC_ASSERT(curl.count(CurlFunction::MultiPerform) == 0U);
            return;
        }
        RC_ASSERT(outcome == "nothing");
        RC_ASSERT(headers != nullptr);
        RC_ASSERT(headers->Lines == expected.Headers);
        const CurlCall* proxy = curl.lastOption(CURLOPT_PROXYHEADER);
        RC_ASSERT((proxy == nullptr ? Lines() : proxy->Lines) == expected.Proxy);
        const CurlCall* cookie = curl.lastOption(CURLOPT_COOKIE);
        RC_ASSERT((cookie == nullptr) == expected.Cookie.empty());
        RC_ASSERT((cookie == nullptr ? "" : cookie->Text) == expected.Cookie);
    }
};

RC_GTEST_FIXTURE_PROP(HeaderListProperty, ListsFollowTheFieldsOfEachSend, ()) {
    connection.Settings.Decode = *rc::gen::arbitrary<bool>();
    const bool post = *rc::gen::arbitrary<bool>();
    connection.Settings.HTTPOptionsMode = !post;
    const int sends = *rc::gen::inRange(1, 4);
    for (int send = 0; send < sends; ++send) {
        std::optional<std::size_t> bytes;
        if (post) {
            connection.setRequestMethod(*rc::gen::element<std::string>("POST", "PUT", "PATCH"));
            bytes = *rc::gen::inRange<std::size_t>(0, 50);
            connection.Settings.PostData = std::u16string(*bytes, u'x');
        }
        const Fields fields = *fieldList();
        sendAndCompare(fields, bytes);
        reopen(); // behind a failed send, too
        RC_ASSERT(connection.Settings.RequestFields.empty());
    }
}

// Removing takes away every field of the name and nothing else, and the name comes last, with no value.
RC_GTEST_FIXTURE_PROP(HeaderListProperty, RemovalLeavesTheOthersInOrder, ()) {
    const Fields fields = *fieldList();
    const std::string name = *rc::gen::element<std::string>("x-A", "COOKIE", "Accept", "", "Missing");
    for (const auto& [each, value] : fields) {
        connection.addField(each, value);
    }
    connection.removeField(name);
    Fields expected;
    std::copy_if(fields.begin(), fields.end(), std::back_inserter(expected),
                 [&](const Field& each) { return !isNamed(each, lower(name)); });
    expected.emplace_back(name, "");
    RC_ASSERT(Fields(connection.Settings.RequestFields.begin(), connection.Settings.RequestFields.end()) == expected);
}

} // namespace
