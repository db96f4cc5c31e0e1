#include "cli/failures/CliFailure.h"
#include "cli/logins/CookieJar.h"
#include "cli/options/FieldText.h"
#include "cli/options/table/OptionGroups.h"
#include "cli/options/table/OptionValues.h"

#include <memory>

namespace netrove::cli {

namespace {

// No field name begins with '@'.
void addFields(Settings& settings, const std::string& text) {
    if (!text.starts_with('@')) {
        settings.Fields.push_back(parseField(text));
        return;
    }
    const std::vector<Field> fields = parseFieldLines(fileText(settings, text), text.substr(1));
    settings.Fields.insert(settings.Fields.end(), fields.begin(), fields.end());
}

// The value as a field of the request may have it.
std::string fieldValue(const char* name, const std::string& text) {
    return parseField(std::string(name) + ": " + text).value;
}

void takeReferer(Settings& settings, const std::string& text) {
    if (text.ends_with(";auto")) {
        failUsage("--referer takes no ';auto': the URL that is given is sent with redirects too");
    }
    settings.Referer = fieldValue("Referer", text);
}

// A file's name has no '='.
void addCookies(Settings& settings, const std::string& text) {
    if (text.find('=') != text.npos) {
        settings.Cookies.push_back(fieldValue("Cookie", text));
    } else if (!text.empty()) {
        const auto jar = settings.CookiesOfFile ? std::make_shared<CookieJar>(*settings.CookiesOfFile)
                                                : std::make_shared<CookieJar>();
        jar->load(fileText(settings, "@" + text), text);
        settings.CookiesOfFile = jar;
    }
}

// clang-format off
const OptionRow kRequestOptions[] = {
    {"method", 'X', "M", kSend, "request method (default: GET, with a body POST, with a streamed one PUT)",
     [](S& s, V v) { checkMethod(v); s.Method = v; }, {.OtherNames = "request", .Common = kSend}},
    {"field", 'H', "'NAME: VALUE'|@FILE", kTransfers, "add a header field; @FILE reads one per line from a file, where other users cannot see them ('@-': standard input). 'NAME:' leaves out the field that the library adds. Repeatable",
     addFields, {.Secret = Secrecy::FieldValue, .OtherNames = "header", .Common = kTransfers}},
    {"remove-field", 0, "NAME", kTransfers, "leave out all header fields with that name. Repeatable",
     [](S& s, V v) { checkFieldName(v); s.RemovedFields.push_back(v); }},
    {"user-agent", 'A', "TEXT", kTransfers, "what to call ourselves in User-Agent; '' leaves the field out",
     [](S& s, V v) { s.UserAgent = fieldValue("User-Agent", v); }},
    {"referer", 'e', "URL", kTransfers, "the page that led to this one, in Referer",
     takeReferer},
    {"cookie", 'b', "NAME=VALUE|FILE", kTransfers, "send a cookie, several as 'A=1; B=2', or those of a cookie file (in Netscape's format, as browsers' add-ons, curl and wget write it) that belong to the URL, and to each that a redirect leads to. Repeatable",
     addCookies, {.Secret = Secrecy::Whole}},
    {"simple", 0, "", kSingle, "use the older interface: every authentication scheme is allowed, and a status outside 200 to 299 is a failure",
     [](S& s, V) { s.Simple = true; }},
};
// clang-format on

} // namespace

std::span<const OptionRow> requestOptions() {
    return kRequestOptions;
}

} // namespace netrove::cli
