#include "client/save/ContentState.h"

#include "client/request/RequestChecks.h"
#include "client/save/ContentRange.h"
#include "client/text/Ascii.h"
#include "client/text/HttpDate.h"

#include <charconv>

namespace netrove {

namespace {

constexpr int kPartialContent = 206;

// A date proves that content is the same only if it was past when the content came (RFC 9110, section 8.8.2.2).
constexpr std::chrono::seconds kOldEnough(1);

bool isTag(std::string_view validator) {
    return validator.starts_with('"');
}

// What stays the same as long as the server's content does (RFC 9110, section 13.1.5).
std::string validatorOf(const Fields& fields) {
    const std::string tag = fields["ETag"];
    if (!tag.empty()) {
        return isTag(tag) && isFieldValue(tag) ? tag : "";
    }
    const auto now = WallClock::now();
    const auto modified = parseHttpDate(fields["Last-Modified"], now);
    const auto sent = parseHttpDate(fields["Date"], now);
    return modified && sent && *sent - *modified >= kOldEnough ? fields["Last-Modified"] : "";
}

bool differ(std::string_view known, std::string_view seen) {
    return !seen.empty() && seen != known;
}

} // namespace

std::optional<std::uint64_t> wholeLength(const Response& head) {
    if (head.status == kPartialContent) {
        const auto range = parseContentRange(head.fields["Content-Range"]);
        return range ? range->Total : std::nullopt;
    }
    const std::string text = head.fields["Content-Length"];
    std::uint64_t length = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
    const bool said = error == std::errc() && end == text.data() + text.size();
    return said && !head.fields.contains("Transfer-Encoding") ? std::optional(length) : std::nullopt;
}

ContentState stateOf(const Response& head) {
    const std::string coding = head.fields["Content-Encoding"];
    return {validatorOf(head.fields), head.fields["Last-Modified"],
            equalsIgnoringCase(coding, "identity") ? std::string() : coding, wholeLength(head)};
}

bool sameContent(const ContentState& known, const ContentState& seen) {
    const bool byDate = !known.Validator.empty() && !isTag(known.Validator);
    return !(isTag(known.Validator) && isTag(seen.Validator) && known.Validator != seen.Validator) &&
           !(byDate && differ(known.Modified, seen.Modified)) && !differ(known.Coding, seen.Coding) &&
           !(known.Length && seen.Length && known.Length != seen.Length);
}

} // namespace netrove
