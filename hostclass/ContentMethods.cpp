#include "hostclass/ContentMethods.h"

#include "errors/MessageIdentifiers.h"
#include "host/ArrayApi.h"
#include "host/Text.h"
#include "hostcalls/HostObjectCall.h"
#include "hostclass/HTTPConnectionAdapter.h"
#include "hostclass/TransferBoundary.h"
#include "hostclass/ValueConversion.h"

#include <exception>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace netrove {

namespace {

// Hands the consumer what had been saved before a failure. Whatever goes wrong here matters less than the failure on
// its way to the caller, and must not replace it. The consumer need not have the method.
void savePartialPayload(HTTPConnectionAdapter& adapter) noexcept {
    try {
        const SharedHostArray consumer = adapter.Connection.Settings.Consumer;
        const HostArray saved = adapter.takeResponse();
        vxArray_tag* arguments[] = {consumer.get(), saved.get()};
        HostArray none;
        tryHostMethod(kConsumerSavePayload, vcos::internal::makeInterned(kConsumerClassName), arguments, none);
    } catch (...) {
    }
}

void collectContent(HTTPConnectionAdapter& adapter, bool toBuffer) {
    adapter.Connection.requireCopyable(toBuffer ? &adapter.ResponseBuffer
                                                : nullptr); // a refusal loses nothing that was kept
    try {
        adapter.Connection.copyContentToStream(adapter.ResponseBuffer, toBuffer);
    } catch (const std::exception&) {
        // Without a consumer, or if the content was not for the buffer, the buffer keeps what it has received.
        if (adapter.Connection.Settings.Consumer && toBuffer) {
            savePartialPayload(adapter);
            adapter.emptyResponseBuffer();
        }
        throw;
    }
}

[[noreturn]] void raiseInvalidFilename(const std::u16string& name) {
    VANTIK::raise<VANTIK::webservices::InvalidFilename>(fl::i18n::to_string(name));
}

// The stream is not open if the platform cannot have a file of that name: the name cannot be encoded, or it holds a
// NUL, at which the platform would stop reading and so truncate another file.
std::ofstream openForWriting(const std::u16string& nativeName) {
    std::ofstream file;
    if (nativeName.find(u'\0') != std::u16string::npos) {
        return file;
    }
    try {
        file.open(std::filesystem::path(nativeName), std::ios::binary | std::ios::trunc);
    } catch (const std::system_error&) {
        return std::ofstream();
    }
    return file;
}

} // namespace

void copyContentToByteArray(HTTPConnectionAdapter* adapter, int, vcos::COSValue* results, int,
                            const vcos::COSValue* inputs) {
    const bool toBuffer = ValueSlot<bool>::read(inputs[0]);
    acrossTransferBoundary(*adapter, [&] { collectContent(*adapter, toBuffer); });
    if (!adapter->Connection.Transfer.Opened) {
        adapter->dropReceived(); // a closed connection has no content, whatever a failed copy had kept
    }
    giveResult(results[0], adapter->takeResponse());
}

void copyContentToFile(HTTPConnectionAdapter* adapter, int, vcos::COSValue*, int, const vcos::COSValue* inputs) {
    adapter->Connection.requireCopyable(nullptr); // before a file that already holds a copy loses it
    const std::u16string name = matrix::get_ustring(ValueSlot<vxArray_tag*>::read(inputs[0]));
    std::ofstream file = openForWriting(fl::filesystem::detail::make_native_access_form_with_cleanup_i18n(name));
    if (!file.is_open()) {
        raiseInvalidFilename(name);
    }
    acrossTransferBoundary(*adapter, [&] { adapter->Connection.copyContentToStream(file, true); });
    // Kept on purpose: the state before the close decides, and a failure of the close is ignored. Content still in the
    // stream's own buffer is therefore written, or lost, unnoticed.
    const bool failed = file.fail();
    file.close();
    if (failed) {
        raiseInvalidFilename(name);
    }
}

} // namespace netrove
