// Which form a report has: that of its file's ending.
#pragma once

#include <string>

namespace netrove::cli {

enum class ReportForm { Page, Json, Metrics };

// Of "report.html", "report.json" or "report.prom"; otherwise raises a usage failure.
ReportForm reportForm(const std::string& name);

} // namespace netrove::cli
