#include "cli/exchange/Conditions.h"

#include "cli/failures/CliFailure.h"
#include "cli/system/BodySource.h"
#include "late/LateLibrary.h"
#include "late/PocoCalls.h"

#include <netrove/outputfile.h>
#include <netrove/text.h>

#include <charconv>
#include <cstdint>
#include <span>
#include <string>
#include <sys/stat.h>

namespace netrove::cli {

namespace {

constexpr int kPartialContent = 206;
constexpr int kRangeNotSatisfiable = 416;

// The time of the file of that name, or else the date that it is, as in a field of the head.
std::string dateOf(const std::string& text) {
    struct stat facts {};
    const auto& poco = lateCalls<PocoCalls>();
    if (stat(text.c_str(), &facts) == 0) {
        return poco.fieldDate(facts.st_mtime);
    }
    const auto date = poco.readDate(text);
    if (!date) {
        failUsage("'" + printable(text) +
                  "' is neither a file nor a date; --time-cond takes one, as in 'Sun, 06 Nov 1994 08:49:37 GMT' or "
                  "1994-11-06");
    }
    return *date;
}

void addTimeCondition(netrove::Request& request, const std::string& text) {
    if (text.starts_with('-') && text.size() > 1) {
        request.fields.set("If-Unmodified-Since", dateOf(text.substr(1)));
    } else {
        request.fields.set("If-Modified-Since", dateOf(text));
    }
}

// Without a file there is nothing to compare with: the first time.
void addTag(netrove::Request& request, const std::string& name) {
    if (!fileExists(name)) {
        return;
    }
    std::string tag = readWhole(name);
    tag.erase(tag.find_last_not_of(" \t\r\n") + 1);
    if (!tag.empty()) {
        request.fields.set("If-None-Match", tag);
    }
}

// "bytes 5-9/10" begins with byte 5.
bool beginsWith(std::string_view contentRange, std::string_view first) {
    constexpr std::string_view unit = "bytes ";
    if (contentRange.substr(0, unit.size()) != unit) {
        return false;
    }
    const std::string_view rest = contentRange.substr(unit.size());
    std::uint64_t wanted = 0;
    std::uint64_t there = 0;
    std::from_chars(first.data(), first.data() + first.size(), wanted);
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), there);
    return error == std::errc() && end != rest.data() + rest.size() && *end == '-' && there == wanted;
}

} // namespace

void addConditions(netrove::Request& request, const Settings& settings) {
    if (!settings.Range.empty()) {
        request.fields.set("Range", "bytes=" + settings.Range);
    }
    if (!settings.TimeCondition.empty()) {
        addTimeCondition(request, settings.TimeCondition);
    }
    if (!settings.File.TagCompared.empty()) {
        addTag(request, settings.File.TagCompared);
    }
}

void checkRange(const Settings& settings, const netrove::Response& head) {
    const bool isContent = (head.status >= 200 && head.status < 300) || head.status == kRangeNotSatisfiable;
    if (settings.Range.empty() || !isContent) {
        return;
    }
    const std::string_view first = std::string_view(settings.Range).substr(0, settings.Range.find('-'));
    const std::string given = head.fields["Content-Range"];
    const bool fits = head.status == kPartialContent && (first.empty() || beginsWith(given, first));
    if (fits || (head.status == 200 && settings.Range == "0-")) {
        return;
    }
    const std::string answer =
        head.status == kPartialContent ? "'" + printable(given) + "'" : std::to_string(head.status);
    fail(failure::kRangeRefused, {settings.Range, std::int64_t{head.status}},
         "the server does not send bytes " + settings.Range + ": it answered " + answer);
}

void saveTag(const Settings& settings, const netrove::Response& response) {
    const std::string tag = response.fields["ETag"];
    if (settings.File.TagSaved.empty() || tag.empty()) {
        return;
    }
    const std::string line = tag + "\n";
    OutputFile file(settings.File.TagSaved, true);
    file.write(std::as_bytes(std::span(line)));
    file.keep();
}

} // namespace netrove::cli
