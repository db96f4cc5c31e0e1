#include "client/failures/ClientFailure.h"

#include <netrove/pool.h>
#include <netrove/url.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>

namespace netrove {

namespace {

constexpr int kMostJobs = 1000;

std::string hostOf(const std::string& url) {
    const UrlParts parts = splitUrl(url);
    return parts.Host + ":" + parts.Port;
}

std::exception_ptr droppedTask() {
    return std::make_exception_ptr(clientError(failure::kInterrupted, {}, "the pool has dropped the request"));
}

} // namespace

struct Pool::State {
    struct Waiting {
        std::string Host;
        Task Run;
    };

    State(PoolSettings settings, Request defaults, std::function<std::unique_ptr<Transport>()> makeTransport)
        : Settings(settings), Defaults(std::move(defaults)), MakeTransport(std::move(makeTransport)) {
        if (Settings.jobs < 1 || Settings.jobs > kMostJobs || Settings.perHost < 1) {
            failUsage("a pool has 1 to " + std::to_string(kMostJobs) + " jobs, and at least one for each host");
        }
        const Client checked(Defaults, nullptr);
        for (int i = 0; i < Settings.jobs; ++i) {
            try {
                Threads.emplace_back([this] { work(); });
            } catch (const std::system_error&) {
                // Fewer threads than wanted do the same work; without any, nobody does.
                if (Threads.empty()) {
                    throw;
                }
                break;
            }
        }
    }

    ~State() {
        {
            const std::lock_guard lock(Guard);
            Ended = true;
        }
        interrupt();
        Changed.notify_all();
        for (std::thread& thread : Threads) {
            thread.join();
        }
    }

    void interrupt() noexcept {
        std::deque<Waiting> dropped;
        {
            const std::lock_guard lock(Guard);
            dropped.swap(Queue);
            for (Client* client : Running) {
                client->interrupt();
            }
        }
        Room.notify_all();
        for (const Waiting& task : dropped) {
            task.Run(nullptr, droppedTask());
        }
    }

    void enqueue(const std::string& url, Task task) {
        std::unique_lock lock(Guard);
        Room.wait(lock, [this] { return Ended || Settings.queue == 0 || Queue.size() < Settings.queue; });
        Queue.push_back({hostOf(url), std::move(task)});
        lock.unlock();
        Changed.notify_one();
    }

    // The first task whose host has room; the end of the queue if none has.
    std::deque<Waiting>::iterator nextTask() {
        return std::find_if(Queue.begin(), Queue.end(),
                            [this](const Waiting& task) { return Busy[task.Host] < Settings.perHost; });
    }

    void work() {
        std::optional<Client> client; // made with the first task: what cannot be made fails that
        std::unique_lock lock(Guard);
        for (;;) {
            auto next = Queue.end();
            Changed.wait(lock, [&] { return Ended || (next = nextTask()) != Queue.end(); });
            if (Ended) {
                return;
            }
            const Waiting task = std::move(*next);
            Queue.erase(next);
            ++Busy[task.Host];
            lock.unlock();
            Room.notify_one();
            run(task, client);
            lock.lock();
            if (--Busy[task.Host] == 0) {
                Busy.erase(task.Host);
            }
            Changed.notify_all(); // the host has room again
        }
    }

    void run(const Waiting& task, std::optional<Client>& client) {
        try {
            if (!client) {
                client.emplace(Defaults, MakeTransport ? MakeTransport() : networkTransport());
            }
        } catch (...) {
            return task.Run(nullptr, std::current_exception());
        }
        {
            const std::lock_guard lock(Guard);
            Running.push_back(&*client);
            if (Ended) {
                client->interrupt();
            }
        }
        task.Run(&*client, nullptr);
        const std::lock_guard lock(Guard);
        std::erase(Running, &*client);
    }

    PoolSettings Settings;
    Request Defaults;
    std::function<std::unique_ptr<Transport>()> MakeTransport;
    std::mutex Guard;
    std::condition_variable Changed; // a task has come, a host has room, or the pool ends
    std::condition_variable Room;    // the queue has become shorter
    std::deque<Waiting> Queue;
    std::map<std::string, int> Busy; // requests under way to each host
    std::vector<Client*> Running;
    bool Ended = false;
    std::vector<std::thread> Threads;
};

Pool::Pool(PoolSettings settings, Request defaults, std::function<std::unique_ptr<Transport>()> makeTransport)
    : Own(std::make_shared<State>(settings, std::move(defaults), std::move(makeTransport))) {}

Pool::~Pool() = default;

void Pool::enqueue(const std::string& url, Task task) {
    Own->enqueue(url, std::move(task));
}

void Pool::interrupt() noexcept {
    Own->interrupt();
}

std::future<Response> Pool::get(std::string url, Request more) {
    const std::string host = url;
    return submit(host,
                  [url = std::move(url), more = std::move(more)](Client& client) { return client.get(url, more); });
}

std::future<Response> Pool::request(Request request) {
    const std::string host = request.url;
    return submit(host, [request = std::move(request)](Client& client) { return client.request(request); });
}

std::future<Response> Pool::save(std::string url, std::filesystem::path target, Request more) {
    const std::string host = url;
    return submit(host, [url = std::move(url), target = std::move(target), more = std::move(more)](Client& client) {
        return client.save(url, target, more);
    });
}

// Results

struct Results::State {
    std::mutex Guard;
    std::condition_variable Ended;
    std::deque<Result> Ready;
    std::size_t Left = 0; // results that nobody has taken
    std::stop_source Stop;
};

Results::Results(std::shared_ptr<State> state) : Own(std::move(state)) {}
Results::Results(Results&&) noexcept = default;

Results::~Results() {
    if (Own) {
        Own->Stop.request_stop();
    }
}

std::optional<Result> Results::next() {
    std::unique_lock lock(Own->Guard);
    if (Own->Left == 0) {
        return std::nullopt;
    }
    Own->Ended.wait(lock, [this] { return !Own->Ready.empty(); });
    --Own->Left;
    Result result = std::move(Own->Ready.front());
    Own->Ready.pop_front();
    return result;
}

const Response& Result::value() const {
    if (!response) {
        std::rethrow_exception(failure);
    }
    return *response;
}

std::string Result::error() const {
    if (response) {
        return {};
    }
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& exception) {
        return exception.what();
    } catch (...) {
        return "an exception of the program's own";
    }
}

Results Pool::getAll(std::vector<std::string> urls, Request more) {
    std::vector<Request> requests;
    requests.reserve(urls.size());
    for (std::string& url : urls) {
        more.url = std::move(url);
        requests.push_back(more);
    }
    return requestAll(std::move(requests));
}

Results Pool::requestAll(std::vector<Request> requests) {
    const auto state = std::make_shared<Results::State>();
    state->Left = requests.size();
    for (std::size_t i = 0; i < requests.size(); ++i) {
        Request& request = requests[i];
        const std::string url = request.url;
        if (!request.stop.stop_possible()) {
            request.stop = state->Stop.get_token();
        }
        Own->enqueue(url, [state, i, request = std::move(request)](Client* client, const std::exception_ptr& why) {
            Result result{.index = i, .url = request.url};
            try {
                if (client == nullptr || request.stop.stop_requested()) {
                    std::rethrow_exception(client == nullptr ? why : droppedTask());
                }
                result.response = client->request(request);
            } catch (...) {
                result.failure = std::current_exception();
            }
            const std::lock_guard lock(state->Guard);
            state->Ready.push_back(std::move(result));
            state->Ended.notify_one();
        });
    }
    return Results(state);
}

} // namespace netrove
