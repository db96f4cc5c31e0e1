// Where the warnings of a scope go.
#pragma once

#include "embedded/messages/HostFailure.h"
#include "host/Messages.h"

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace vantik::detail {

class WarningSink {
public:
    using Handler = std::function<void(const resource_core::BaseMsgID&)>;

    // An empty handler restores the default: "warning: text", one line on standard error.
    void setHandler(Handler handler) { Current = std::move(handler); }

    // Warnings of this identifier are no longer shown but kept for the operation that runs.
    void treatAsFailure(std::string_view identifier) { Failures.emplace(identifier); }

    // Returns in every case. A warning whose handler fails goes to standard error instead, so that none is lost.
    void show(const resource_core::BaseMsgID& id) noexcept;

private:
    friend class WarningsOfOperation;

    Handler Current;
    std::set<std::string, std::less<>> Failures; // identifiers
    std::optional<HostMessage> Kept;             // the first one of the operation that runs
};

// Around one operation of a program. Operations nest where a callable uses objects; each has the warnings of its own.
class WarningsOfOperation {
public:
    explicit WarningsOfOperation(WarningSink& sink) noexcept : Sink(sink), Outer(std::exchange(sink.Kept, {})) {}
    ~WarningsOfOperation() { Sink.Kept = std::move(Outer); }
    WarningsOfOperation(const WarningsOfOperation&) = delete;
    WarningsOfOperation& operator=(const WarningsOfOperation&) = delete;

    // To be called when the operation has succeeded. Raises what was kept.
    void raiseKept() const;

private:
    WarningSink& Sink;
    std::optional<HostMessage> Outer;
};

// Runs an operation of a program, and raises at its end the warning that the program treats as a failure.
template <class Operation>
auto withWarningsRaised(WarningSink& sink, Operation&& operation) -> decltype(operation()) {
    const WarningsOfOperation warnings(sink);
    if constexpr (std::is_void_v<decltype(operation())>) {
        operation();
        warnings.raiseKept();
    } else {
        auto result = operation();
        warnings.raiseKept();
        return result;
    }
}

} // namespace vantik::detail
