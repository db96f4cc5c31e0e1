#include "errors/HTTPException.h"
#include "errors/InternalError.h"
#include "errors/ScopeExit.h"
#include "host/Messages.h"
#include "streaming/ContentBuffer.h"
#include "streaming/InterruptibleStreamCopier.h"
#include "transfer/CurlSingleton.h"
#include "transfer/HTTPConnection.h"
#include "transfer/Trace.h"

namespace netrove {

// The new copier replaces the last one, which stays if the new one cannot be built.
void HTTPConnection::startContent() {
    Transfer.Copier = std::make_shared<InterruptibleStreamCopier>(*this);
}

void HTTPConnection::sendContent() {
    Transfer.Copier->sendRequest();
}

void HTTPConnection::boundContent() {
    if (Transfer.Copier) {
        Transfer.Copier->pauseAtLimit();
    }
}

void HTTPConnection::requireCopyable(std::ostream* target) const {
    refuseWithin("Copying the content");
    if (!Transfer.Opened || sendIsDue()) {
        return;
    }
    requireOwnTransfer();
    requireNoFault();
    // A stream that holds all that was delivered, and nothing after it, may take the rest.
    const bool goesOn = target != nullptr && target == Transfer.Target && !Transfer.ConsumerHasPart &&
                        !Settings.Consumer &&
                        target->tellp() == Transfer.TargetStart + static_cast<std::streamoff>(Transfer.PassedOn);
    if (Transfer.PassedOn != 0 && !goesOn) {
        throwInternalError("The content of this response has been copied already, in whole or in part, and comes only "
                           "once. Close the connection and open it again.");
    }
}

void HTTPConnection::requireNoFault() const {
    switch (Transfer.Fault) {
    case TransferFault::None:
        return;
    case TransferFault::UploadBroken:
        throwInternalError("The upload was broken off before its end, so there is no response to copy. Close the "
                           "connection and open it again.");
    case TransferFault::Failed:
        throwInternalError(
            "The transfer has failed, so there is nothing to copy. Close the connection and open it again.");
    }
}

// Delivers the response's content to the stream, the consumer, or both.
void HTTPConnection::copyContentToStream(std::ostream& stream, bool useStream) {
    refuseWithin("Copying the content");
    if (Transfer.Opened) {
        try {
            sendRequest();
            std::ostream* const target = useStream ? &stream : nullptr;
            requireCopyable(target);
            const std::int32_t status = ReceivedHead.ResponseCode;
            if (!Settings.HTTPOptionsMode && (status < 200 || status > 299)) {
                throw webservices::HTTPStatusError(ReceivedHead.reasonPhrase(), &Settings.URL, status);
            }
            traceLine(Settings.Debug, "COPY CONTENT TO STREAM");
            receiveContent(target);
            traceLine(Settings.Debug, "CLOSING");
        } catch (const webservices::HTTPException&) {
            throw;
        } catch (const foundation::core::except::IException&) { // the host's interrupt too
            throw;
        } catch (const std::exception& failure) {
            if (!Settings.HTTPOptionsMode) {
                ReceivedHead.ResponseCode = 400;
            }
            throw webservices::HTTPConnectionFailedException(failure.what());
        }
    }
    traceLine(Settings.Debug, "******************** DONE WITH TRANSFER ***************");
    Transfer.ResponseDone = false;
}

void HTTPConnection::receiveContent(std::ostream* target) {
    if (auto* memory = dynamic_cast<ContentBuffer*>(target)) {
        // The length of encoded content says nothing of what is decoded.
        const bool isDecoded = Handles->Decodes && ReceivedHead.isEncoded();
        const std::int64_t left =
            Metadata.ResponseContentLength - static_cast<std::int64_t>(Transfer.PassedOn); // unknown: negative
        memory->expect(isDecoded || left < 0 ? 0 : static_cast<std::uint64_t>(left));
    }
    if (Transfer.PassedOn == 0) {
        Transfer.Target = target;
        Transfer.TargetStart = target != nullptr ? std::streamoff(target->tellp()) : 0;
    }
    {
        Transfer.InProgress = true;
        const ScopeExit ended([this] { Transfer.InProgress = false; });
        try {
            Transfer.Copier->receiveResponse(target);
        } catch (...) {
            if (Transfer.IsPartial) { // the warning is lost in this failure: a later copy would not learn of it
                Transfer.Fault = TransferFault::Failed;
            }
            throw;
        }
    }
    requireNoFault(); // a challenge that came this late may have broken the upload
    Transfer.Copier->releaseContent();
}

} // namespace netrove
