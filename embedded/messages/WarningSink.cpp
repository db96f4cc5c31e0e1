#include "embedded/messages/WarningSink.h"

#include "host/Text.h"

#include <cstdio>
#include <exception>
#include <string>

namespace vantik::detail {

void WarningSink::show(const resource_core::BaseMsgID& id) noexcept {
    try {
        if (Failures.contains(id.fullName())) {
            if (!Kept) {
                Kept.emplace(id.arguments(), id.catalogue(), id.key());
            }
            return;
        }
        if (Current) {
            const Handler handler = Current; // the handler may set another one
            handler(id);
            return;
        }
    } catch (...) {
        // Falls through to standard error: a warning does not stop what it warns about, and is not lost either.
    }
    try {
        const std::u16string text = fl::i18n::MessageCatalog::get_message(id, fl::i18n::VkLocale::global());
        std::fprintf(stderr, "warning: %s\n", fl::i18n::to_string(text).c_str());
    } catch (const std::exception&) {
        std::fprintf(stderr, "warning: %s:%s\n", id.catalogue().c_str(), id.key().c_str());
    }
}

void WarningsOfOperation::raiseKept() const {
    if (Sink.Kept) {
        throw HostException(*Sink.Kept);
    }
}

} // namespace vantik::detail
