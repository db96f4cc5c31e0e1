// One exchange through the connection object: requests until no redirect is left to follow, then the content.
#pragma once

#include "cli/exchange/BodySink.h"
#include "cli/exchange/Redirects.h"
#include "cli/exchange/Session.h"
#include "cli/system/BodySource.h"
#include "cli/terminal/Output.h"
#include "cli/terminal/Progress.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace netrove::cli {

constexpr int kFirstErrorStatus = 400; // RFC 9110, section 15

// The head of the final response.
struct Response {
    std::string Url; // of the request that it answers, in ASCII
    std::string Method;
    std::string Version;
    int Status = 0;
    std::string Reason;
    std::vector<Field> Fields;
    int Redirects = 0; // followed on the way to it

    const Field* field(std::string_view name) const; // the first of that name; null for none
    vantik::Message statusError() const;             // for a status that is taken as a failure
    // The head, each line ended by CR LF, the blank line included. The host holds text, so bytes that are not UTF-8
    // come out as replacement characters.
    std::string head() const;
};

class Exchange {
public:
    Exchange(Session& session, const Settings& settings, const Console& console);
    ~Exchange();
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    // Sends, and follows redirects as the settings say. Does not read the content.
    Response send();

    // How many bytes of content will be delivered, if the response says.
    std::optional<std::uint64_t> announcedLength(const Response& response) const;

    // Reads the content through a consumer; returns the number of bytes delivered.
    std::uint64_t receive(BodySink& sink, ProgressMeter& meter);

    // Ends the exchange. Raises if the response was incomplete.
    void finish();
    void close();

    // True once a server has answered with a redirect that was followed.
    bool redirected() const { return Redirected; }

private:
    // ExchangeSetup.cpp: everything that must be set before the response can be asked for, in the order that the class
    // requires.
    void prepare(Request& request);
    void makeConnection();
    void setBeforeOpen(const Request& request);
    void openThroughProxy(const std::string& url);
    void setAfterOpen(const Request& request);
    void setBody(const Request& request);
    std::vector<Field> fieldsFor(const Request& request) const;
    std::optional<std::uint64_t> bodyLength() const;
    bool sendsPostData(const Request& request) const;

    Response readHead(const Request& request);
    // Runs an operation of the library. A failure of our own source or sink comes out as it was raised there.
    template <class Operation>
    auto guarded(Operation operation, const BodySink* sink = nullptr);
    void checkStop();
    void requireWhole() const; // raises what the library has warned about
    void invoke(std::string_view method, std::initializer_list<vantik::Array> arguments = {});

    Session& TheSession;
    const Settings& TheSettings;
    std::optional<std::string> Body; // held in memory
    std::unique_ptr<BodySource> Source;
    std::unique_ptr<ProgressMeter> UploadMeter;
    vantik::Object Provider;
    bool Redirected = false;
};

} // namespace netrove::cli
