// The transfer that runs on the handles, or ran on them last: from the send that begins it to the next one.
#pragma once

#include "http/ContentTail.h"
#include "transfer/CurlSlist.h"

#include <cstdint>
#include <exception>
#include <iosfwd>
#include <memory>

namespace netrove {

class InterruptibleStreamCopier;

// What libcurl reads of large content at a time, and so writes to the network at a time, unless the content is traced.
inline constexpr long kUploadBuffer = 512L << 10;

// Why a transfer can no longer deliver a whole response.
enum class TransferFault {
    None,
    UploadBroken, // the send pump was left before its end, or content cannot be sent again
    Failed,       // libcurl's result was judged a failure, or a callback failed
};

struct RunningTransfer {
    // Begins a new one under the number that the handles have now.
    void begin(std::uint64_t generation) {
        Generation = generation;
        Fault = TransferFault::None;
        Runs = false;
        HeadAwaited = true;
        UploadPending = false;
        IsPartial = false;
        PassedOn = 0;
        Target = nullptr;
        ConsumerHasPart = false;
    }

    bool Opened = false;          // after a successful open
    bool ResponseDone = false;    // sendRequest has finished; an open leaves it alone
    bool PerformDone = false;     // ends the perform loop
    bool InProgress = false;      // libcurl or a host object is being called for it: no call from there may disturb it
    std::uint64_t Generation = 0; // of the handles when it began; it runs while theirs is the same. 0: none began
    TransferFault Fault = TransferFault::None;
    bool Runs = false; // the last perform has left it running

    ContentTail Tail;                     // of the response's content
    std::uint64_t PassedOn = 0;           // bytes of the response's content that were delivered
    const std::ostream* Target = nullptr; // the stream that holds them; null: there is none
    std::streamoff TargetStart = 0;       // where they begin in it
    bool ConsumerHasPart = false;         // a consumer has some of them, so no further copy can deliver all

    bool HeadAwaited = false;             // the send has not reached its end, which is the complete response head
    bool IsPartial = false;               // less arrived than was announced, and a warning said so
    bool UploadPending = false;           // libcurl has not been told that the request's content has ended
    bool BodyFromPostData = false;        // the content is encoded PostData, so its length is announced
    bool HasContentLength = false;        // of the request being built
    bool IsSentByLength = false;          // that length, and no chunks, shows the server where the content ends
    std::int64_t ContentLengthToSend = 0; // goes with HasContentLength
    CurlSlist RequestHeaders;             // given to CURLOPT_HTTPHEADER; lives until the next send
    CurlSlist ProxyHeaders;               // given to CURLOPT_PROXYHEADER; lives until the next send
    std::shared_ptr<InterruptibleStreamCopier> Copier; // of the current request

    bool TransferFailed = false;        // an exception has left the send routine; nothing reads it
    std::exception_ptr CallbackFailure; // a failed check of the header callback; sendRequest rethrows it
    std::exception_ptr EscapedFailure;  // what would have left a callback; rethrown after the libcurl call
};

} // namespace netrove
