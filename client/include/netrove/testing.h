/// @file
/// Answers without a server, for tests of programs that use a Client.
#pragma once

#include <netrove/transport.h>

#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace netrove::testing {

/// How an exchange goes wrong.
enum class Fault {
    None,
    UnknownHost, ///< there is no such host
    Refused,     ///< nobody listens
    Reset,       ///< the connection breaks off before the head
    Timeout,     ///< nothing comes before Limits::response
    Short,       ///< the content ends before its announced length
};

/// One scripted answer.
struct Answer {
    int status = 200;          ///< of the response
    Fields fields = {};        ///< of the response; a Content-Length is added
    std::string content = {};  ///< of the response
    Fault fault = Fault::None; ///< what goes wrong instead, or, with `Short`, at the end
    std::string url = {};      ///< only for this URL; empty: for any
};

/// A request as it would have gone out.
struct SentRequest {
    std::string method = {};  ///< "GET"
    std::string url = {};     ///< absolute
    Fields fields = {};       ///< those of the program and the client; the network adds its own
    std::string content = {}; ///< all of it
};

/// A list of answers, given one for each request in order, and a record of the requests. May be used by the clients of
/// several threads at once.
/// @code
/// netrove::testing::Script script{{.content = "hello"}, {.fault = netrove::testing::Fault::Reset}};
/// netrove::Client client({}, script.transport());
/// @endcode
class NETROVE_API Script {
public:
    Script(std::initializer_list<Answer> answers); ///< in the order in which they are given
    ~Script();
    Script(const Script&) = delete;
    Script& operator=(const Script&) = delete;

    void add(Answer answer); ///< after those that are there
    /// For a Client, which may outlive this object.
    std::unique_ptr<Transport> transport() const;
    std::vector<SentRequest> requests() const; ///< all so far, in order
    std::size_t left() const;                  ///< answers that nobody has asked for

private:
    struct State;
    std::shared_ptr<State> Shared;
};

} // namespace netrove::testing
