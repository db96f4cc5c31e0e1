#include "cli/options/FieldText.h"
#include "cli/options/table/OptionGroups.h"
#include "cli/options/table/OptionValues.h"

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

// clang-format off
const OptionRow kOptions[] = {
    {"method", 'X', "M", kSend, "request method (default: GET, with a body POST, with a streamed one PUT)",
     [](S& s, V v) { checkMethod(v); s.Method = v; }, {.OtherNames = "request", .Common = kSend}},
    {"field", 'H', "'NAME: VALUE'|@FILE", kTransfers, "add a header field; @FILE reads one per line from a file, where other users cannot see them ('@-': standard input). 'NAME:' leaves out the field that the library adds. Repeatable",
     addFields, {.Secret = Secrecy::FieldValue, .OtherNames = "header", .Common = kTransfers}},
    {"remove-field", 0, "NAME", kTransfers, "leave out all header fields with that name. Repeatable",
     [](S& s, V v) { checkFieldName(v); s.RemovedFields.push_back(v); }},
    {"simple", 0, "", kSingle, "use the older interface: every authentication scheme is allowed, and a status outside 200 to 299 is a failure",
     [](S& s, V) { s.Simple = true; }},
};
// clang-format on

} // namespace

std::span<const OptionRow> requestOptions() {
    return kOptions;
}

} // namespace netrove::cli
