// Charts as SVG, drawn here: a page needs no script for them.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace netrove::cli {

struct ChartColumn {
    double From = 0; // on the axis of columns
    double To = 0;
    double Value = 0;  // the lower part
    double Above = 0;  // the part on top of it, in the colour of failures
    std::string Label; // what a pointer on the column shows
};

struct ChartMark {
    double Place; // on the axis of columns
    std::string Text;
};

struct Chart {
    std::string Title{}; // for those who cannot see it
    std::vector<ChartColumn> Columns{};
    double End = 1;      // of the axis of columns
    double Width = 1000; // in units of which letters are twelve high
    std::vector<ChartMark> Marks{};
    std::function<std::string(double)> ValueText{};
    double ValueBase = 10; // values are marked at 1, 2 and 5 times its powers; 1024: of bytes
};

std::string chartSvg(const Chart& chart);

// Marks of an axis of seconds.
std::vector<ChartMark> timeMarks(double seconds);

} // namespace netrove::cli
