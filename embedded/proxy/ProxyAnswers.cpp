#include "embedded/proxy/ProxyAnswers.h"

#include <utility>

namespace vantik::detail {

ProxyAnswers::Answer ProxyAnswers::get(const std::string& question, std::function<Answer()> ask,
                                       const std::function<void()>& checkStop) {
    if (auto known = find(question)) {
        return *std::move(known);
    }
    const auto askUnlessKnown = [this, question, ask = std::move(ask)] {
        if (auto known = find(question)) {
            return *std::move(known);
        }
        Answer answer = ask();
        keep(question, answer);
        return answer;
    };
    return Calls.run(askUnlessKnown, checkStop);
}

std::optional<ProxyAnswers::Answer> ProxyAnswers::find(const std::string& question) {
    const std::lock_guard guard(Guard);
    const auto found = Known.find(question);
    return found == Known.end() || found->second.Until <= Now() ? std::nullopt : std::optional(found->second.Text);
}

void ProxyAnswers::keep(const std::string& question, const Answer& answer) {
    const std::lock_guard guard(Guard);
    if (Known.size() >= kMost) {
        Known.clear();
    }
    Known.insert_or_assign(question, Kept{answer, Now() + kLifetime});
}

} // namespace vantik::detail
