#include "cli/options/DataText.h"
#include "cli/options/FormText.h"
#include "cli/options/table/OptionGroups.h"
#include "cli/options/table/OptionValues.h"

#include <utility>

namespace netrove::cli {

namespace {

constexpr std::uint64_t kLargestBuffer = std::uint64_t{64} << 20;

void addText(Settings& settings, const std::string& part) {
    settings.BodyText = settings.BodyText ? *settings.BodyText + "&" + part : part;
}

void addBody(Settings& settings, const std::string& text) {
    addText(settings, text.starts_with('@') ? fileText(settings, text) : text);
}

std::string encoded(Settings& settings, const std::string& text) {
    return encodedData(text, [&](const std::string& atFile) { return fileText(settings, atFile); });
}

void addQuery(Settings& settings, const std::string& text) {
    settings.MoreQuery =
        joinedData(settings.MoreQuery, text.starts_with('+') ? text.substr(1) : encoded(settings, text));
}

void addForm(Settings& settings, const std::string& text) {
    for (FormField& field : parseFormField(text)) {
        settings.InputReaders += field.ContentKind != FormField::Kind::Text && field.Value == "-" ? 1 : 0;
        settings.Form.push_back(std::move(field));
    }
}

// clang-format off
const OptionRow kContentOptions[] = {
    {"body", 'd', "TEXT|@FILE", kSingle, "body text, or @FILE to read it from a file, every byte of it; several are joined with '&'. Sent as a form unless -H sets another Content-Type. With get and save it needs --get",
     addBody, {.OtherNames = "data data-ascii data-binary body-data post-data", .Common = kSend}},
    {"data-raw", 0, "TEXT", kSingle, "as --body, but '@' is a letter like any other",
     addText},
    {"data-urlencode", 0, "NAME=TEXT|NAME@FILE", kSingle, "as --body, percent-encoded but for the name; =TEXT, TEXT and @FILE have none",
     [](S& s, V v) { addText(s, encoded(s, v)); }},
    {"get", 'G', "", kSingle, "put what --body and the options --data-... give into the query of the URL",
     [](S& s, V) { s.DataInQuery = true; }},
    {"url-query", 0, "NAME=TEXT|NAME@FILE", kSingle, "add to the query of the URL, encoded as with --data-urlencode; +TEXT is added as it is. Repeatable",
     addQuery},
    {"json", 0, "TEXT|@FILE", kSend, "send JSON: the text, or that of a file, with Content-Type and Accept set to application/json; several are put together as they are",
     [](S& s, V v) { s.JsonText = s.JsonText.value_or("") + (v.starts_with('@') ? fileText(s, v) : v); }, {.Common = kSend}},
    {"form", 'F', "NAME=TEXT|@FILE|<FILE", kSend, "send a multipart form. NAME=TEXT is a field, NAME=<FILE one with the text of a file, NAME=@FILE uploads a file, '-' is standard input; ';type=T' and ';filename=N' may follow. Repeatable",
     addForm, {.Common = kSend}},
    {"form-string", 0, "NAME=TEXT", kSend, "as --form, but '@', '<', ';' and '\"' are letters like any other",
     [](S& s, V v) { s.Form.push_back(literalFormField(v)); }},
    {"body-file", 0, "FILE", kSend, "read the body from a file into memory; '-' is standard input",
     [](S& s, V v) { s.BodyFile = nonEmpty("body-file", v); }, {.OtherNames = "post-file"}},
    {"stream-file", 'T', "FILE", kSend, "send the body from a file while it is read; '-' is standard input",
     [](S& s, V v) { s.StreamFile = nonEmpty("stream-file", v); }, {.OtherNames = "upload-file", .Common = kSend}},
    {"buffer-size", 0, "N", kSend, "bytes of --stream-file to read at a time; k means 1024, M 1048576",
     [](S& s, V v) { s.BufferSize = byteSize("buffer-size", v, kLargestBuffer); }},
    {"chunked", 0, "", kSend, "do not send the length of the body, even if it is known",
     [](S& s, V) { s.Chunked = true; }},
};
// clang-format on

} // namespace

std::span<const OptionRow> contentOptions() {
    return kContentOptions;
}

} // namespace netrove::cli
