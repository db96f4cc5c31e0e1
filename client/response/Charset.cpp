#include "client/response/Charset.h"

#include "client/response/Parameters.h"
#include "client/text/Ascii.h"
#include "late/IcuCalls.h"
#include "late/LateLibrary.h"

#include <netrove/text.h>

#include <algorithm>
#include <utility>

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

// ICU reads the empty name as its default charset, what follows a comma as options, and a name that it does not know as
// that of a file.
bool isLabel(std::string_view name) {
    return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               std::string_view("-_.:+()").find(c) != std::string_view::npos;
    });
}

constexpr const char* kUtf8 = "UTF-8";

// ICU's name of a charset; empty if there is none of that name. The usual one needs no ICU.
std::string icuName(const std::string& label) {
    if (equalsIgnoringCase(label, kUtf8)) {
        return kUtf8;
    }
    return isLabel(label) ? lateCalls<IcuCalls>().charsetName(label) : std::string();
}

Decoded decode(std::string_view content, const std::string& charset) {
    if (equalsIgnoringCase(charset, kUtf8) && isUtf8(content)) {
        return {std::string(content), std::nullopt, charset, ""};
    }
    WideText read = lateCalls<IcuCalls>().decode(content, charset);
    return {std::move(read.Utf8), read.FirstBad, charset, ""};
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
        return decode(content, kUtf8);
    }
    const std::string name = icuName(charset->Value);
    if (name.empty()) {
        Decoded result = decode(content, kUtf8);
        result.Unknown = charset->Value;
        return result;
    }
    const auto* const row = std::find_if(std::begin(kReplacements), std::end(kReplacements),
                                         [&](const Replacement& replacement) { return replacement.Named == name; });
    return decode(content, row == std::end(kReplacements) ? charset->Value : row->Used);
}

} // namespace netrove
