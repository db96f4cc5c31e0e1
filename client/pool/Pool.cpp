#include "client/failures/ClientFailure.h"
#include "client/request/RequestChecks.h"

#include <netrove/pool.h>
#include <netrove/url.h>

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>

namespace netrove {

namespace {

constexpr int kMostJobs = 1000;

std::exception_ptr dropped() {
    return std::make_exception_ptr(clientError(failure::kInterrupted, {}, "the pool has dropped the request"));
}

} // namespace

struct Pool::State {
    // The tasks for one host.
    struct Lane {
        std::deque<std::pair<std::uint64_t, Task>> Waiting; // with their numbers, in order of arrival
        int Busy = 0;                                       // requests under way
    };
    using Lanes = std::map<std::string, Lane>;

    State(PoolSettings settings, Request defaults, std::function<std::unique_ptr<Transport>()> makeTransport)
        : Settings(settings), Defaults(std::move(defaults)), MakeTransport(std::move(makeTransport)) {
        if (Settings.jobs < 1 || Settings.jobs > kMostJobs || Settings.perHost < 1) {
            failUsage("a pool has 1 to " + std::to_string(kMostJobs) + " jobs, and at least one for each host");
        }
        checkRequest(Defaults, Use::Defaults);
        Threads.reserve(static_cast<std::size_t>(Settings.jobs));
        for (int i = 0; i < Settings.jobs; ++i) {
            try {
                Threads.emplace_back([this] { work(); });
            } catch (const std::system_error& failure) {
                // Fewer threads than wanted do the same work; without any, nobody does.
                if (Threads.empty()) {
                    fail("Failure", {failure.what()}, std::string("no thread can be started: ") + failure.what());
                }
                break;
            }
        }
    }

    // Nobody waits in `enqueue` for a pool that has ended, though some may still be on their way out of it.
    void end() {
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
        std::vector<Task> tasks;
        {
            const std::lock_guard lock(Guard);
            for (auto& [host, lane] : All) {
                for (auto& [number, task] : lane.Waiting) {
                    tasks.push_back(std::move(task));
                }
                lane.Waiting.clear();
            }
            std::erase_if(All, [](const auto& entry) { return entry.second.Busy == 0; });
            Ready.clear();
            Waiting = 0;
            ++Interrupts;
            for (auto& [client, interrupted] : Running) {
                interrupted = true;
                client->interrupt();
            }
        }
        Room.notify_all();
        for (Task& task : tasks) {
            task(nullptr, dropped());
        }
    }

    std::string hostOf(const std::string& url) const {
        return hostAndPort(isAbsolute(url) || Defaults.url.empty() ? url : resolvedUrl(Defaults.url, url));
    }

    void enqueue(const std::string& url, Task task) {
        const std::string host = hostOf(url);
        {
            std::unique_lock lock(Guard);
            Room.wait(lock, [this] { return Ended || Settings.queue == 0 || Waiting < Settings.queue; });
            if (!Ended) {
                const auto lane = All.try_emplace(host).first;
                lane->second.Waiting.emplace_back(NextNumber++, std::move(task));
                ++Waiting;
                makeReady(lane);
                lock.unlock();
                Changed.notify_one();
                return;
            }
        }
        task(nullptr, dropped());
    }

    // With the lock held. A host is ready while it has room and a task; it is found by the number of its first task.
    void makeReady(Lanes::iterator lane) {
        if (!lane->second.Waiting.empty() && lane->second.Busy < Settings.perHost) {
            Ready.emplace(lane->second.Waiting.front().first, lane);
        }
    }

    void work() {
        std::optional<Client> client; // made with the first task: what cannot be made fails that
        std::unique_lock lock(Guard);
        for (;;) {
            Changed.wait(lock, [this] { return Ended || !Ready.empty(); });
            if (Ended) {
                return;
            }
            const auto lane = Ready.begin()->second;
            Ready.erase(Ready.begin());
            Task task = std::move(lane->second.Waiting.front().second);
            lane->second.Waiting.pop_front();
            --Waiting;
            ++lane->second.Busy;
            makeReady(lane);
            const std::uint64_t interrupts = Interrupts;
            lock.unlock();
            Room.notify_one();
            run(task, client, interrupts);
            task = nullptr; // what it holds may be anything, so it goes without the lock
            lock.lock();
            --lane->second.Busy;
            if (lane->second.Busy == 0 && lane->second.Waiting.empty()) {
                All.erase(lane);
            } else {
                makeReady(lane);
                Changed.notify_one();
            }
        }
    }

    // `interrupts`: how many there had been when the task was taken, and waited no more.
    void run(const Task& task, std::optional<Client>& client, std::uint64_t interrupts) {
        std::exception_ptr failed;
        try {
            if (!client) {
                client.emplace(Defaults, MakeTransport ? MakeTransport() : networkTransport());
            }
        } catch (...) {
            failed = std::current_exception();
        }
        if (failed) {
            return task(nullptr, std::move(failed)); // this thread keeps nothing of it
        }
        {
            const std::lock_guard lock(Guard);
            const bool late = Ended || interrupts != Interrupts;
            Running.emplace(&*client, late);
            if (late) {
                client->interrupt();
            }
        }
        task(&*client, nullptr);
        bool interrupted = false;
        {
            const std::lock_guard lock(Guard);
            interrupted = Running.extract(&*client).mapped();
        }
        if (interrupted) {
            client.reset(); // it may not have noticed, and would stop the next task instead
        }
    }

    PoolSettings Settings;
    Request Defaults;
    std::function<std::unique_ptr<Transport>()> MakeTransport;
    std::mutex Guard;
    std::condition_variable Changed; // a host has become ready, or the pool ends
    std::condition_variable Room;    // fewer tasks wait
    Lanes All;                       // hosts with tasks or requests
    std::map<std::uint64_t, Lanes::iterator> Ready;
    std::uint64_t NextNumber = 0;
    std::size_t Waiting = 0; // tasks of all hosts
    std::uint64_t Interrupts = 0;
    std::map<Client*, bool> Running; // and whether it has been interrupted
    bool Ended = false;
    std::vector<std::thread> Threads;
};

Pool::Pool(PoolSettings settings, Request defaults, std::function<std::unique_ptr<Transport>()> makeTransport)
    : Own(std::make_shared<State>(settings, std::move(defaults), std::move(makeTransport))) {}

Pool::~Pool() {
    Own->end();
}

void Pool::enqueue(const std::string& url, Task task) {
    const std::shared_ptr<State> own = Own; // outlives the pool for whoever waits here
    own->enqueue(url, std::move(task));
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
    --Own->Left;
    Own->Ended.wait(lock, [this] { return !Own->Ready.empty(); });
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
            request.stop = Own->Defaults.stop;
        }
        enqueue(url, [state, i, request = std::move(request)](Client* client, std::exception_ptr failed) mutable {
            Result result{.index = i, .url = request.url};
            try {
                // The program's own word counts as much as that of the results, which may be dropped.
                std::stop_source both;
                const auto stop = [&both] { both.request_stop(); };
                const std::stop_callback onOwn(request.stop, stop);
                const std::stop_callback onDropped(state->Stop.get_token(), stop);
                request.stop = both.get_token();
                if (client == nullptr || both.stop_requested()) {
                    std::rethrow_exception(failed ? std::exchange(failed, nullptr) : dropped());
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
