// Text as a page shows it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace netrove::cli {

// Text from anywhere: nothing in it is markup, and nothing turns the text around it.
std::string html(std::string_view text);
// "1,234,567".
std::string grouped(std::uint64_t number);
// A number that programs read too: <data value="1234">1,234</data>.
std::string numberData(std::uint64_t number);
// "0 s", "4.0 ms", "42 ms", "0.12 s", "12.3 s", then as durationText.
std::string secondsText(double seconds);
///@{ So many digits after the point; `decimal` without zeros at the end.
std::string fixed(double value, int digits);
std::string decimal(double value, int digits);
///@}

// Rows of cells, the first of which are headings.
using Cells = std::vector<std::vector<std::string>>;
// A link that holds the rows as CSV (RFC 4180).
std::string csvLink(const std::string& name, const Cells& rows);

} // namespace netrove::cli
