// Charts of stacked columns, drawn here: a page needs no script for them. The columns are stretched to the width that
// there is; texts keep their size.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace netrove::cli {

struct ChartColumn {
    double From = 0; // on the axis of columns
    double To = 0;
    std::vector<double> Parts{}; // one for each series, from the ground up
    std::string Label{};         // what a pointer on the column shows
};

struct ChartMark {
    double Place; // on the axis of columns
    std::string Text;
};

struct Chart {
    std::string Title{};               // for those who cannot see it
    std::vector<std::string> Series{}; // their classes in the page's style; those of kBadSeries are never invisible
    std::vector<ChartColumn> Columns{};
    double End = 1; // of the axis of columns
    std::vector<ChartMark> Marks{};
    std::function<std::string(double value, double top)>
        ValueText{};       // beside a line of the chart that goes up to `top`
    double ValueBase = 10; // values are marked at 1, 2 and 5 times its powers; 1024: of bytes
    bool WholeValues = false;
    bool Separate = false; // columns with room between them
};

inline constexpr const char* kBadSeries = "bad";

std::string chartHtml(const Chart& chart);

// Marks of an axis of seconds.
std::vector<ChartMark> timeMarks(double seconds);

} // namespace netrove::cli
