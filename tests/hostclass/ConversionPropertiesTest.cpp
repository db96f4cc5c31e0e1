// Values of any content and shape on their way through the class.
#include "tests/hostclass/ClassFixture.h"

#include <rapidcheck/gtest.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <iterator>
#include <list>
#include <string>
#include <utility>
#include <vector>

namespace vx = matrix::detail::noninlined::vx_array_api;
using vantik::Array;
using vantik::Object;

namespace {

class Conversions : public ClassFixture {
protected:
    Object Adapter = makeAdapter(true);
    HTTPConnection& connection() { return native(Adapter).Connection; }
};

using Bytes = std::vector<std::uint8_t>;
using Shape = std::vector<std::size_t>;

// A row or a column of numbers, as a host may have them.
template <class Element>
Array vectorOf(const std::vector<Element>& elements, vxClassID classId, bool row) {
    const std::size_t count = elements.size();
    HostArray array(vx::vxCreateNumericMatrix(row ? 1 : count, row ? count : 1, classId, vxREAL));
    std::copy(elements.begin(), elements.end(), static_cast<Element*>(vx::vxGetData(array.get())));
    return Array::adopt(array.release());
}

Array bytesAs(const Bytes& bytes, bool row) {
    return vectorOf(bytes, vxUINT8_CLASS, row);
}

Bytes bytesIn(const Array& array) {
    const auto* data = reinterpret_cast<const std::uint8_t*>(array.bytes().data());
    return Bytes(data, data + array.size());
}

// Text of a stored line, characters that matter to its reading more often than others.
rc::Gen<std::string> lineText() {
    const auto character = rc::gen::weightedOneOf<char>(
        {{6, rc::gen::inRange<char>(0x21, 0x7F)}, {2, rc::gen::element(':', ' ', '\t')}, {1, rc::gen::just('\0')}});
    return rc::gen::container<std::string>(character);
}

std::string upToNul(const std::string& text) {
    return text.c_str();
}

// Reads a line character by character: the name goes up to the first colon, the blanks behind it are dropped.
std::pair<std::string, std::string> readLine(const std::string& line) {
    std::pair<std::string, std::string> field;
    enum { Name, Blanks, Value } place = Name;
    for (const char c : line) {
        if (place == Name && c == ':') {
            place = Blanks;
        } else if (place == Name) {
            field.first += c;
        } else if (place == Value || c != ' ') {
            place = Value;
            field.second += c;
        }
    }
    return {upToNul(field.first), upToNul(field.second)};
}

using Fields = std::vector<std::pair<std::string, std::string>>;

Fields fieldsOf(const Array& fields) {
    Fields list;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        list.emplace_back(fields.field("Name", i).text(), fields.field("Value", i).text());
    }
    return list;
}

// A name or a value given by a program: plain, or now and then empty or outside ASCII.
rc::Gen<std::u16string> givenText(bool plain) {
    const auto ascii = rc::gen::map(rc::gen::inRange(0x01, 0x80), [](int c) { return static_cast<char16_t>(c); });
    const auto wide = rc::gen::element(u'\u0080', u'\u00E9', u'\u4E2D', u'\uFFFD');
    const auto whole = rc::gen::nonEmpty(rc::gen::container<std::u16string>(ascii));
    if (plain) {
        return whole;
    }
    const auto mixed = rc::gen::container<std::u16string>(rc::gen::weightedOneOf<char16_t>({{40, ascii}, {1, wide}}));
    return rc::gen::weightedOneOf<std::u16string>({{8, whole}, {1, rc::gen::just(std::u16string())}, {1, mixed}});
}

bool isAscii(const std::u16string& text) {
    return std::ranges::all_of(text, [](char16_t c) { return c < 0x80; });
}

std::string narrowed(const std::u16string& text) {
    std::string result;
    for (const char16_t c : text) {
        result += static_cast<char>(c);
    }
    return result;
}

std::vector<double> doublesFrom(const std::vector<std::uint64_t>& bits) {
    std::vector<double> values;
    for (const std::uint64_t pattern : bits) {
        values.push_back(std::bit_cast<double>(pattern));
    }
    return values;
}

std::vector<std::uint64_t> bitsOf(const std::vector<double>& values) {
    std::vector<std::uint64_t> bits;
    for (const double value : values) {
        bits.push_back(std::bit_cast<std::uint64_t>(value));
    }
    return bits;
}

// Every pattern of 64 bits, the odd ones among them often.
rc::Gen<std::vector<std::uint64_t>> doubleBits() {
    return rc::gen::container<std::vector<std::uint64_t>>(
        rc::gen::oneOf(rc::gen::arbitrary<std::uint64_t>(),
                       rc::gen::element<std::uint64_t>(0, 0x8000000000000000, 0x7FF0000000000000, 0xFFF0000000000000,
                                                       0x7FF8000000000000, 0x7FF8000000000001, 1, 0x40B3880000000000)));
}

} // namespace

RC_GTEST_FIXTURE_PROP(Conversions, StoredLinesBecomeNamesAndValues, ()) {
    const auto lines = *rc::gen::container<std::vector<std::string>>(lineText());
    Fields expected;
    std::ranges::transform(lines, std::back_inserter(expected), readLine);
    connection().SentHead.RequestHeaderLines = lines;
    const Array request = Adapter.call("getRequestFields");
    RC_ASSERT(request.dimensions() == (Shape{1, lines.size()}));
    RC_ASSERT(request.fieldNames() == (std::vector<std::string>{"Name", "Value"}));
    RC_ASSERT(fieldsOf(request) == expected);
    connection().ReceivedHead.ResponseHeaderLines = lines;
    connection().ReceivedHead.ResponseHeaderLines.insert(connection().ReceivedHead.ResponseHeaderLines.begin(),
                                                         "HTTP/1.1 200 OK");
    RC_ASSERT(fieldsOf(Adapter.call("getResponseFields")) == expected);
}

RC_GTEST_FIXTURE_PROP(Conversions, LinesOfAnyBytesStillGiveAsManyFields, (std::vector<std::string> lines)) {
    connection().SentHead.RequestHeaderLines = lines;
    const Array fields = Adapter.call("getRequestFields");
    RC_ASSERT(fields.dimensions() == (Shape{1, lines.size()}));
    for (std::size_t i = 0; i < lines.size(); ++i) {
        RC_ASSERT(fields.field("Name", i).className() == "char");
        RC_ASSERT(fields.field("Value", i).className() == "char");
    }
}

RC_GTEST_FIXTURE_PROP(Conversions, GivenFieldsAreAppendedUpToTheFirstThatCannotBe, ()) {
    const auto text = givenText(*rc::gen::arbitrary<bool>());
    const auto given =
        *rc::gen::container<std::vector<std::pair<std::u16string, std::u16string>>>(rc::gen::pair(text, text));
    std::list<std::pair<std::string, std::string>> expected = {{"before", "1"}};
    std::string failure = "none";
    std::u16string told;
    std::vector<std::vector<Array>> rows;
    for (const auto& [name, value] : given) {
        rows.push_back({Array(name), Array(value)});
        if (failure != "none") {
            continue;
        }
        if (!isAscii(name) || !isAscii(value)) {
            failure = "VANTIK:webservices:EncodingFailure";
            told = isAscii(name) ? value : name;
        } else if (name.empty()) {
            failure = "VANTIK:webservices:EmptyName";
            told = value;
        } else {
            expected.emplace_back(narrowed(name), narrowed(value));
        }
    }
    Adapter.call("setRequestProperty", {"before", "1"});
    std::string seen = "none";
    std::string argument;
    try {
        Adapter.call("setFields", {Array::structures({"Name", "Value"}, rows)});
    } catch (const vantik::Failure& raised) {
        seen = raised.identifier();
        argument = std::get<std::string>(raised.message().Arguments.at(0));
    }
    RC_ASSERT(seen == failure);
    RC_ASSERT(argument == Array(told).text());
    RC_ASSERT(connection().Settings.RequestFields == expected);
}

RC_GTEST_FIXTURE_PROP(Conversions, FieldsThatAreSetReadBackAsTheyWereSent, ()) {
    const auto word = rc::gen::nonEmpty(rc::gen::container<std::string>(rc::gen::inRange('a', '{')));
    const auto given = *rc::gen::container<Fields>(rc::gen::pair(word, word));
    std::vector<std::vector<Array>> rows;
    for (const auto& [name, value] : given) {
        rows.push_back({Array(name), Array(value)});
    }
    Adapter.call("setFields", {Array::structures({"Name", "Value"}, rows)});
    // What the wire would carry of them.
    for (const auto& [name, value] : connection().Settings.RequestFields) {
        connection().SentHead.RequestHeaderLines.push_back(name + ": " + value);
    }
    RC_ASSERT(fieldsOf(Adapter.call("getRequestFields")) == given);
}

RC_GTEST_FIXTURE_PROP(Conversions, PayloadOfAnyBytesAndShapeComesBackAsAColumn, (Bytes first, Bytes second, bool row)) {
    for (const Bytes& bytes : {first, second}) {
        Adapter.set("Payload", bytesAs(bytes, row));
        RC_ASSERT(std::ranges::equal(connection().Settings.payload(), bytes));
        const Array read = Adapter.get("Payload");
        RC_ASSERT(read.className() == "uint8");
        RC_ASSERT(read.dimensions() == (Shape{bytes.size(), 1}));
        RC_ASSERT(bytesIn(read) == bytes);
    }
    Adapter.set("Payload", Array());
    RC_ASSERT(connection().Settings.payload().empty());
}

RC_GTEST_FIXTURE_PROP(Conversions, PayloadSharesNothingWithTheHostsArray, (Bytes bytes)) {
    Array given = bytesAs(bytes, false);
    Adapter.set("Payload", given);
    Array read = Adapter.get("Payload");
    for (Array* array : {&given, &read}) {
        for (std::byte& byte : array->writableBytes()) {
            byte = ~byte;
        }
    }
    RC_ASSERT(std::ranges::equal(connection().Settings.payload(), bytes));
    RC_ASSERT(bytesIn(Adapter.get("Payload")) == bytes);
}

// A host may have matrices too; the declared word keeps them from programs only.
RC_GTEST_FIXTURE_PROP(Conversions, ShapeOfAByteMatrixIsIgnored, ()) {
    const auto rows = *rc::gen::inRange<std::size_t>(0, 9);
    const auto columns = *rc::gen::inRange<std::size_t>(0, 9);
    const auto bytes = *rc::gen::container<Bytes>(rows * columns, rc::gen::arbitrary<std::uint8_t>());
    HostArray matrix(vx::vxCreateNumericMatrix(rows, columns, vxUINT8_CLASS, vxREAL));
    std::copy(bytes.begin(), bytes.end(), static_cast<std::uint8_t*>(vx::vxGetData(matrix.get())));
    accessorsOf<vxArray_tag*>("Payload").Setter(native(Adapter), matrix.get());
    RC_ASSERT(std::ranges::equal(connection().Settings.payload(), bytes));
    accessorsOf<vxArray_tag*>("ResponsePayload").Setter(native(Adapter), matrix.get());
    RC_ASSERT(bytesIn(Adapter.get("ResponsePayload")) == bytes);
}

RC_GTEST_FIXTURE_PROP(Conversions, ResponsePayloadCollectsEverythingUntilItIsTaken,
                      (std::vector<Bytes> pieces, bool row)) {
    Bytes all;
    for (const Bytes& piece : pieces) {
        Adapter.set("ResponsePayload", bytesAs(piece, row));
        all.insert(all.end(), piece.begin(), piece.end());
        for (int read = 0; read < 2; ++read) {
            RC_ASSERT(bytesIn(Adapter.get("ResponsePayload")) == all);
        }
    }
    const Array taken = Adapter.call("copyContentToByteArray", {true});
    RC_ASSERT(taken.className() == "uint8");
    RC_ASSERT(taken.dimensions() == (Shape{all.size(), 1}));
    RC_ASSERT(bytesIn(taken) == all);
    RC_ASSERT(Adapter.get("ResponsePayload").dimensions() == (Shape{0, 1}));
}

RC_GTEST_FIXTURE_PROP(Conversions, TimeoutsOfAnyBitsAndCountAreTheFirstFour, ()) {
    const auto bits = *doubleBits();
    const bool row = *rc::gen::arbitrary<bool>();
    const std::vector<std::uint64_t> before = {1, 2, 3, 4};
    Adapter.set("TimeoutInMilliseconds", Array::doubles(doublesFrom(before)));
    std::vector<std::uint64_t> expected = bits.empty() ? before : bits;
    expected.resize(4, 0x7FF0000000000000); // +infinity
    Adapter.set("TimeoutInMilliseconds", vectorOf(doublesFrom(bits), vxDOUBLE_CLASS, row));
    const Array read = Adapter.get("TimeoutInMilliseconds");
    RC_ASSERT(read.className() == "double");
    RC_ASSERT(read.dimensions() == (Shape{1, 4}));
    RC_ASSERT(bitsOf(read.doubles()) == expected);
}

RC_GTEST_FIXTURE_PROP(Conversions, ResponseCodesAreRoundedTowardsZeroOrRefused, (std::int64_t whole)) {
    const double fraction = *rc::gen::element(0.0, 0.25, 0.5, 0.75);
    // Around the limits of 32 bits.
    const double value = static_cast<double>(whole % 3000000000) + (whole < 0 ? -fraction : fraction);
    Adapter.set("ResponseCode", Array(418.0));
    const bool fits = value > -2147483649.0 && value < 2147483648.0;
    try {
        Adapter.set("ResponseCode", Array(value));
        RC_ASSERT(fits);
        RC_ASSERT(Adapter.get("ResponseCode").number() == static_cast<double>(whole % 3000000000));
    } catch (const vantik::Failure&) {
        RC_ASSERT(!fits);
        RC_ASSERT(Adapter.get("ResponseCode").number() == 418.0);
    }
}
