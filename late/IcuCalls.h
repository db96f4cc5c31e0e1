// What is asked of ICU.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace netrove {

struct NarrowText {
    enum class End { Whole, NoSuchEncoding, EncodingNotUsable, NotConverted, CharacterLacking };

    End How = End::Whole;
    std::string Text = {};       // where it is whole
    std::string Reason = {};     // ICU's, of the two that have no reason of their own
    std::uint32_t Character = 0; // that the encoding lacks, or half a character
    std::size_t Position = 0;    // of the character
};

struct WideText {
    std::string Utf8;
    std::optional<std::size_t> FirstBad; // the first byte that is not of the charset; each such place became U+FFFD
};

struct IcuCalls {
    static constexpr const char* kLibrary = "libnetrove_icu.so";

    std::string (*version)();

    // To an encoding; nothing is replaced.
    NarrowText (*encode)(const std::u16string& text, const std::string& encoding);
    // ICU's name for a charset; empty if it knows none of that label.
    std::string (*charsetName)(const std::string& label);
    WideText (*decode)(std::string_view content, const std::string& charset);

    // A host name as UTS 46 maps it; what is wrong with it is in `errors`, as ICU's flags.
    std::u16string (*hostName)(std::u16string_view name, std::uint32_t& errors);

    // A message pattern from a line of a catalogue. Where it cannot be used, `problem` says why.
    std::u16string (*pattern)(std::string_view utf8, std::string& problem);
    // A pattern with its arguments in place; empty where it cannot be used.
    std::u16string (*message)(const std::u16string& pattern, const std::vector<std::u16string>& arguments);

    // A control character, or an invisible one that reverses or hides the text around it: a direction of writing, a
    // character without width, a separator of lines or paragraphs.
    bool (*isDeceptive)(char32_t character);
};

} // namespace netrove
