#include "errors/InternalError.h"

#include "errors/MessageIdentifiers.h"

void throwInternalError(const std::string& text) {
    VANTIK::raise<VANTIK::webservices::InternalError>(text);
}
