#include "python/extension/Reception.h"

#include <utility>

namespace netrove::python {

namespace {

constexpr std::size_t kMostWaiting = std::size_t{1} << 20; // bytes that nobody has asked for yet

// Nobody asks for the content any more.
struct Abandoned {};

} // namespace

void Reception::receive(Client& client, Request request) {
    std::exception_ptr failure;
    try {
        const Running running([this] { stop(); });
        request.stop = Stop.get_token(); // of this call; an interrupt of the client might meet the next one
        client.stream(std::move(request), [this](const Response& head) -> Taker {
            const std::lock_guard lock(Guard);
            Head = head;
            Waiting.clear(); // of an attempt before this one
            Changed.raise();
            return [this](std::span<const std::byte> piece) { return take(piece); };
        });
    } catch (const Abandoned&) {
        failure =
            std::make_exception_ptr(Error(ErrorKind::Interrupted, "NETROVE:client:Interrupted", {}, "interrupted"));
    } catch (...) {
        failure = std::current_exception();
    }
    end(std::move(failure));
}

void Reception::fail(std::exception_ptr failure) {
    end(std::move(failure));
}

void Reception::end(std::exception_ptr failure) {
    const std::lock_guard lock(Guard);
    Failure = std::move(failure);
    Ended = true;
    Changed.raise();
}

bool Reception::take(std::span<const std::byte> piece) {
    std::unique_lock lock(Guard);
    Room.wait(lock, [this] { return Closed || Waiting.size() < kMostWaiting; });
    if (Closed) {
        throw Abandoned(); // a transfer that ends quietly would keep its connection until the next call
    }
    Waiting.append(reinterpret_cast<const char*>(piece.data()), piece.size());
    lock.unlock();
    Changed.raise();
    return true;
}

std::optional<Response> Reception::head() {
    const std::lock_guard lock(Guard);
    if (!Head && Ended) {
        std::rethrow_exception(Failure);
    }
    return Head;
}

bool Reception::next(std::string& piece) {
    piece.clear();
    {
        const std::lock_guard lock(Guard);
        if (Waiting.empty() && !Ended) {
            return false;
        }
        if (Waiting.empty() && Failure) {
            std::rethrow_exception(Failure);
        }
        std::swap(piece, Waiting);
    }
    Room.notify_all();
    return true;
}

void Reception::stop() {
    {
        const std::lock_guard lock(Guard);
        Closed = true;
    }
    Room.notify_all();
    Stop.request_stop();
}

} // namespace netrove::python
