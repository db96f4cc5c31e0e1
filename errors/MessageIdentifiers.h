// Every message identifier that the library uses, with the kinds of its arguments in order. One line each.
#pragma once

#include "host/Messages.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <utility>

namespace VANTIK {

// Kinds of arguments.
using Integer = std::int64_t;
using Narrow = std::string;
using Wide = std::u16string;

// A string literal as a template argument.
template <std::size_t N>
struct Literal {
    char Text[N]{};
    constexpr Literal(const char (&text)[N]) { std::copy_n(text, N, Text); }
};

// An identifier whose constructor takes exactly its arguments and copies them into the list in order.
template <Literal CatalogueName, Literal KeyName, class... Kinds>
class Identifier : public resource_core::BaseMsgID {
public:
    explicit Identifier(const Kinds&... values)
        : BaseMsgID({resource_core::MsgArgument(values)...}, CatalogueName.Text, KeyName.Text) {}
};

// The host-layer exception of an identifier.
template <class Tag>
using Failure = foundation::core::except::Exception<Tag, std::exception, void>;

template <class Tag, class... Values>
[[noreturn]] void raise(Values&&... values) {
    throw Failure<Tag>(Tag(std::forward<Values>(values)...));
}

// clang-format off
namespace webservices {
template <Literal KeyName, class... Kinds>
using Id = Identifier<"VANTIK:webservices", KeyName, Kinds...>;

struct InternalError                : Id<"InternalError", Narrow>                              { using Identifier::Identifier; };
// From an exception's text and the URL, both wide, or from libcurl's text and the URL, both narrow.
struct CopyContentToDataStreamError : resource_core::BaseMsgID {
    CopyContentToDataStreamError(const Wide& message, const Wide& url)
        : BaseMsgID({message, url}, "VANTIK:webservices", "CopyContentToDataStreamError") {}
    CopyContentToDataStreamError(const char* errorText, const Narrow& url)
        : BaseMsgID({Narrow(errorText), url}, "VANTIK:webservices", "CopyContentToDataStreamError") {}
};
struct StatusError                  : Id<"StatusError", Integer, Wide, Wide>                   { using Identifier::Identifier; };
struct SSLConnectionNoFile          : Id<"SSLConnectionNoFile", Narrow, Wide>                  { using Identifier::Identifier; };
struct SSLConnectionSystemFailure   : Id<"SSLConnectionSystemFailure", Narrow, Wide>           { using Identifier::Identifier; };
struct SSLConnectionFailure         : Id<"SSLConnectionFailure", Narrow, Wide, Narrow>         { using Identifier::Identifier; };
struct CertificateFailedVerification: Id<"CertificateFailedVerification", Narrow, Narrow>      { using Identifier::Identifier; };
struct Timeout                      : Id<"Timeout", Wide, Narrow, Wide, Wide>                  { using Identifier::Identifier; };
struct MalformedURL                 : Id<"MalformedURL", Wide>                                 { using Identifier::Identifier; };
struct UnknownHost                  : Id<"UnknownHost", Wide>                                  { using Identifier::Identifier; };
struct FileNotFound                 : Id<"FileNotFound", Wide>                                 { using Identifier::Identifier; };
struct OperationTerminatedByConsumer: Id<"OperationTerminatedByConsumer", Wide>                { using Identifier::Identifier; };
struct ConnectionFailed             : Id<"ConnectionFailed", Wide>                             { using Identifier::Identifier; };
struct ConnectionRefused            : Id<"ConnectionRefused", Wide, Wide>                      { using Identifier::Identifier; };
struct DecodingError                : Id<"DecodingError", Narrow, Narrow>                      { using Identifier::Identifier; };
struct DecodedContentTooLarge       : Id<"DecodedContentTooLarge", Narrow, Narrow>             { using Identifier::Identifier; };
struct RandomError                  : Id<"RandomError", Narrow>                                { using Identifier::Identifier; };
struct ExpectedProtocol             : Id<"ExpectedProtocol", Narrow, Narrow, Narrow, Narrow>   { using Identifier::Identifier; };
struct PartialFileWarning           : Id<"PartialFileWarning", Narrow, Narrow, Narrow>         { using Identifier::Identifier; }; // warnings only
struct EncodingFailure              : Id<"EncodingFailure", Wide, Narrow, Narrow>              { using Identifier::Identifier; };
struct EmptyName                    : Id<"EmptyName", Narrow>                                  { using Identifier::Identifier; };
struct InvalidFilename              : Id<"InvalidFilename", Narrow>                            { using Identifier::Identifier; };
struct TimeoutReasonResponseHeader  : Id<"TimeoutReasonResponseHeader">                        { using Identifier::Identifier; }; // only rendered
struct TimeoutReasonStoppedSending  : Id<"TimeoutReasonStoppedSending">                        { using Identifier::Identifier; }; // only rendered
struct TimeoutReasonSystemLimit     : Id<"TimeoutReasonSystemLimit">                           { using Identifier::Identifier; }; // only rendered
struct TimeoutSystemTCP             : Id<"TimeoutSystemTCP">                                   { using Identifier::Identifier; }; // only rendered
} // namespace webservices

namespace http {
struct OnlyOneTransferAtATime       : Identifier<"VANTIK:http", "OnlyOneTransferAtATime">      { using Identifier::Identifier; };
} // namespace http

namespace type {
struct PropSetClsMismatch           : Identifier<"VANTIK:type", "PropSetClsMismatch", Narrow>  { using Identifier::Identifier; }; // only rendered
} // namespace type

namespace legacy_two_part {
struct UnableToConvert              : Identifier<"VANTIK:legacy_two_part", "UnableToConvert", Narrow, Narrow, Wide> { using Identifier::Identifier; };
struct undefinedVarOrClass          : Identifier<"VANTIK:legacy_two_part", "undefinedVarOrClass", Narrow>           { using Identifier::Identifier; };
} // namespace legacy_two_part
// clang-format on

} // namespace VANTIK
