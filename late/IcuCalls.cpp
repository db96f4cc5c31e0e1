#include "late/IcuCalls.h"

#include "late/LateLibrary.h"

#include <unicode/fmtable.h>
#include <unicode/locid.h>
#include <unicode/messagepattern.h>
#include <unicode/msgfmt.h>
#include <unicode/uchar.h>
#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>
#include <unicode/uidna.h>
#include <unicode/unistr.h>
#include <unicode/uversion.h>

#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <stdexcept>

namespace netrove {

namespace {

std::string version() {
    UVersionInfo numbers;
    u_getVersion(numbers);
    char text[U_MAX_VERSION_STRING_LENGTH];
    u_versionToString(numbers, text);
    return text;
}

struct CloseConverter {
    void operator()(UConverter* converter) const noexcept { ucnv_close(converter); }
};
using Converter = std::unique_ptr<UConverter, CloseConverter>;

// Null if there is no charset of that name.
Converter openConverter(const std::string& name) {
    UErrorCode status = U_ZERO_ERROR;
    Converter converter(ucnv_open(name.c_str(), &status));
    if (status == U_MEMORY_ALLOCATION_ERROR) {
        throw std::bad_alloc();
    }
    return U_SUCCESS(status) ? std::move(converter) : nullptr;
}

// Leaves the error that the converter has found in place. The callback that comes with ICU is not strict enough: it
// drops characters that may be ignored in display, such as U+200B.
void U_CALLCONV refuse(const void*, UConverterFromUnicodeArgs*, const UChar*, int32_t, UChar32,
                       UConverterCallbackReason, UErrorCode*) {}

// What the converter stopped at; `consumed` is how far it has read.
NarrowText stopped(UConverter* converter, UErrorCode reason, std::size_t consumed) {
    std::array<UChar, 16> units{};
    auto length = static_cast<int8_t>(units.size());
    UErrorCode status = U_ZERO_ERROR;
    ucnv_getInvalidUChars(converter, units.data(), &length, &status);
    if (U_FAILURE(status) || length <= 0) {
        return {.How = NarrowText::End::NotConverted, .Reason = u_errorName(reason)};
    }
    std::uint32_t character = units[0];
    if (length >= 2 && U16_IS_LEAD(units[0]) && U16_IS_TRAIL(units[1])) {
        character = static_cast<std::uint32_t>(U16_GET_SUPPLEMENTARY(units[0], units[1]));
    }
    return {.How = NarrowText::End::CharacterLacking,
            .Character = character,
            .Position = consumed - static_cast<std::size_t>(length)};
}

NarrowText encode(const std::u16string& text, const std::string& encoding) {
    const Converter converter = openConverter(encoding);
    if (!converter) {
        return {.How = NarrowText::End::NoSuchEncoding};
    }
    UErrorCode status = U_ZERO_ERROR;
    ucnv_setFallback(converter.get(), false); // a letter that only looks alike is a substitute too
    ucnv_setFromUCallBack(converter.get(), refuse, nullptr, nullptr, nullptr, &status);
    if (U_FAILURE(status)) {
        return {.How = NarrowText::End::EncodingNotUsable, .Reason = u_errorName(status)};
    }
    NarrowText result;
    std::array<char, 4096> piece;
    const UChar* source = text.data();
    const UChar* const end = source + text.size();
    for (;;) {
        char* target = piece.data();
        status = U_ZERO_ERROR;
        ucnv_fromUnicode(converter.get(), &target, piece.data() + piece.size(), &source, end, nullptr, true, &status);
        result.Text.append(piece.data(), target);
        if (status == U_BUFFER_OVERFLOW_ERROR) {
            continue;
        }
        if (U_FAILURE(status)) {
            return stopped(converter.get(), status, static_cast<std::size_t>(source - text.data()));
        }
        return result;
    }
}

std::string charsetName(const std::string& label) {
    const Converter converter = openConverter(label);
    if (!converter) {
        return {};
    }
    UErrorCode status = U_ZERO_ERROR;
    const char* name = ucnv_getName(converter.get(), &status);
    return U_SUCCESS(status) && name != nullptr ? name : label;
}

struct Reading {
    const char* Start;
    std::optional<std::size_t> FirstBad;
};

// ICU's own callback writes U+001A for some bytes of some charsets.
void U_CALLCONV replaceBad(const void* context, UConverterToUnicodeArgs* arguments, const char*, int32_t length,
                           UConverterCallbackReason reason, UErrorCode* status) {
    if (reason > UCNV_IRREGULAR) {
        return; // the converter is reset or closed
    }
    // ICU takes the context as const, but hands back what it was given.
    auto& reading = *static_cast<Reading*>(const_cast<void*>(context));
    if (!reading.FirstBad) {
        reading.FirstBad = static_cast<std::size_t>(arguments->source - reading.Start - length);
    }
    constexpr UChar replacement = 0xFFFD;
    *status = U_ZERO_ERROR;
    ucnv_cbToUWriteUChars(arguments, &replacement, 1, 0, status);
}

void check(UErrorCode status) {
    if (status == U_MEMORY_ALLOCATION_ERROR) {
        throw std::bad_alloc();
    }
    if (U_FAILURE(status)) {
        throw std::runtime_error(std::string("text cannot be converted: ") + u_errorName(status));
    }
}

WideText decode(std::string_view content, const std::string& charset) {
    const Converter source = openConverter(charset);
    const Converter utf8 = openConverter("UTF-8");
    if (!source || !utf8) {
        throw std::runtime_error("ICU lacks the charset " + charset);
    }
    Reading reading{content.data(), {}};
    UErrorCode status = U_ZERO_ERROR;
    ucnv_setToUCallBack(source.get(), replaceBad, &reading, nullptr, nullptr, &status);
    check(status);

    WideText result;
    result.Utf8.reserve(content.size());
    std::array<UChar, 4096> pivot;
    std::array<char, 8192> piece;
    UChar* pivotSource = pivot.data();
    UChar* pivotTarget = pivot.data();
    const char* next = content.data();
    const char* const end = next + content.size();
    bool first = true;
    do {
        char* target = piece.data();
        status = U_ZERO_ERROR;
        ucnv_convertEx(utf8.get(), source.get(), &target, piece.data() + piece.size(), &next, end, pivot.data(),
                       &pivotSource, &pivotTarget, pivot.data() + pivot.size(), static_cast<UBool>(first), true,
                       &status);
        result.Utf8.append(piece.data(), target);
        first = false;
    } while (status == U_BUFFER_OVERFLOW_ERROR);
    check(status);
    result.FirstBad = reading.FirstBad;
    return result;
}

struct CloseIdna {
    void operator()(UIDNA* idna) const noexcept { uidna_close(idna); }
};

// ICU's object for UTS 46 never changes after it has been opened, so all threads share it.
const UIDNA* uts46() {
    constexpr std::uint32_t options = UIDNA_CHECK_BIDI | UIDNA_CHECK_CONTEXTJ | UIDNA_NONTRANSITIONAL_TO_ASCII;
    static const std::unique_ptr<UIDNA, CloseIdna> instance = [] {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<UIDNA, CloseIdna> opened(uidna_openUTS46(options, &status));
        if (U_FAILURE(status)) {
            throw std::runtime_error(std::string("uidna_openUTS46: ") + u_errorName(status));
        }
        return opened;
    }();
    return instance.get();
}

std::u16string hostName(std::u16string_view name, std::uint32_t& errors) {
    std::u16string result(name.size() + 256, u'\0');
    for (;;) {
        UErrorCode status = U_ZERO_ERROR;
        UIDNAInfo info = UIDNA_INFO_INITIALIZER;
        const int32_t length = uidna_nameToASCII(uts46(), name.data(), static_cast<int32_t>(name.size()), result.data(),
                                                 static_cast<int32_t>(result.size()), &info, &status);
        if (status == U_BUFFER_OVERFLOW_ERROR) {
            result.resize(static_cast<std::size_t>(length));
            continue;
        }
        errors = U_FAILURE(status) ? std::uint32_t{UIDNA_ERROR_DISALLOWED} : info.errors;
        result.resize(U_FAILURE(status) ? 0 : static_cast<std::size_t>(length));
        return result;
    }
}

// Undoes \n and \\; any other pair stays as it is.
icu::UnicodeString withoutEscapes(const icu::UnicodeString& text) {
    icu::UnicodeString result;
    for (std::int32_t i = 0; i < text.length(); ++i) {
        const char16_t next = text.charAt(i + 1); // U+FFFF at the end
        if (text.charAt(i) == u'\\' && (next == u'n' || next == u'\\')) {
            result.append(next == u'n' ? u'\n' : u'\\');
            ++i;
        } else {
            result.append(text.charAt(i));
        }
    }
    return result;
}

// Why a pattern cannot be used; empty where it can. `pattern` keeps what the parser read.
std::string patternProblem(icu::MessagePattern& pattern, const icu::UnicodeString& text) {
    UErrorCode status = U_ZERO_ERROR;
    UParseError place{};
    pattern.parse(text, &place, status);
    if (U_FAILURE(status)) {
        return std::string("bad pattern at character ") + std::to_string(place.offset + 1) + " (" +
               u_errorName(status) + ")";
    }
    for (std::int32_t i = 0; i < pattern.countParts(); ++i) {
        const UMessagePatternPartType type = pattern.getPartType(i);
        if (type == UMSGPAT_PART_TYPE_ARG_NAME) {
            return "arguments have numbers, not names";
        }
        if (type == UMSGPAT_PART_TYPE_ARG_START) {
            const UMessagePatternArgType kind = pattern.getPart(i).getArgType();
            if (kind != UMSGPAT_ARG_TYPE_NONE && kind != UMSGPAT_ARG_TYPE_SELECT) {
                return "arguments are text: only {0} and {0,select,...} are allowed";
            }
        }
    }
    return {};
}

// One more than the highest argument number of a pattern.
std::size_t argumentCount(const icu::MessagePattern& pattern) {
    std::size_t count = 0;
    for (std::int32_t i = 0; i < pattern.countParts(); ++i) {
        if (pattern.getPartType(i) == UMSGPAT_PART_TYPE_ARG_NUMBER) {
            count = std::max<std::size_t>(count, static_cast<std::size_t>(pattern.getPart(i).getValue()) + 1);
        }
    }
    return count;
}

std::u16string plain(const icu::UnicodeString& text) {
    return {text.getBuffer(), static_cast<std::size_t>(text.length())};
}

std::u16string pattern(std::string_view utf8, std::string& problem) {
    const icu::UnicodeString text = withoutEscapes(
        icu::UnicodeString::fromUTF8(icu::StringPiece(utf8.data(), static_cast<std::int32_t>(utf8.size()))));
    UErrorCode status = U_ZERO_ERROR;
    icu::MessagePattern parsed(status);
    problem = patternProblem(parsed, text);
    return plain(text);
}

std::u16string message(const std::u16string& pattern, const std::vector<std::u16string>& arguments) {
    UErrorCode status = U_ZERO_ERROR;
    icu::MessagePattern parsed(status);
    const icu::UnicodeString text(pattern.data(), static_cast<std::int32_t>(pattern.size()));
    if (U_FAILURE(status) || !patternProblem(parsed, text).empty()) {
        return {};
    }
    // An argument that the pattern names and the message lacks becomes empty; ICU would leave "{2}" in the text.
    std::vector<icu::Formattable> values(std::max(arguments.size(), argumentCount(parsed)),
                                         icu::Formattable(icu::UnicodeString()));
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        values[i] =
            icu::Formattable(icu::UnicodeString(arguments[i].data(), static_cast<std::int32_t>(arguments[i].size())));
    }
    const icu::MessageFormat format(text, icu::Locale::getRoot(), status);
    icu::UnicodeString result;
    icu::FieldPosition ignored;
    if (U_SUCCESS(status)) {
        format.format(values.data(), static_cast<std::int32_t>(values.size()), result, ignored, status);
    }
    return U_SUCCESS(status) ? plain(result) : std::u16string();
}

bool isDeceptive(char32_t character) {
    switch (u_charType(static_cast<UChar32>(character))) {
    case U_CONTROL_CHAR:
    case U_FORMAT_CHAR:
    case U_LINE_SEPARATOR:
    case U_PARAGRAPH_SEPARATOR:
        return true;
    default:
        return false;
    }
}

} // namespace

NETROVE_LATE_CALLS(IcuCalls, version, encode, charsetName, decode, hostName, pattern, message, isDeceptive)

} // namespace netrove
