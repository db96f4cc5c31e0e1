// The file of a report.
#pragma once

#include "cli/options/ReportName.h"
#include "cli/report/RunReport.h"

#include <string>

namespace netrove::cli {

class ReportFile {
public:
    // Raises FileNotWritten if there could be no such file, before anything runs; a usage failure for a name of no
    // form.
    explicit ReportFile(const std::string& name);

    // True for one that is of use before the end, too.
    bool isLive() const { return Form == ReportForm::Metrics; }
    // In place of what is there, at once: nobody reads half of it. Raises FileNotWritten.
    void write(const RunFacts& facts) const;

private:
    std::string Name;
    ReportForm Form;
};

} // namespace netrove::cli
