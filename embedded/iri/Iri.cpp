#include "host/Iri.h"

#include "embedded/iri/IriParts.h"
#include "embedded/iri/IriText.h"
#include "host/Messages.h"

#include <exception>
#include <utility>

namespace foundation::network {

namespace {

std::u16string widened(const std::string& ascii) {
    return std::u16string(ascii.begin(), ascii.end());
}

std::u16string widened(const std::optional<std::string>& ascii) {
    return ascii ? widened(*ascii) : std::u16string();
}

} // namespace

struct IRI::Parts : vantik::detail::IriParts {};

IRI::IRI() = default;

IRI::IRI(const std::u16string& text) {
    if (!text.empty()) {
        Data = std::make_unique<Parts>(Parts{vantik::detail::parseIri(text)});
    }
}

IRI::IRI(const IRIArgs& parts) : Data(parts.Data ? std::make_unique<Parts>(*parts.Data) : nullptr) {}

IRI::IRI(IRI&&) noexcept = default;

IRI& IRI::operator=(IRI&&) noexcept = default;

IRI::~IRI() = default;

bool IRI::isEmpty() const {
    return !Data || (!Data->Scheme && !Data->HasAuthority && Data->Path.empty() && !Data->Query && !Data->Fragment);
}

bool IRI::hasScheme() const {
    return Data && Data->Scheme;
}

std::u16string IRI::getScheme() const {
    return Data ? widened(Data->Scheme) : std::u16string();
}

bool IRI::hasHost() const {
    return Data && !Data->Host.empty();
}

std::u16string IRI::getHost(Encoding) const {
    return Data ? widened(Data->Host) : std::u16string();
}

std::u16string IRI::getPath() const {
    return Data ? widened(Data->Path) : std::u16string();
}

bool IRI::hasQuery() const {
    return Data && Data->Query;
}

std::u16string IRI::getQuery() const {
    return Data ? widened(Data->Query) : std::u16string();
}

bool IRI::hasFragment() const {
    return Data && Data->Fragment;
}

std::u16string IRI::toAsciiString(bool decode) const {
    return Data ? widened(vantik::detail::composeIri(*Data, decode)) : std::u16string();
}

IRI IRI::resolveAgainst(const IRI& base) const {
    if (!base.hasScheme()) {
        vantik::detail::refuseIri("base without a scheme", 0);
    }
    IRI result;
    result.Data = std::make_unique<Parts>(Parts{vantik::detail::resolveIri(Data ? *Data : Parts{}, *base.Data)});
    return result;
}

IRIArgs::IRIArgs(const IRI& iri) : Data(iri.Data ? std::make_unique<IRI::Parts>(*iri.Data) : nullptr) {}

IRIArgs::~IRIArgs() = default;

IRIArgs& IRIArgs::clearFragment() {
    if (Data) {
        Data->Fragment.reset();
    }
    return *this;
}

} // namespace foundation::network
