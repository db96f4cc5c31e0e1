#include "errors/InternalError.h"

#include "errors/MessageIdentifiers.h"

namespace netrove {

void throwInternalError(const std::string& text) {
    VANTIK::raise<VANTIK::webservices::InternalError>(text);
}

} // namespace netrove
