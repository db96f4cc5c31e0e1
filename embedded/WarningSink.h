// Where the warnings of a scope go.
#pragma once

#include "host/Messages.h"

#include <functional>

namespace vantik::detail {

class WarningSink {
public:
    using Handler = std::function<void(const resource_core::BaseMsgID&)>;

    // An empty handler restores the default: "warning: text", one line on standard error.
    void setHandler(Handler handler) { Current = std::move(handler); }

    // Returns in every case. A warning whose handler fails goes to standard error instead, so that none is lost.
    void show(const resource_core::BaseMsgID& id) noexcept;

private:
    Handler Current;
};

} // namespace vantik::detail
