#include "cli/report/PageSection.h"

#include "cli/terminal/Progress.h"

namespace netrove::cli {

std::string percent(double share) {
    return decimal(share * 100, 2) + "%";
}

std::string shareText(double share) {
    return fixed(share * 100, 1) + "%";
}

double ratio(double part, double whole) {
    return whole > 0 ? part / whole : 0;
}

std::string number(double value) {
    return decimal(value, 3);
}

std::string sectionHead(const std::string& title, const std::string& more, const std::string& note) {
    return "<div class=\"head\"><h2>" + title + "</h2>" + more + "</div>\n" +
           (note.empty() ? "" : "<p class=\"note\">" + note + "</p>\n");
}

std::string headings(const std::vector<std::pair<std::string, bool>>& names) {
    std::string text = "<tr>";
    for (const auto& [name, isNumber] : names) {
        text += std::string("<th scope=\"col\"") + (isNumber ? " class=\"n\">" : ">") + name + "</th>";
    }
    return text + "</tr>\n";
}

std::string cell(const std::string& content) {
    return "<td class=\"n\">" + content + "</td>";
}

std::string barCell(double share, bool bad) {
    return "<td class=\"track\"><span class=\"bar" + std::string(bad ? " bad" : "") +
           "\" style=\"width:" + percent(share) + "\"></span></td>";
}

std::string bytesData(std::uint64_t bytes) {
    return "<data value=\"" + std::to_string(bytes) + "\">" + sizeText(bytes) + "</data>";
}

std::string secondsData(double seconds) {
    return "<data value=\"" + number(seconds) + "\">" + secondsText(seconds) + "</data>";
}

} // namespace netrove::cli
