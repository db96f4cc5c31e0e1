/// @file
/// Many requests at a time.
#pragma once

#include <netrove/client.h>

#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace netrove {

/// How many requests at a time.
struct PoolSettings {
    int jobs = 8;          ///< threads, each with a Client of its own; 1 to 1000
    int perHost = 6;       ///< requests to one host and port at a time
    std::size_t queue = 0; ///< tasks that may wait before `submit` does; 0: any number
};

/// What became of one of many requests.
struct NETROVE_API Result {
    std::size_t index = 0;                 ///< of the request, from 0
    std::string url = {};                  ///< of the request, as it was given
    std::optional<Response> response = {}; ///< empty: it failed
    std::exception_ptr failure = {};       ///< what the call threw; null where there is a response

    explicit operator bool() const { return response.has_value(); } ///< true: it went well
    /// The response. @throws what the call threw
    const Response& value() const;
    /// What went wrong, as one line; empty where nothing did.
    std::string error() const;
};

/// The results of many requests in the order in which they end: a range for one `for`. Dropped before its end, it stops
/// what still runs.
class NETROVE_API Results {
public:
    /// Moves from one result to the next; each step waits for one that ends.
    class iterator {
    public:
        ///@{
        /// Part of an input iterator.
        using value_type = Result;
        using difference_type = std::ptrdiff_t;
        explicit iterator(Results* results) : From(results) { ++*this; }
        const Result& operator*() const { return *Current; }
        iterator& operator++() {
            Current = From->next();
            return *this;
        }
        void operator++(int) { ++*this; }
        bool operator==(std::default_sentinel_t) const { return !Current; }
        ///@}

    private:
        Results* From;
        std::optional<Result> Current;
    };

    ~Results();
    Results(Results&&) noexcept; ///< results that were moved from have none left
    ///@{
    /// For one `for`: results that were taken do not come again.
    iterator begin() { return iterator(this); }
    std::default_sentinel_t end() { return {}; }
    ///@}
    /// The next that ends; nothing after the last.
    std::optional<Result> next();

private:
    friend class Pool;
    struct State;
    explicit Results(std::shared_ptr<State> state);
    std::shared_ptr<State> Own;
};

/// Clients on threads of their own. Any thread may submit. The destructor stops what runs and drops what waits: their
/// futures fail as interrupted.
class NETROVE_API Pool {
public:
    /// @param settings      how many at a time
    /// @param defaults      as for a Client
    /// @param makeTransport makes the transport of each client; empty: over the network
    explicit Pool(PoolSettings settings = {}, Request defaults = {},
                  std::function<std::unique_ptr<Transport>()> makeTransport = {});
    ~Pool();
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;

    ///@{
    /// As the operation of a Client; the future throws what it throws.
    std::future<Response> get(std::string url, Request more = {});
    std::future<Response> request(Request request);
    std::future<Response> save(std::string url, std::filesystem::path target, Request more = {});
    ///@}
    ///@{
    /// All of these, with results in the order in which they end.
    Results getAll(std::vector<std::string> urls, Request more = {});
    Results requestAll(std::vector<Request> requests);
    ///@}

    /// Runs a callable with one of the clients, as one request to the host of this URL. In a task of the same pool it
    /// must not wait for room in a full queue: that may be room which the task itself takes.
    template <class Callable>
    auto submit(const std::string& url, Callable callable) -> std::future<std::invoke_result_t<Callable&, Client&>> {
        using Value = std::invoke_result_t<Callable&, Client&>;
        auto promise = std::make_shared<std::promise<Value>>();
        auto future = promise->get_future();
        auto run = std::make_shared<Callable>(std::move(callable)); // which may be one that cannot be copied
        enqueue(url, [promise, run](Client* client, std::exception_ptr failed) {
            if (!failed) {
                try {
                    if constexpr (std::is_void_v<Value>) {
                        (*run)(*client);
                        promise->set_value();
                    } else {
                        promise->set_value((*run)(*client));
                    }
                    return;
                } catch (...) {
                    failed = std::current_exception();
                }
            }
            promise->set_exception(std::move(failed)); // this thread keeps nothing of it
        });
        return future;
    }

    /// Stops what runs and drops what waits; the pool can be used further.
    void interrupt() noexcept;

private:
    // Gets a client, or null and why there is none.
    using Task = std::function<void(Client* client, std::exception_ptr failed)>;
    void enqueue(const std::string& url, Task task);

    struct State;
    std::shared_ptr<State> Own;
};

} // namespace netrove
