// Providers, consumers and reporters that do their duty and, once, what a sequence wants of them.
#include "tests/model/Runner.h"

#include <algorithm>

namespace model {
namespace {

[[noreturn]] void raise() {
    throw vantik::Failure({"model", "Raised", {}, "raised on purpose"});
}

std::uint8_t counted(std::uint8_t& count) {
    count = static_cast<std::uint8_t>(std::min(count + 1, Hook::kAgain - 1));
    return count;
}

} // namespace

bool Runner::play(const Hook& hook, std::uint8_t event, bool& done) {
    if (Running == nullptr) {
        wrong("a host object is called where nothing runs");
        return false;
    }
    if (done || hook.Event != event || hook.What == Act::Nothing) {
        return false;
    }
    done = true;
    switch (hook.What) {
    case Act::Interrupt:
        Running->Allowed.insert({kInterrupted, kConnectionFailed});
        Host->interrupt();
        return false;
    case Act::Raise:
        Running->mustFail({kRaised});
        raise();
    case Act::Call: {
        const std::string before = Now;
        Now += ", from within";
        const Outcome outcome = apply({hook.Nested, hook.Target, hook.Number});
        Now = before;
        if (outcome.Failed && !hook.Swallow) {
            Running->mustFail({outcome.Identifier});
            std::rethrow_exception(outcome.Raised);
        }
        return false;
    }
    default:
        return true;
    }
}

vantik::Object Runner::provider(const std::shared_ptr<Provided>& memory, const Hook& hook) {
    const auto done = std::make_shared<bool>(false);
    const auto happen = [this, memory, hook, done](std::uint8_t event) {
        if (play(hook, event, *done)) {
            Running->mustFail({kRaised});
            raise();
        }
    };
    vantik::ContentProvider provider;
    provider.rewind = [memory, happen] {
        memory->Position = 0;
        happen(memory->Starts++ == 0 ? 0 : Hook::kAgain);
    };
    provider.read = [memory, happen](std::uint64_t wanted) {
        happen(counted(memory->Reads));
        const std::string piece = memory->Content.substr(memory->Position, wanted);
        memory->Position += piece.size();
        return vantik::Array::bytes(std::string_view(piece));
    };
    return vantik::makeProvider(*Host, provider);
}

vantik::Object Runner::consumer(const std::shared_ptr<Consumed>& memory, const Hook& hook) {
    const auto done = std::make_shared<bool>(false);
    vantik::ContentConsumer consumer;
    consumer.start = [this, memory, hook, done]() -> std::optional<double> {
        memory->Content.clear();
        if (Running != nullptr) {
            Running->Started.push_back(memory);
        }
        play(hook, 0, *done);
        return std::nullopt;
    };
    consumer.write = [this, memory, hook, done](std::span<const std::byte> piece) -> vantik::Taken {
        std::string_view bytes = vantik::asText(piece);
        const bool act = play(hook, counted(memory->Writes), *done);
        if (act && hook.What == Act::Stop) {
            Running->mustFail({kTerminated});
            return std::nullopt;
        }
        if (act) {
            Running->Quiet = true;
            bytes = bytes.substr(0, bytes.size() / 2);
        }
        memory->Content += bytes;
        return bytes.size();
    };
    consumer.close = [this, hook, done] { play(hook, Hook::kEnd, *done); };
    return vantik::makeConsumer(*Host, consumer);
}

vantik::Object Runner::reporter(const Hook& hook) {
    const auto done = std::make_shared<bool>(false);
    const auto updates = std::make_shared<std::uint8_t>(0);
    return vantik::makeProgressReporter(*Host, [this, hook, done, updates](std::uint64_t) {
        if (!play(hook, counted(*updates), *done)) {
            return true;
        }
        Running->mustFail({kInterrupted, kConnectionFailed, kTerminated});
        return false;
    });
}

} // namespace model
