#include "cli/exchange/ContentOf.h"

#include "cli/system/BodySource.h"

#include <memory>
#include <span>
#include <string>
#include <utility>

namespace netrove::cli {

namespace {

constexpr const char* kFormType = "application/x-www-form-urlencoded";

// Content in memory whose length is not said.
netrove::Body chunked(std::string content, const char* type) {
    const auto held = std::make_shared<const std::string>(std::move(content));
    const auto start = [held] {
        return [held, left = true]() mutable {
            return std::exchange(left, false) ? std::as_bytes(std::span(*held)) : std::span<const std::byte>();
        };
    };
    return netrove::generators(start, {}, type);
}

} // namespace

netrove::Body contentOf(const Settings& settings, std::optional<Clock::time_point> deadline) {
    if (!settings.StreamFile.empty()) {
        return streamedContent(settings.StreamFile, !settings.Chunked, deadline);
    }
    if (!settings.BodyText && settings.BodyFile.empty()) {
        return {};
    }
    std::string content = settings.BodyText ? *settings.BodyText : readWhole(settings.BodyFile, deadline);
    const char* type = settings.BodyText ? kFormType : "";
    return settings.Chunked ? chunked(std::move(content), type) : netrove::text(std::move(content), type);
}

} // namespace netrove::cli
