#include "cli/exchange/ContentOf.h"

#include "cli/options/DataText.h"
#include "cli/system/BodySource.h"

#include <utility>
#include <vector>

namespace netrove::cli {

namespace {

constexpr const char* kFormType = "application/x-www-form-urlencoded";

netrove::Body withoutLength(const netrove::Body& body) {
    return {[body] { return body.open(); }, {}, body.repeatable(), body.contentType()};
}

netrove::Part partOf(const FormField& field, std::optional<Clock::time_point> deadline) {
    if (field.ContentKind == FormField::Kind::Upload) {
        // Opened while it is sent only, so that a form may have more files than a process may open.
        const bool input = field.Value == "-";
        netrove::Body content =
            input ? streamedContent("-", true, deadline).as(field.Type) : netrove::file(field.Value, field.Type);
        return {field.Name, std::move(content), input && field.FileName.empty() ? "-" : field.FileName};
    }
    std::string text = field.ContentKind == FormField::Kind::Text ? field.Value : readWhole(field.Value, deadline);
    return {field.Name,
            field.Type.empty() ? netrove::text(std::move(text)) : netrove::text(std::move(text), field.Type),
            field.FileName};
}

netrove::Body formOf(const std::vector<FormField>& fields, std::optional<Clock::time_point> deadline) {
    std::vector<netrove::Part> parts;
    parts.reserve(fields.size());
    for (const FormField& field : fields) {
        parts.push_back(partOf(field, deadline));
    }
    return netrove::multipart(std::move(parts));
}

netrove::Body heldOrForm(const Settings& settings, std::optional<Clock::time_point> deadline) {
    if (!settings.Form.empty()) {
        return formOf(settings.Form, deadline);
    }
    if (settings.JsonText) {
        return netrove::text(*settings.JsonText, "application/json");
    }
    if (settings.BodyText && !settings.DataInQuery) {
        return netrove::text(*settings.BodyText, kFormType);
    }
    return settings.BodyFile.empty() ? netrove::Body() : netrove::text(readWhole(settings.BodyFile, deadline), "");
}

} // namespace

netrove::Body contentOf(const Settings& settings, std::optional<Clock::time_point> deadline) {
    if (!settings.StreamFile.empty()) {
        return streamedContent(settings.StreamFile, !settings.Chunked, deadline);
    }
    const netrove::Body content = heldOrForm(settings, deadline);
    return settings.Chunked && content ? withoutLength(content) : content;
}

std::string requestUrl(const Settings& settings) {
    const std::string url = withQuery(settings.Url, settings.MoreQuery);
    return settings.DataInQuery ? withQuery(url, settings.BodyText.value_or("")) : url;
}

} // namespace netrove::cli
