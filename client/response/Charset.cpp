#include "client/response/Charset.h"

#include "client/response/Parameters.h"
#include "client/text/Ascii.h"

#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>

#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <stdexcept>

namespace netrove {

namespace {

struct Mark {
    std::string_view Bytes;
    const char* Charset;
};

constexpr Mark kMarks[] = {{"\xEF\xBB\xBF", "UTF-8"}, {"\xFE\xFF", "UTF-16BE"}, {"\xFF\xFE", "UTF-16LE"}};

struct Replacement {
    std::string_view Named; // ICU's name
    const char* Used;
};

// Charsets that are named where a larger one is meant, as the encoding standard of the WHATWG has it.
constexpr Replacement kReplacements[] = {
    {"ISO-8859-1", "windows-1252"},
    {"US-ASCII", "windows-1252"},
    {"ibm-920_P100-1995", "windows-1254"}, // ISO-8859-9
    {"iso-8859_11-2001", "windows-874"},
    {"ibm-1383_P110-1999", "gb18030"},            // GB2312
    {"windows-936-2000", "gb18030"},              // GBK
    {"ibm-970_P110_P110-2006_U2", "windows-949"}, // EUC-KR
    {"UTF-16", "UTF-16LE"},
};

struct CloseConverter {
    void operator()(UConverter* converter) const noexcept { ucnv_close(converter); }
};
using Converter = std::unique_ptr<UConverter, CloseConverter>;

// ICU reads the empty name as its default charset, what follows a comma as options, and a name that it does not know as
// that of a file.
bool isLabel(std::string_view name) {
    return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               std::string_view("-_.:+()").find(c) != std::string_view::npos;
    });
}

// Null if there is no charset of that name.
Converter openConverter(const std::string& name) {
    if (!isLabel(name)) {
        return nullptr;
    }
    UErrorCode status = U_ZERO_ERROR;
    Converter converter(ucnv_open(name.c_str(), &status));
    if (status == U_MEMORY_ALLOCATION_ERROR) {
        throw std::bad_alloc();
    }
    return U_SUCCESS(status) ? std::move(converter) : nullptr;
}

std::string icuName(UConverter* converter) {
    UErrorCode status = U_ZERO_ERROR;
    const char* name = ucnv_getName(converter, &status);
    return U_SUCCESS(status) && name != nullptr ? name : "";
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

Decoded decode(std::string_view content, const std::string& charset) {
    const Converter source = openConverter(charset);
    const Converter utf8 = openConverter("UTF-8");
    if (!source || !utf8) {
        throw std::runtime_error("ICU lacks the charset " + charset);
    }
    Reading reading{content.data(), {}};
    UErrorCode status = U_ZERO_ERROR;
    ucnv_setToUCallBack(source.get(), replaceBad, &reading, nullptr, nullptr, &status);
    check(status);

    Decoded result;
    result.Charset = charset;
    result.Text.reserve(content.size());
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
        result.Text.append(piece.data(), target);
        first = false;
    } while (status == U_BUFFER_OVERFLOW_ERROR);
    check(status);
    result.FirstBad = reading.FirstBad;
    return result;
}

// RFC 6839 has the suffix.
bool isJson(std::string_view mediaType) {
    const std::string type = lowered(mediaType);
    return type == "application/json" || type == "text/json" || type.ends_with("+json");
}

} // namespace

Decoded decodeText(std::string_view content, std::string_view contentType) {
    for (const Mark& mark : kMarks) {
        if (content.starts_with(mark.Bytes)) {
            Decoded result = decode(content.substr(mark.Bytes.size()), mark.Charset);
            if (result.FirstBad) {
                *result.FirstBad += mark.Bytes.size();
            }
            return result;
        }
    }
    const Parameters parameters = parseParameters(contentType);
    const auto charset = std::find_if(parameters.List.begin(), parameters.List.end(),
                                      [](const Parameter& parameter) { return parameter.Name == "charset"; });
    if (isJson(parameters.Main) || charset == parameters.List.end() || charset->Value.empty()) {
        return decode(content, "UTF-8");
    }
    const Converter named = openConverter(charset->Value);
    if (!named) {
        Decoded result = decode(content, "UTF-8");
        result.Unknown = charset->Value;
        return result;
    }
    const std::string name = icuName(named.get());
    const auto* const row = std::find_if(std::begin(kReplacements), std::end(kReplacements),
                                         [&](const Replacement& replacement) { return replacement.Named == name; });
    return decode(content, row == std::end(kReplacements) ? charset->Value : row->Used);
}

} // namespace netrove
