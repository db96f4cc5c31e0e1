// The boundary that failures of the transfer layer do not cross: every handler or getter that can reach the transfer
// runs its call through here.
#pragma once

#include "errors/HTTPException.h"
#include "errors/TranslateTransferException.h"
#include "hostclass/HTTPConnectionAdapter.h"

#include <string>
#include <utility>

namespace netrove {

// Runs `call`. A failure of the HTTPException family becomes the host's; every other exception passes unchanged.
template <class Call>
decltype(auto) acrossTransferBoundary(HTTPConnectionAdapter& adapter, Call&& call) {
    try {
        return std::forward<Call>(call)();
    } catch (const webservices::HTTPException&) {
        const std::u16string url = adapter.Connection.Settings.URL; // a copy: the failure must not depend on the field
        webservices::translateTransferException(url);
    }
}

} // namespace netrove
