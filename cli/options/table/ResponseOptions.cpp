#include "cli/options/table/OptionGroups.h"
#include "cli/options/table/OptionValues.h"

namespace netrove::cli {

namespace {

// clang-format off
const OptionRow kResponseOptions[] = {
    {"output", 'o', "FILE", kGet | kSend, "write the content to a file, which appears only when complete and replaces an existing one; '-' is standard output, whatever the content. Of several, the first is for the first URL, and so on",
     [](S& s, V v) { s.Outputs.emplace_back(nonEmpty("output", v)); }, {.OtherNames = "output-document", .Common = kGet | kSend}},
    {"include", 'i', "", kGet | kSend, "write the head of the response before its content",
     [](S& s, V) { s.Include = true; }, {.OtherNames = "show-headers", .Common = kGet | kSend}},
    {"head", 'I', "", kGet | kSend, "ask for the head only, and write it",
     [](S& s, V) { s.Head = true; }, {.Common = kGet}},
    {"dump-header", 'D', "FILE", kSingle, "write the head of the response to this file too; of several URLs one after the other. '-' is standard output",
     [](S& s, V v) { s.HeadFile = nonEmpty("dump-header", v); }, {.OtherNames = "save-headers"}},
    {"write-out", 'w', "FORMAT", kSingle, "write this after each transfer, with %{http_code}, %{time_total}, %{json} and other names of curl's; \\n is a line break. @FILE reads it from a file",
     [](S& s, V v) { s.WriteOut = v.starts_with('@') ? fileText(s, v) : v; }},
    {"consumer", 0, "", kSingle, "no effect; kept for older scripts",
     [](S&, V) {}},
    {"no-decode", 0, "", kTransfers, "do not decompress content",
     [](S& s, V) { s.Decode = false; }},
    {"location", 'L', "", kTransfers, "follow up to 20 redirects, the default except for send",
     [](S& s, V) { s.MaxRedirects = kDefaultRedirects; }, {.Common = kSend}},
    {"follow", 0, "N", kTransfers, "follow up to N redirects",
     [](S& s, V v) { s.MaxRedirects = number<int>("follow", v, 0, 1000); }, {.OtherNames = "max-redirs max-redirect max-redirects"}},
    {"no-follow", 0, "", kTransfers, "follow no redirects, the default for send",
     [](S& s, V) { s.MaxRedirects = 0; }},
    {"fail", 'f', "", kTransfers, "treat a status of 400 or above as a failure, the default except for send",
     [](S& s, V) { s.OnStatus = StatusChoice::Fail; s.Batch.Fail = true; }, {.OtherNames = "check-status", .Common = kSend}},
    {"fail-with-body", 0, "", kSingle, "the same, but deliver the content that comes with such a status first",
     [](S& s, V) { s.OnStatus = StatusChoice::FailWithBody; }},
    {"no-fail", 0, "", kTransfers, "deliver the content that comes with a status of 400 or above, and call that a success, the default for send",
     [](S& s, V) { s.OnStatus = StatusChoice::Deliver; s.Batch.Fail = false; }, {.Common = kGet | kSave | kBatch}},
    {"compressed", 0, "", kTransfers, "ask for compressed content, and decompress it",
     [](S& s, V) { s.Compressed = true; }, {.Common = kGet}},
};
// clang-format on

} // namespace

std::span<const OptionRow> responseOptions() {
    return kResponseOptions;
}

} // namespace netrove::cli
