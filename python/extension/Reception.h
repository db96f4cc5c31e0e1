// Content on its way from the thread that receives it to whoever asks for it piece by piece.
#pragma once

#include "python/extension/Held.h"

#include <netrove/client.h>
#include <netrove/descriptor.h>

#include <condition_variable>
#include <exception>
#include <mutex>
#include <optional>
#include <span>
#include <stop_token>
#include <string>

namespace netrove::python {

class Reception {
public:
    // The whole call, on the thread that receives, without the GIL. Waits while much is there that nobody has taken.
    void receive(Client& client, Request request);
    // In its place: there will be no call.
    void fail(std::exception_ptr failure);

    // For whoever asks. Both raise what the call has raised.
    std::optional<Response> head(); // empty: it has not come yet
    // All that has come takes the place of `piece`, which is empty at the end; false while there is nothing.
    bool next(std::string& piece);
    // Raised whenever one of them may return something else than before.
    const WakeEvent& changed() const { return Changed; }

    void stop(); // nobody asks any more; any thread

private:
    bool take(std::span<const std::byte> piece);
    void end(std::exception_ptr failure);

    std::stop_source Stop;
    WakeEvent Changed;
    std::mutex Guard; // of what follows
    std::condition_variable Room;
    std::optional<Response> Head;
    std::string Waiting;
    std::exception_ptr Failure;
    bool Ended = false;
    bool Closed = false; // nobody asks any more
};

} // namespace netrove::python
