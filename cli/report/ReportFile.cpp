#include "cli/report/ReportFile.h"

#include <netrove/outputfile.h>

#include <span>

namespace netrove::cli {

namespace {

std::string textOf(ReportForm form, const RunFacts& facts) {
    switch (form) {
    case ReportForm::Page:
        return reportPage(facts);
    case ReportForm::Json:
        return reportJson(facts);
    case ReportForm::Metrics:
        break;
    }
    return reportMetrics(facts);
}

} // namespace

ReportFile::ReportFile(const std::string& name) : Name(name), Form(reportForm(name)) {
    const OutputFile possible(Name, true);
}

void ReportFile::write(const RunFacts& facts) const {
    const std::string text = textOf(Form, facts);
    OutputFile file(Name, true);
    file.write(std::as_bytes(std::span(text)));
    file.keep();
}

} // namespace netrove::cli
