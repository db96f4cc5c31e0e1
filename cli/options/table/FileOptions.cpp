#include "cli/failures/CliFailure.h"
#include "cli/options/table/OptionGroups.h"
#include "cli/options/table/OptionValues.h"

#include <netrove/text.h>

#include <algorithm>

namespace netrove::cli {

namespace {

constexpr std::size_t kSha256Digits = 64;
constexpr std::uint64_t kLargestOffset = std::uint64_t{1} << 62;

// "-" for what is there, or a number of bytes.
void takeContinue(S& s, V v) {
    s.File.Continue = true;
    if (v != "-") {
        s.File.ContinueAt = number<std::uint64_t>("continue-at", v, 0, kLargestOffset);
    }
}

bool isRange(std::string_view text) {
    const auto dash = text.find('-');
    if (dash == text.npos || text.size() < 2) {
        return false;
    }
    const std::string_view first = text.substr(0, dash);
    const std::string_view last = text.substr(dash + 1);
    const auto isNumber = [](std::string_view part) {
        return part.size() <= 18 && part.find_first_not_of("0123456789") == part.npos;
    };
    return isNumber(first) && isNumber(last) &&
           (first.empty() || last.empty() || std::stoull(std::string(first)) <= std::stoull(std::string(last)));
}

void takeRange(S& s, V v) {
    if (!isRange(v)) {
        failValue("range", v, "one range of bytes: A-B, A- for the rest, or -N for the last N");
    }
    s.Range = v;
}

// "sha256:HEX", with another sign or a hyphen as others write it, or the digits alone, as sha256sum prints them.
void takeDigest(S& s, V v) {
    std::string_view digits = v;
    for (const std::string_view name : {"sha256", "sha-256"}) {
        const bool named =
            v.starts_with(name) && v.size() > name.size() && (v[name.size()] == ':' || v[name.size()] == '=');
        digits.remove_prefix(named ? name.size() + 1 : 0);
    }
    if (digits.size() != kSha256Digits || digits.find_first_not_of("0123456789abcdefABCDEF") != digits.npos) {
        failValue("digest", v, "sha256: and 64 hexadecimal digits (the scheme of a login is --auth digest)");
    }
    s.File.Sha256 = digits;
}

// clang-format off
const OptionRow kFileOptions[] = {
    {"continue-at", 'C', "OFFSET|-", kGet | kSave, "go on where an earlier download ended: '-' with what it left, FILE.part or a shorter FILE of another program; with a number of bytes exactly there, or fail. What is there already is not fetched again",
     takeContinue, {.Common = kSave}},
    {"continue", 0, "", kGet | kSave, "the same as -C -",
     [](S& s, V) { takeContinue(s, "-"); }},
    {"range", 'r', "A-B", kGet | kSave, "fetch only bytes A to B, counted from 0; A- is the rest, -N the last N. A server that sends something else is a failure",
     takeRange},
    {"force", 0, "", kSave | kBatch, "replace an existing file",
     [](S& s, V) { s.Force = true; }, {.Common = kSave | kBatch}},
    {"skip-existing", 0, "", kSave | kBatch, "leave an existing file as it is, ask for nothing and call that a success",
     [](S& s, V) { s.File.SkipExisting = true; }, {.OtherNames = "no-clobber"}},
    {"remote-header-name", 'J', "", kSave, "take the file's name from the response, if it has one (Content-Disposition)",
     [](S& s, V) { s.File.RemoteName = true; }, {.OtherNames = "content-disposition"}},
    {"remote-time", 'R', "", kGet | kSave, "give the file the time that the server says it was last modified",
     [](S& s, V) { s.File.RemoteTime = true; }},
    {"digest", 0, "sha256:HEX", kGet | kSave, "fail, and keep no file, unless the content has this SHA-256",
     takeDigest, {.OtherNames = "checksum"}},
    {"output-dir", 0, "FOLDER", kGet | kSave | kBatch, "put the file into this folder: targets are below it, unless they are absolute",
     [](S& s, V v) { s.File.Folder = nonEmpty("output-dir", v); }},
    {"create-dirs", 0, "", kGet | kSave | kBatch, "create missing folders for the targets",
     [](S& s, V) { s.File.MakeFolders = true; }},
    {"time-cond", 'z', "DATE|FILE", kGet | kSave, "fetch only what was modified after this date, or after the time of this file. With '-' in front: what was not",
     [](S& s, V v) { s.TimeCondition = nonEmpty("time-cond", v); }},
    {"etag-compare", 0, "FILE", kGet | kSave, "fetch only what has another ETag than the one in this file",
     [](S& s, V v) { s.File.TagCompared = nonEmpty("etag-compare", v); }},
    {"etag-save", 0, "FILE", kGet | kSave, "write the response's ETag to this file",
     [](S& s, V v) { s.File.TagSaved = nonEmpty("etag-save", v); }},
};
// clang-format on

} // namespace

std::span<const OptionRow> fileOptions() {
    return kFileOptions;
}

} // namespace netrove::cli
