#include "cli/report/PageChart.h"

#include "cli/report/PageText.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace netrove::cli {

namespace {

constexpr double kHeight = 200;
constexpr double kLeft = 84; // room for values
constexpr double kRight = 12;
constexpr double kTop = 10;
constexpr double kBottom = 26; // room for marks
constexpr double kPlotHeight = kHeight - kTop - kBottom;
constexpr int kMostValueMarks = 4;

std::string at(double value) {
    return decimal(value, 2);
}

std::string attribute(const char* name, double value) {
    return std::string(" ") + name + "=\"" + at(value) + "\"";
}

// The step between marks of values up to `most`.
double stepFor(double most, double base) {
    double unit = 1;
    if (base == 1024) {
        while (most / unit >= 1024) {
            unit *= 1024;
        }
    }
    const double rough = most / unit / kMostValueMarks;
    const double power = std::pow(10, std::floor(std::log10(rough)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (factor * power >= rough) {
            return factor * power * unit;
        }
    }
    return 10 * power * unit;
}

std::string rect(const char* kind, double x, double y, double width, double height) {
    return std::string("<rect class=\"") + kind + "\"" + attribute("x", x) + attribute("y", y) +
           attribute("width", width) + attribute("height", height) + "/>";
}

} // namespace

std::string chartSvg(const Chart& chart) {
    double most = 0;
    for (const ChartColumn& column : chart.Columns) {
        most = std::max(most, column.Value + column.Above);
    }
    if (!(most > 0)) {
        most = 1;
    }
    const double step = stepFor(most, chart.ValueBase);
    const double top = std::ceil(most / step) * step;
    const double end = chart.End > 0 ? chart.End : 1;
    const double plotWidth = chart.Width - kLeft - kRight;
    const auto xOf = [&](double place) { return kLeft + plotWidth * std::clamp(place / end, 0.0, 1.0); };
    const auto heightOf = [&](double value) { return kPlotHeight * value / top; };
    const double ground = kTop + kPlotHeight;

    std::string svg = "<div class=\"wide\"><svg style=\"min-width:" + at(chart.Width * 0.6) + "px\" viewBox=\"0 0 " +
                      at(chart.Width) + " " + at(kHeight) + "\" role=\"img\" aria-label=\"" + html(chart.Title) +
                      "\">\n";
    for (int i = 0; step * i <= top * 1.001; ++i) {
        const double y = ground - heightOf(step * i);
        svg += "<line class=\"grid\"" + attribute("x1", kLeft) + attribute("x2", chart.Width - kRight) +
               attribute("y1", y) + attribute("y2", y) + "/><text class=\"value\"" + attribute("x", kLeft - 8) +
               attribute("y", y + 4) + ">" + html(chart.ValueText(step * i)) + "</text>\n";
    }
    for (const ChartMark& mark : chart.Marks) {
        svg += "<text class=\"mark\"" + attribute("x", xOf(mark.Place)) + attribute("y", kHeight - 8) + ">" +
               html(mark.Text) + "</text>\n";
    }
    for (const ChartColumn& column : chart.Columns) {
        if (column.Value + column.Above <= 0) {
            continue;
        }
        const double x = xOf(column.From);
        const double gap = xOf(column.To) - x > 6 ? 1.5 : 0.3;
        const double width = std::max(xOf(column.To) - x - gap, 0.7);
        const double height = heightOf(column.Value);
        const double above = heightOf(column.Above);
        svg += "<g><title>" + html(column.Label) + "</title>";
        if (height > 0) {
            svg += rect("value-part", x, ground - height, width, height);
        }
        if (above > 0) { // seen also where it is one of a million
            const double seen = std::max(above, 2.0);
            svg += rect("bad-part", x, std::max(ground - height - seen, kTop), width, seen);
        }
        svg += "</g>\n";
    }
    return svg + "</svg></div>\n";
}

std::vector<ChartMark> timeMarks(double seconds) {
    constexpr std::array<double, 21> steps = {0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1,    2,    5,    10,   15,
                                              30,   60,   120,  300, 600, 900, 1800, 3600, 7200, 14400};
    double step = steps.back();
    for (const double candidate : steps) {
        if (seconds / candidate <= 10) {
            step = candidate;
            break;
        }
    }
    while (seconds / step > 10) {
        step *= 2;
    }
    std::vector<ChartMark> marks;
    for (int i = 0; step * i <= seconds; ++i) {
        const double place = step * i;
        const std::string text = place == 0     ? "0"
                                 : place < 1    ? decimal(place * 1000, 0) + " ms"
                                 : place < 60   ? decimal(place, 2) + " s"
                                 : place < 3600 ? decimal(place / 60, 1) + " min"
                                                : decimal(place / 3600, 2) + " h";
        marks.push_back({place, text});
    }
    return marks;
}

} // namespace netrove::cli
