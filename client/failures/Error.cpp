#include <netrove/error.h>
#include <netrove/response.h>

#include <array>
#include <utility>

namespace netrove {

namespace {

constexpr std::array<std::string_view, 12> kNames = {"url",         "name",   "connect", "proxy", "tls",   "timeout",
                                                     "interrupted", "status", "content", "file",  "usage", "other"};

} // namespace

std::string_view nameOf(ErrorKind kind) {
    return kNames.at(static_cast<std::size_t>(kind));
}

struct Error::Content {
    ErrorKind Kind;
    std::string Identifier;
    std::vector<Argument> Arguments;
    std::string Text;
    Response Before;
    bool Sent = false;
    std::string HostText = {};
};

Error::Error(ErrorKind kind, std::string identifier, std::vector<Argument> arguments, const std::string& text)
    : Error([&] {
          std::string shown = !text.empty() ? text : !identifier.empty() ? identifier : std::string(nameOf(kind));
          return std::make_shared<const Content>(
              Content{kind, std::move(identifier), std::move(arguments), std::move(shown), {}});
      }()) {}

Error::Error(std::shared_ptr<const Content> content) : std::runtime_error(content->Text), Shared(std::move(content)) {}

Error::~Error() = default;
Error::Error(const Error&) = default;

ErrorKind Error::kind() const noexcept {
    return Shared->Kind;
}

const std::string& Error::identifier() const noexcept {
    return Shared->Identifier;
}

const std::vector<Error::Argument>& Error::arguments() const noexcept {
    return Shared->Arguments;
}

const Response& Error::response() const noexcept {
    return Shared->Before;
}

bool Error::sent() const noexcept {
    return Shared->Sent;
}

const std::string& Error::hostText() const noexcept {
    return Shared->HostText;
}

Error Error::withHostText(std::string text) const {
    Content content = *Shared;
    content.HostText = std::move(text);
    return Error(std::make_shared<const Content>(std::move(content)));
}

Error Error::with(Response response, bool sent) const {
    Content content = *Shared;
    content.Before = std::move(response);
    content.Sent = sent;
    return Error(std::make_shared<const Content>(std::move(content)));
}

Error Error::with(ErrorKind kind, const std::string& text) const {
    Content content = *Shared;
    content.Kind = kind;
    content.Text = text.empty() ? content.Text : text;
    return Error(std::make_shared<const Content>(std::move(content)));
}

} // namespace netrove
