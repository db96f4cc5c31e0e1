#include "cli/options/table/OptionGroups.h"
#include "cli/options/table/OptionValues.h"

namespace netrove::cli {

namespace {

constexpr std::uint64_t kLargestBuffer = std::uint64_t{64} << 20;

void addBody(Settings& settings, const std::string& text) {
    const std::string part = text.starts_with('@') ? fileText(settings, text) : text;
    settings.BodyText = settings.BodyText ? *settings.BodyText + "&" + part : part;
}

// clang-format off
const OptionRow kOptions[] = {
    {"body", 'd', "TEXT", kSend, "body text, or @FILE to read it from a file; several are joined with '&'. Sent as a form unless -H sets another Content-Type",
     addBody, {.OtherNames = "data body-data post-data", .Common = kSend}},
    {"body-file", 0, "FILE", kSend, "read the body from a file into memory; '-' is standard input",
     [](S& s, V v) { s.BodyFile = nonEmpty("body-file", v); }, {.OtherNames = "post-file"}},
    {"stream-file", 'T', "FILE", kSend, "stream the body from a file through a provider object; '-' is standard input",
     [](S& s, V v) { s.StreamFile = nonEmpty("stream-file", v); }, {.OtherNames = "upload-file", .Common = kSend}},
    {"buffer-size", 0, "N", kSend, "bytes to ask the provider for at a time; k means 1024, M 1048576",
     [](S& s, V v) { s.BufferSize = byteSize("buffer-size", v, kLargestBuffer); }},
    {"chunked", 0, "", kSend, "do not send the length of the body, even if it is known",
     [](S& s, V) { s.Chunked = true; }},
};
// clang-format on

} // namespace

std::span<const OptionRow> contentOptions() {
    return kOptions;
}

} // namespace netrove::cli
