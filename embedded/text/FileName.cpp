// File names as the platform's file functions take them.
#include "embedded/text/TextConversion.h"
#include "host/Text.h"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>
#include <vector>

namespace vantik::detail {

namespace {

constexpr std::u16string_view kBlanks = u" \t";

std::u16string_view trimmed(std::u16string_view text) {
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == text.npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// `prefix` is in lower case.
bool startsWithIgnoringCase(std::u16string_view text, std::u16string_view prefix) {
    if (text.size() < prefix.size()) {
        return false;
    }
    for (std::size_t i = 0; i < prefix.size(); ++i) {
        const char16_t c = text[i] >= u'A' && text[i] <= u'Z' ? static_cast<char16_t>(text[i] + 0x20) : text[i];
        if (c != prefix[i]) {
            return false;
        }
    }
    return true;
}

// "file:" goes, and so does an authority that names this machine.
std::u16string_view withoutFilePrefix(std::u16string_view name) {
    constexpr std::u16string_view scheme = u"file:";
    if (!startsWithIgnoringCase(name, scheme)) {
        return name;
    }
    name.remove_prefix(scheme.size());
    for (const std::u16string_view authority : {u"///", u"//localhost/"}) {
        if (startsWithIgnoringCase(name, authority)) {
            return name.substr(authority.size() - 1);
        }
    }
    return name;
}

// From the environment, or from the user's account where the environment does not say. Empty where neither has a valid
// text.
std::u16string homeFolder() {
    std::string home;
    if (const char* value = std::getenv("HOME"); value && *value) {
        home = value;
    } else {
        std::vector<char> storage(16384);
        passwd entry{};
        passwd* found = nullptr;
        if (getpwuid_r(getuid(), &entry, storage.data(), storage.size(), &found) == 0 && found && found->pw_dir) {
            home = found->pw_dir;
        }
    }
    std::size_t badByte = 0;
    return decodeUtf8Strictly(home, badByte).value_or(std::u16string());
}

} // namespace

std::u16string cleanFileName(const std::u16string& name, const std::u16string& home) {
    const std::u16string_view path = withoutFilePrefix(trimmed(name));
    // The file functions would stop reading at the NUL and open a file with another name.
    if (path.find(u'\0') != path.npos) {
        return {};
    }
    const bool atHome = path == u"~" || path.substr(0, 2) == u"~/";
    if (!atHome || home.empty()) {
        return std::u16string(path);
    }
    return home + std::u16string(path.substr(1));
}

} // namespace vantik::detail

namespace fl::filesystem::detail {

std::u16string make_native_access_form_with_cleanup_i18n(const std::u16string& name) {
    return vantik::detail::cleanFileName(name, vantik::detail::homeFolder());
}

} // namespace fl::filesystem::detail
