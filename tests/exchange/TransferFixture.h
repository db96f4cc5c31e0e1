// For tests of what may follow what: failures as one line each, and a check of a copy that has to be refused. Whatever
// a test does, nothing may come on the process's standard output.
#pragma once

#include "tests/support/host/HostFixture.h"
#include "tests/support/process/ProcessOutputCapture.h"
#include "tests/support/process/TemporaryFolder.h"

#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>

namespace testsupport {

inline constexpr const char* kOnlyOneTransfer = "VANTIK:http:OnlyOneTransferAtATime()";
inline constexpr const char* kOpenedAgain =
    "VANTIK:webservices:InternalError(The connection was opened again before the last response was copied. Close it "
    "first.)";
inline constexpr const char* kUploadBroken =
    "VANTIK:webservices:InternalError(The upload was broken off before its end, so there is no response to copy. Close "
    "the connection and open it again.)";
inline constexpr const char* kTransferFailed =
    "VANTIK:webservices:InternalError(The transfer has failed, so there is nothing to copy. Close the connection and "
    "open it again.)";
inline constexpr const char* kCopiedAlready =
    "VANTIK:webservices:InternalError(The content of this response has been copied already, in whole or in part, and "
    "comes only once. Close the connection and open it again.)";

class TransferFixture : public HostFixture {
protected:
    ~TransferFixture() override;

    // What the caller of an action sees: "nothing", "interrupt by the host", "interrupt by the program", a failure's
    // identifier with its arguments, or the words of an exception of the program's own.
    static std::string outcomeOf(const std::function<void()>& action);

    // A new object with its URL set, not opened.
    vantik::Object makeFor(const std::string& url, bool optionsMode = true);
    // Basic alone goes out with the first request. With several schemes the content goes out before libcurl knows that
    // it needs a login, and again with one.
    static void setLogin(const vantik::Object& connection, const char* username, const char* password,
                         std::initializer_list<std::string_view> schemes = {"Basic"});

    // Copies into the byte array, into a file and into a consumer are each refused with this failure: the file keeps
    // what it holds, and the consumer is not even started.
    void expectCopyRefused(const vantik::Object& connection, const std::string& failure);

    TemporaryFolder Folder;

private:
    ProcessOutputCapture Output;
};

} // namespace testsupport
