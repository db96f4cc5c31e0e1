#include "cli/report/PageChart.h"

#include "cli/report/PageText.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace netrove::cli {

namespace {

constexpr double kUnits = 1000; // of the drawing, in both directions
constexpr double kLeastBad = 12;
constexpr int kMostValueMarks = 4;

std::string at(double value) {
    return decimal(value, 1);
}

// The step between marks of values up to `most`.
double stepFor(double most, double base, bool whole) {
    double unit = 1;
    if (base == 1024) {
        while (most / unit >= 1024) {
            unit *= 1024;
        }
    }
    const double rough = most / unit / kMostValueMarks;
    const double power = std::pow(10, std::floor(std::log10(rough)));
    for (const double factor : {1.0, 2.0, 5.0, 10.0}) {
        const double step = factor * power * unit;
        if (factor * power >= rough && (!whole || step >= 1)) {
            return step;
        }
    }
    return whole ? 1 : 10 * power * unit;
}

std::string minutesText(double seconds) {
    const double rest = std::fmod(seconds, 60);
    return decimal(std::floor(seconds / 60), 0) + " min" + (rest == 0 ? "" : " " + decimal(rest, 0) + " s");
}

double heightOf(const ChartColumn& column) {
    double sum = 0;
    for (const double part : column.Parts) {
        sum += part;
    }
    return sum;
}

} // namespace

std::string chartHtml(const Chart& chart) {
    double most = 0;
    for (const ChartColumn& column : chart.Columns) {
        most = std::max(most, heightOf(column));
    }
    if (!(most > 0)) {
        most = 1;
    }
    const double step = stepFor(most, chart.ValueBase, chart.WholeValues);
    const int marks = static_cast<int>(std::ceil(most / step - 1e-9));
    const double top = marks * step;
    const double end = chart.End > 0 ? chart.End : 1;
    const auto xOf = [&](double place) { return kUnits * std::clamp(place / end, 0.0, 1.0); };
    const double share = chart.Separate ? 0.86 : 1; // of a column's width that is drawn

    std::string values;
    std::string lines;
    for (int i = 0; i <= marks; ++i) {
        values += "<span>" + html(chart.ValueText(step * i, top)) + "</span>";
        lines += "<i></i>";
    }
    std::vector<std::string> paths(chart.Series.size());
    std::string hits;
    for (const ChartColumn& column : chart.Columns) {
        const double x = xOf(column.From);
        const double width = xOf(column.To) - x;
        if (heightOf(column) > 0) {
            hits += "<rect class=\"hit\" x=\"" + at(x) + "\" y=\"0\" width=\"" + at(width) +
                    "\" height=\"1000\"><title>" + html(column.Label) + "</title></rect>";
        }
        double ground = kUnits;
        for (std::size_t i = 0; i < column.Parts.size(); ++i) {
            if (!(column.Parts[i] > 0)) {
                continue;
            }
            double height = kUnits * column.Parts[i] / top;
            if (chart.Series[i] == kBadSeries) { // seen also where it is one of a million
                height = std::max(height, kLeastBad);
            }
            const double upper = std::max(ground - height, 0.0);
            // To where the next one begins, to the digit: no gap is left by rounding.
            paths[i] += "M" + at(x) + " " + at(ground) + "V" + at(upper) + "H" +
                        at(std::max(x + width * share, x + 1)) + "V" + at(ground) + "z";
            ground = upper;
        }
    }
    std::string drawing;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        if (!paths[i].empty()) {
            drawing += "<path class=\"" + chart.Series[i] + "\" d=\"" + paths[i] + "\"/>";
        }
    }
    std::string below;
    for (const ChartMark& mark : chart.Marks) {
        below += "<span style=\"left:" + at(xOf(mark.Place) / 10) + "%\">" + html(mark.Text) + "</span>";
    }
    return "<div class=\"chart\" role=\"img\" aria-label=\"" + html(chart.Title) + "\"><div class=\"values\">" +
           values + "</div><div class=\"area\">" + lines +
           "<svg viewBox=\"0 0 1000 1000\" preserveAspectRatio=\"none\" shape-rendering=\"crispEdges\">" + drawing +
           hits + "</svg></div><div class=\"marks\">" + below + "</div></div>\n";
}

std::vector<ChartMark> timeMarks(double seconds) {
    constexpr double most = 8; // beside each other on a wide screen
    constexpr std::array<double, 21> steps = {0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1,    2,    5,    10,   15,
                                              30,   60,   120,  300, 600, 900, 1800, 3600, 7200, 14400};
    double step = steps.back();
    for (const double candidate : steps) {
        if (seconds / candidate <= most) {
            step = candidate;
            break;
        }
    }
    while (seconds / step > most) {
        step *= 2;
    }
    std::vector<ChartMark> marks;
    for (int i = 0; step * i <= seconds; ++i) {
        const double place = step * i;
        const std::string text = place == 0     ? "0"
                                 : place < 1    ? decimal(place * 1000, 0) + " ms"
                                 : place < 60   ? decimal(place, 2) + " s"
                                 : place < 3600 ? minutesText(place)
                                                : decimal(place / 3600, 2) + " h";
        marks.push_back({place, text});
    }
    return marks;
}

} // namespace netrove::cli
