// The sections of the page, and what they are made of.
#pragma once

#include "cli/report/PageText.h"
#include "cli/report/RunReport.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace netrove::cli {

///@{ In the order of the page.
std::string throughputOf(const RunFacts& facts);
std::string failuresInTimeOf(const RunFacts& facts);
std::string causesOf(const RunFacts& facts);
std::string failingHostsOf(const RunFacts& facts);
std::string underWayOf(const RunFacts& facts);
std::string hostsOf(const RunFacts& facts);
std::string durationsOf(const RunFacts& facts);
std::string sizesOf(const RunFacts& facts);
std::string attemptsOf(const RunFacts& facts);
std::string slowestOf(const RunFacts& facts);
///@}

inline constexpr std::size_t kSeriesInCharts = 6; // and "other": as many colours as people can tell apart

std::string sectionHead(const std::string& title, const std::string& more = "", const std::string& note = "");
std::string headings(const std::vector<std::pair<std::string, bool>>& names); // and whether they are numbers
std::string cell(const std::string& content);
std::string barCell(double share, bool bad);
std::string percent(double share);   // of a style
std::string shareText(double share); // "2.0%"
std::string number(double value);    // of a CSV
double ratio(double part, double whole);
std::string bytesData(std::uint64_t bytes);
std::string secondsData(double seconds);

} // namespace netrove::cli
