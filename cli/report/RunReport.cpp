#include "cli/report/RunReport.h"

#include "cli/report/PageText.h"

#include <array>
#include <ctime>

namespace netrove::cli {

std::string verdictText(const RunFacts& facts) {
    const std::string all = grouped(facts.All) + (facts.All == 1 ? " transfer" : " transfers");
    std::string text;
    if (!facts.Stopped.empty()) {
        text = "Stopped (" + facts.Stopped + ") with " + grouped(facts.left()) + " of " + all + " left";
    } else if (!facts.Over) {
        text = "Under way: " + grouped(facts.left()) + " of " + all + " left";
    } else if (facts.left() != 0) {
        text = "Ended early with " + grouped(facts.left()) + " of " + all + " left";
    } else if (facts.Failed == 0) {
        return facts.All == 1 ? "The only transfer is done" : "All " + all + " are done";
    } else {
        return grouped(facts.Failed) + " of " + all + " failed";
    }
    return facts.Failed == 0 ? text : text + ", " + grouped(facts.Failed) + " failed";
}

std::string timeText(std::chrono::system_clock::time_point time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    std::array<char, 32> buffer{};
    const std::size_t length = std::strftime(buffer.data(), buffer.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return {buffer.data(), length};
}

} // namespace netrove::cli
