#include "errors/HTTPException.h"

#include "host/Text.h"

namespace webservices {

HTTPException::HTTPException(const std::string& text) : std::runtime_error(text), Message(fl::i18n::to_ustring(text)) {}

HTTPException::HTTPException(const std::u16string& text)
    : std::runtime_error(fl::i18n::to_string(text)), Message(text) {}

HTTPException::~HTTPException() = default;

const char* HTTPException::what() const noexcept {
    const char* text = std::runtime_error::what();
    return *text == '\0' ? "Unknown exception" : text;
}

} // namespace webservices
