// Properties of identifiers over generated text.
#include "IriHelpers.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

namespace {

using foundation::core::except::IInternalException;
using foundation::network::IRI;

constexpr const char* kUnreserved = "abcxyzABCXYZ0189-._~";
constexpr const char* kSubDelimiters = "!$&'()*+,;=";

template <class Text>
Text joined(const std::vector<Text>& pieces) {
    return std::accumulate(pieces.begin(), pieces.end(), Text());
}

// Text of the given characters, with percent-encodings among them.
rc::Gen<std::string> encodedText(const std::string& characters) {
    const auto one = [](const std::string& set) { return rc::gen::container<std::string>(1, rc::gen::elementOf(set)); };
    const auto encoding =
        rc::gen::map(rc::gen::container<std::string>(2, rc::gen::elementOf(std::string("0123456789abcdefABCDEF"))),
                     [](const std::string& digits) { return "%" + digits; });
    return rc::gen::map(rc::gen::container<std::vector<std::string>>(
                            rc::gen::weightedOneOf<std::string>({{9, one(characters)}, {1, encoding}})),
                        joined<std::string>);
}

std::string lowered(std::string text) {
    std::ranges::transform(text, text.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? char(c + 0x20) : c; });
    return text;
}

// Labels of letters and digits: names as they are registered.
rc::Gen<std::string> hostName() {
    const auto letter =
        rc::gen::elementOf(std::string("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"));
    const auto label = rc::gen::resize(20, rc::gen::nonEmpty(rc::gen::container<std::string>(letter)));
    const auto labels = rc::gen::resize(6, rc::gen::nonEmpty(rc::gen::container<std::vector<std::string>>(label)));
    return rc::gen::map(labels, [](std::vector<std::string> list) {
        for (std::size_t next = 1; next < list.size(); ++next) {
            list[next].insert(0, ".");
        }
        return joined(list);
    });
}

rc::Gen<std::string> host() {
    return rc::gen::weightedOneOf<std::string>(
        {{4, hostName()},
         {1, rc::gen::element<std::string>("127.0.0.1", "[::1]", "[2001:DB8::A]", "my_host", "h.example.")}});
}

// A part with the characters around it; empty where it is missing.
rc::Gen<std::string> optionalPart(const std::string& before, const rc::Gen<std::string>& text,
                                  const std::string& after = {}) {
    return rc::gen::map(rc::gen::maybe(text), [=](const rc::Maybe<std::string>& given) {
        return given ? before + *given + after : std::string();
    });
}

bool isPlainAscii(const std::u16string& text) {
    return std::ranges::all_of(text, [](char16_t c) { return c > 0x20 && c < 0x7F; });
}

// Units of any kind, the ones that matter to the grammar among them.
rc::Gen<std::u16string> anyText() {
    const auto any = rc::gen::map(rc::gen::inRange<int>(0, 0x10000), [](int c) { return static_cast<char16_t>(c); });
    const auto ascii = rc::gen::map(rc::gen::inRange<int>(0, 0x80), [](int c) { return static_cast<char16_t>(c); });
    const auto grammar = rc::gen::elementOf(std::u16string(u":/?#[]@%.-_~!$&'()*+,;= \\aAzZ09"));
    const auto nasty = rc::gen::elementOf(std::u16string(
        {0x00AD, 0x200D, 0x0301, 0xFF0F, 0x3002, 0x00DF, 0x05D0, 0xD83D, 0xDE00, 0xFFFF, 0x212A, 0xFF05}));
    // Short, so that a good part of the texts is accepted.
    return rc::gen::resize(12, rc::gen::container<std::u16string>(rc::gen::weightedOneOf<char16_t>(
                                   {{20, grammar}, {3, ascii}, {1, any}, {1, nasty}})));
}

// Pieces of references, the dots of paths among them.
rc::Gen<std::u16string> referenceText() {
    const auto piece = rc::gen::element<std::u16string>(u"..", u".", u"/", u"/", u"//", u"g", u"h", u";x=1", u"?y",
                                                        u"#s", u"http:", u"//h", u":", u"%2e", u"\u00E9", u" ");
    return rc::gen::map(rc::gen::resize(10, rc::gen::container<std::vector<std::u16string>>(piece)),
                        joined<std::u16string>);
}

// The ASCII form where the text is an identifier. Any exception but the host's own fails the property.
std::optional<std::string> asciiForm(const std::u16string& text) {
    try {
        const IRI value(text);
        const std::u16string form = value.toAsciiString(false);
        RC_ASSERT(isPlainAscii(form));
        const IRI again(form);
        RC_ASSERT(narrow(again.toAsciiString(false)) == narrow(form));
        RC_ASSERT(again.getHost(IRI::Encoding::Ascii) == value.getHost(IRI::Encoding::Ascii));
        RC_ASSERT(again.getPath() == value.getPath());
        RC_ASSERT(again.getQuery() == value.getQuery());
        RC_ASSERT(fragmentOf(again) == fragmentOf(value));
        return narrow(form);
    } catch (const IInternalException& refused) {
        RC_ASSERT(std::string(refused.what()).find(" at position ") != std::string::npos);
        return std::nullopt;
    }
}

} // namespace

RC_GTEST_PROP(IriProperties, AsciiUrlsComeOutAsTheyWentIn, ()) {
    const std::string path = std::string(kUnreserved) + kSubDelimiters + ":@/";
    const auto scheme = *rc::gen::element<std::string>("http", "https", "HTTP", "hTTps", "ws+x-1.y", "A");
    const auto user = *optionalPart("", encodedText(std::string(kUnreserved) + kSubDelimiters + ":"), "@");
    const auto name = *host();
    const auto number = rc::gen::map(rc::gen::inRange(0, 65536), [](int value) { return std::to_string(value); });
    const auto port =
        *optionalPart(":", rc::gen::oneOf(number, rc::gen::element<std::string>("", "0", "00080", "65535")));
    const auto segments = *optionalPart("/", encodedText(path));
    const auto query = *optionalPart("?", encodedText(path + "?"));
    const auto fragment = *optionalPart("#", encodedText(path + "?"));
    const std::string rest = port + segments + query + fragment;
    const IRI value = iri(scheme + "://" + user + name + rest);
    RC_ASSERT(ascii(value) == lowered(scheme) + "://" + user + lowered(name) + rest);
    RC_ASSERT(narrow(value.getScheme()) == lowered(scheme));
    RC_ASSERT(narrow(value.getHost(IRI::Encoding::Ascii)) == lowered(name));
    RC_ASSERT(narrow(value.getPath()) == segments);
    RC_ASSERT(value.hasQuery() == !query.empty());
    RC_ASSERT("?" + narrow(value.getQuery()) == (query.empty() ? "?" : query));
    RC_ASSERT(value.hasFragment() == !fragment.empty());
    RC_ASSERT(ascii(IRI(value.toAsciiString(false))) == ascii(value));
}

RC_GTEST_PROP(IriProperties, AnyTextIsAnIdentifierOrRefusedByTheHostsOwnException, ()) {
    asciiForm(*anyText());
    asciiForm(u"http://" + *anyText());
    asciiForm(u"http://h/" + *anyText());
    asciiForm(u"http://" + *anyText() + u"@h:1/" + *anyText());
    asciiForm(u"//[" + *anyText() + u"]");
}

RC_GTEST_PROP(IriProperties, AnyReferenceResolvesToAnAbsoluteTargetThatStays, ()) {
    const IRI base(u"http://a/b/c/d;p?q");
    const std::u16string text = *rc::gen::oneOf(referenceText(), anyText());
    if (!refusal(text).empty()) {
        RC_SUCCEED("not a reference");
    }
    const IRI reference(text);
    const IRI target = reference.resolveAgainst(base);
    RC_ASSERT(target.hasScheme());
    const std::string form = narrow(target.toAsciiString(false));
    RC_ASSERT(narrow(IRI(target.toAsciiString(false)).toAsciiString(false)) == form);
    RC_ASSERT(narrow(target.resolveAgainst(base).toAsciiString(false)) == form);
    RC_ASSERT(fragmentOf(target) == fragmentOf(reference));
    const std::string path = narrow(target.getPath()) + "/";
    if (target.hasHost()) {
        RC_ASSERT(path.find("/./") == std::string::npos);
        RC_ASSERT(path.find("/../") == std::string::npos);
    }
}

// Names outside ASCII: what the mapping makes of them is a name in ASCII that maps to itself.
RC_GTEST_PROP(IriProperties, HostsOfAnyLettersAreMappedOnceOrRefused, ()) {
    const auto letter = [](int first, int end) {
        return rc::gen::map(rc::gen::inRange(first, end), [](int c) { return std::u16string(1, char16_t(c)); });
    };
    const auto piece =
        rc::gen::oneOf(letter('a', 'z' + 1), letter(0xC0, 0x250), letter(0x370, 0x530), letter(0x4E00, 0x9FA6),
                       rc::gen::element<std::u16string>(u".", u"-", u"0", u"\u3002", u"\uFF0E", u"\U0001F600"));
    const auto name = *rc::gen::resize(20, rc::gen::nonEmpty(rc::gen::container<std::vector<std::u16string>>(piece)));
    const auto form = asciiForm(u"http://" + joined(name) + u"/");
    if (!form) {
        RC_SUCCEED("refused");
    }
    const IRI value = iri(*form);
    RC_ASSERT(value.hasHost());
}
