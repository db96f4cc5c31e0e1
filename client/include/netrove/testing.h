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
    int status = 200;
    Fields fields = {};
    std::string content = {};
    Fault fault = Fault::None;
    std::string url = {}; ///< only for this URL; empty: for any
};

/// A request as it would have gone out.
struct SentRequest {
    std::string method = {};
    std::string url = {};
    Fields fields = {};
    std::string content = {};
};

/// A list of answers, given one for each request in order, and a record of the requests. May be used by the clients of
/// several threads at once.
/// @code
/// netrove::testing::Script script{{.content = "hello"}, {.fault = netrove::testing::Fault::Reset}};
/// netrove::Client client({}, script.transport());
/// @endcode
class NETROVE_API Script {
public:
    Script(std::initializer_list<Answer> answers);
    ~Script();
    Script(const Script&) = delete;
    Script& operator=(const Script&) = delete;

    void add(Answer answer);
    /// For a Client, which may outlive this object.
    std::unique_ptr<Transport> transport() const;
    std::vector<SentRequest> requests() const;
    std::size_t left() const; ///< answers that nobody has asked for

private:
    struct State;
    std::shared_ptr<State> Shared;
};

} // namespace netrove::testing
