// The host's URL library (libvkflnetwork): internationalised resource identifiers by RFC 3987, parsed and resolved
// by RFC 3986.
#pragma once

#include "host/HostApi.h"

#include <memory>
#include <string>

namespace foundation::network {

class IRIArgs;

// An identifier, empty or valid. Schemes and hosts are in lower case; path, query and fragment are kept as given, with
// characters outside ASCII percent-encoded as UTF-8.
class VANTIK_HOST_API IRI {
public:
    // Form in which a host is printed.
    enum class Encoding : int {
        Ascii = 3 // the ASCII form of UTS 46, IPv6 addresses in brackets; what goes on the wire
    };

    IRI();
    // Raises an IInternalException for text that is not an IRI reference: control characters or backslashes, a space in
    // the authority, a bad percent-encoding, a host that UTS 46 refuses, a port outside 0 to 65535. Spaces elsewhere
    // become "%20", and ASCII characters that a path, query or fragment must not hold are percent-encoded. The empty
    // text becomes the empty IRI.
    explicit IRI(const std::u16string& text);
    explicit IRI(const IRIArgs& parts);
    IRI(IRI&&) noexcept;
    IRI& operator=(IRI&&) noexcept;
    ~IRI();

    bool isEmpty() const;
    bool hasScheme() const;
    std::u16string getScheme() const;
    bool hasHost() const; // true for an authority whose host is not empty
    std::u16string getHost(Encoding encoding) const;
    std::u16string getPath() const; // ASCII form
    bool hasQuery() const;
    std::u16string getQuery() const; // ASCII form, without the "?"
    bool hasFragment() const;

    // The whole identifier in ASCII. `decode` true undoes percent-encodings of unreserved characters.
    std::u16string toAsciiString(bool decode) const;

    // This reference resolved against `base` by RFC 3986 section 5.2. Raises an IInternalException where `base` has no
    // scheme.
    IRI resolveAgainst(const IRI& base) const;

private:
    friend class IRIArgs;
    struct Parts;
    std::unique_ptr<Parts> Data; // null: the empty IRI
};

// The parts of an IRI, to build another one from.
class VANTIK_HOST_API IRIArgs {
public:
    explicit IRIArgs(const IRI& iri);
    ~IRIArgs();
    IRIArgs& clearFragment();

private:
    friend class IRI;
    std::unique_ptr<IRI::Parts> Data;
};

} // namespace foundation::network
