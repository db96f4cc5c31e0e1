// Calls that may block for as long as they like, one at a time and off the calling thread, so that whoever waits for
// one can give up.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vantik::detail {

class SerialCalls {
public:
    using Answer = std::vector<std::string>;

    SerialCalls();
    ~SerialCalls();
    SerialCalls(const SerialCalls&) = delete;
    SerialCalls& operator=(const SerialCalls&) = delete;

    // Returns what `call` returns, and raises std::runtime_error with the text of what it raises. `checkStop` is called
    // at short intervals meanwhile; what it raises ends the wait. The call itself cannot be ended: it goes on by
    // itself, and the next one begins when it is over. So it owns what it needs, and all of that outlives it.
    Answer run(std::function<Answer()> call, const std::function<void()>& checkStop);

private:
    struct State;
    std::shared_ptr<State> Shared; // with the thread that runs a call
};

} // namespace vantik::detail
