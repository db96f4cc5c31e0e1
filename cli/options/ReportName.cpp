#include "cli/options/ReportName.h"

#include "cli/failures/CliFailure.h"

#include <netrove/text.h>

#include <string_view>
#include <utility>

namespace netrove::cli {

namespace {

constexpr std::pair<std::string_view, ReportForm> kForms[] = {
    {".html", ReportForm::Page}, {".json", ReportForm::Json}, {".prom", ReportForm::Metrics}};

} // namespace

ReportForm reportForm(const std::string& name) {
    for (const auto& [ending, form] : kForms) {
        if (name.ends_with(ending)) {
            return form;
        }
    }
    failUsage("'" + printable(name) +
              "' is not a valid value for --report; it takes a file that ends with .html, .json or .prom");
}

} // namespace netrove::cli
