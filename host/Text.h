// Text conversion and file names (libvki18n, libvkfl). Host text is UTF-16; narrow text is in the host's default narrow
// encoding unless a converter says otherwise.
#pragma once

#include "host/HostApi.h"

#include <stdexcept>
#include <string>

namespace fl::i18n {

// Base of every failure of a text conversion: a character that the target lacks, or an unknown encoding.
class VANTIK_HOST_API CvtExceptionBase : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    ~CvtExceptionBase() override;
};

// Turns UTF-16 into narrow text. A character that the encoding lacks raises; it never becomes a substitute. The flag
// that the constructors take asks for substitutes in other hosts; callers pass false, and this contract refuses either
// way.
class VANTIK_HOST_API ustring_converter {
public:
    virtual ~ustring_converter();
    virtual std::string convert(const std::u16string& text) const = 0; // raises CvtExceptionBase
};

class VANTIK_HOST_API codecvt_ustring_to_ascii final : public ustring_converter {
public:
    explicit codecvt_ustring_to_ascii(bool substitute);
    ~codecvt_ustring_to_ascii() override;
    std::string convert(const std::u16string& text) const override;
};

// The encoding is an IANA name ("utf-8", "windows-1252"), compared without regard to case. An unknown or empty name
// raises CvtExceptionBase on construction.
class VANTIK_HOST_API codecvt_ustring_to_string final : public ustring_converter {
public:
    codecvt_ustring_to_string(const std::string& encoding, bool substitute);
    ~codecvt_ustring_to_string() override;
    std::string convert(const std::u16string& text) const override;

private:
    std::string Encoding;
};

// Default narrow encoding. Both directions raise CvtExceptionBase for text that cannot be converted, except that
// `to_ustring` maps each byte that is not valid in the narrow encoding to U+FFFD, since it also renders error texts.
VANTIK_HOST_API std::string to_string(const std::u16string& text);
VANTIK_HOST_API std::string to_string(const std::u16string& text, const ustring_converter& converter);
VANTIK_HOST_API std::u16string to_ustring(const std::string& text);

// The locale whose texts the message catalogue returns. `global` is the current one.
class VANTIK_HOST_API VkLocale {
public:
    explicit VkLocale(std::string name); // a BCP 47 or POSIX name, for example "en" or "de_DE"
    static VkLocale global();
    const std::string& name() const;

private:
    std::string Name;
};

} // namespace fl::i18n

namespace fl::filesystem::detail {

// From a host file name, the wide form that the platform's file functions accept: blanks at the ends and a "file:"
// prefix ("file:///x" becomes "/x") are dropped, "~" as the first folder means the home directory. Nothing else is
// decoded. Empty for a name that holds U+0000, which has no such form.
VANTIK_HOST_API std::u16string make_native_access_form_with_cleanup_i18n(const std::u16string& name);

} // namespace fl::filesystem::detail
