// The page of a report as a browser shows it.
#include "tests/cli/batch/BatchFixture.h"
#include "tests/cli/report/SimulatedRun.h"
#include "tests/support/process/Browser.h"

#include <cstdlib>
#include <optional>

namespace {

using namespace batchtest;
using testing::Contains;
using testsupport::Browser;

// In the page: what is wider than the page although it cannot be scrolled by itself.
constexpr const char* kOverflow = R"js([...document.querySelectorAll('body *')].filter(element => {
    const box = element.getBoundingClientRect();
    return box.width > 0 && !element.closest('svg') && !element.closest('.wide') && !element.closest('.bar') &&
        (box.left < -0.5 || box.right > document.documentElement.clientWidth + 0.5);
}).map(element => element.outerHTML.slice(0, 120)))js";

// The lightness of colours as WCAG 2 defines it, and the contrast of two.
constexpr const char* kContrast = R"js(
    const paint = document.createElement('canvas').getContext('2d');
    function lightness(color) {
        paint.fillStyle = color;
        paint.fillRect(0, 0, 1, 1);
        const parts = [...paint.getImageData(0, 0, 1, 1).data].slice(0, 3).map(part => {
            const share = part / 255;
            return share <= 0.03928 ? share / 12.92 : ((share + 0.055) / 1.055) ** 2.4;
        });
        return 0.2126 * parts[0] + 0.7152 * parts[1] + 0.0722 * parts[2];
    }
    function contrast(one, other) {
        const [dark, light] = [lightness(one), lightness(other)].sort((a, b) => a - b);
        return (light + 0.05) / (dark + 0.05);
    }
    function ground(element) { // what is painted below it
        const color = getComputedStyle(element).backgroundColor;
        return color !== 'rgba(0, 0, 0, 0)' ? color : ground(element.parentElement);
    }
)js";

// The values of the cells of a table, row by row: what programs read, else what is shown.
std::string rowsOf(const std::string& section) {
    return "[...document.querySelectorAll('#" + section +
           " tr')].slice(1).map(row => [...row.cells].map(cell => (cell.querySelector('data') ?? {}).value ?? "
           "(cell.querySelector('div') ?? cell).textContent))";
}

class ReportPage : public BatchFixture {
protected:
    static void SetUpTestSuite() { TheBrowser.emplace(); }
    static void TearDownTestSuite() { TheBrowser.reset(); }

    static std::optional<Browser> TheBrowser; // one for all tests: starting it takes a second
    static const std::map<std::string, RunFacts>& runs() {
        static const auto all = clitest::simulatedRuns();
        return all;
    }

    void open(const std::string& page) const {
        writeFile(file("page.html"), page);
        TheBrowser->open(file("page.html"));
    }
    static Json value(const std::string& expression) { return TheBrowser->evaluate(expression); }
    static Json dataOf(const std::string& id) {
        return Json::parse(value("document.querySelector('#" + id + " data').value").get<std::string>());
    }

    // Looks at what is open as the page of this report.
    static void expectFigures(const Json& report) {
        EXPECT_EQ(value("document.querySelector('h1').textContent"), report["verdict"]);
        EXPECT_EQ(dataOf("done"), report["lines"]["done"]);
        EXPECT_EQ(dataOf("failed"), report["lines"]["failed"]);
        EXPECT_EQ(dataOf("bytes"), report["bytes"]);
        EXPECT_EQ(dataOf("seconds"), report["seconds"]);
        const Json hosts = value(rowsOf("hosts"));
        for (std::size_t i = 0; i < std::min<std::size_t>(hosts.size(), 20); ++i) {
            const Json& host = report["hosts"][i];
            const std::string lines = std::to_string(host["done"].get<int>() + host["failed"].get<int>());
            EXPECT_EQ(hosts[i][0], host["host"]);
            EXPECT_EQ(hosts[i][1], lines);
            EXPECT_EQ(hosts[i][2], host["failed"].dump());
            EXPECT_EQ(hosts[i][3], host["bytes"].dump());
            EXPECT_EQ(Json::parse(hosts[i][5].get<std::string>()), host["seconds"]["p95"]);
        }
        const Json causes = value(rowsOf("causes"));
        ASSERT_EQ(causes.size(), std::min<std::size_t>(report["failures"].size(), 16));
        for (std::size_t i = 0; i < std::min<std::size_t>(causes.size(), 15); ++i) {
            EXPECT_EQ(causes[i][0], report["failures"][i]["cause"]);
            EXPECT_EQ(causes[i][1], report["failures"][i]["count"].dump());
        }
        const Json shown = value(rowsOf("slowest"));
        ASSERT_EQ(shown.size(), report["slowest"].size());
        std::map<std::string, std::string> urls;
        for (const Json& line : report["slowest"]) {
            urls[line["line"].dump()] = line["url"];
        }
        for (const Json& row : shown) {
            std::string line = row[0];
            std::erase(line, ',');
            EXPECT_EQ(row[1], urls[line]) << line;
        }
    }

    // What charts stack over time, by name, from the CSV of the section.
    static std::map<std::string, double> sumsOf(const std::string& section) {
        const Json rows = value("decodeURIComponent(document.querySelector('#" + section +
                                " .csv').href.split(',').slice(1).join(',')).trim().split('\\r\\n').map(row => "
                                "row.split(','))");
        std::map<std::string, double> sums;
        for (std::size_t i = 1; i < rows.size(); ++i) {
            for (std::size_t j = 0; j < rows[0].size(); ++j) {
                sums[rows[0][j]] += std::stod(rows[i][j].get<std::string>());
            }
        }
        return sums;
    }
};

std::optional<Browser> ReportPage::TheBrowser;

TEST_F(ReportPage, ShowsWhatTheJsonOfTheSameRunSays) {
    Server.answer("/gone", {{.Status = 404}});
    Server.answer("/<b>'&amp;", {{.Status = 500}});
    write(Server.url("/n/1") + " 1\n" + Server.url("/n/2") + " 2\n" + Server.url("/gone") + " gone\n" +
          Server.url("/%3Cb%3E'&amp;") + " odd\n");
    EXPECT_EQ(batch({"list", "--report", "run.html", "--report", "run.json"}).Status, 22);
    TheBrowser->open(file("run.html"));
    expectFigures(Json::parse(readFile(file("run.json"))));
    EXPECT_EQ(TheBrowser->complaints(), std::vector<std::string>());
}

// With NETROVE_PICTURES=FOLDER the pages and their pictures stay there, to be looked at; one is for the documentation.
TEST_F(ReportPage, OfAnyRunFitsAnyWidthAndNeedsNothing) {
    const char* pictures = std::getenv("NETROVE_PICTURES");
    for (const auto& [name, facts] : runs()) {
        const std::string page = reportPage(facts);
        open(page);
        for (const int width : {400, 1600}) {
            for (const bool dark : {false, true}) {
                TheBrowser->show(width, dark);
                EXPECT_EQ(value(kOverflow), Json::array()) << name << " at " << width;
                EXPECT_LE(value("document.documentElement.scrollWidth"), width) << name;
                if (pictures != nullptr) {
                    const std::string file = std::string(pictures) + "/" + name;
                    writeFile(file + ".html", page);
                    TheBrowser->savePicture(file + "-" + std::to_string(width) + (dark ? "-dark.png" : ".png"));
                }
            }
        }
        if (pictures != nullptr && name == "failures") {
            TheBrowser->show(1000, false);
            TheBrowser->savePicture(std::string(pictures) + "/report.png", 1225);
        }
        TheBrowser->show(720, false, true);
        EXPECT_EQ(value(kOverflow), Json::array()) << name << " on paper";
        EXPECT_EQ(
            value("document.querySelectorAll('script,img,iframe,object,link,b,i:not([class]):not(:empty)').length"), 0)
            << name;
        EXPECT_EQ(TheBrowser->complaints(), std::vector<std::string>()) << name;
        if (facts.Done != 0) {
            expectFigures(Json::parse(reportJson(facts)));
        }
    }
}

TEST_F(ReportPage, HasTheNumbersOfItsCharts) {
    for (const char* name : {"failures", "good"}) {
        const RunFacts& facts = runs().at(name);
        const Json report = Json::parse(reportJson(facts));
        open(reportPage(facts));
        auto throughput = sumsOf("throughput");
        EXPECT_EQ(throughput["done"], report["lines"]["done"]);
        EXPECT_EQ(throughput["failed"], report["lines"]["failed"]);
        EXPECT_NEAR(throughput["seconds"], report["seconds"], 0.1);
        double busy = 0;
        for (const Json& span : report["times"]["spans"]) {
            busy += span["transferSeconds"].get<double>();
        }
        double shown = 0;
        for (const Json& second :
             value("[...document.querySelectorAll('#under-way .legend data')].map(e => e.value)")) {
            shown += std::stod(second.get<std::string>());
        }
        EXPECT_NEAR(shown, busy, busy / 1000);
        EXPECT_GT(busy, 0);
        for (const Json& cause : report["times"]["failures"]) {
            double count = 0;
            for (const Json& number : cause["failed"]) {
                count += number.get<double>();
            }
            EXPECT_GT(count, 0);
            EXPECT_EQ(sumsOf("failures")[cause["cause"]], count) << cause["cause"];
        }
    }
}

TEST_F(ReportPage, CanBeReadByAllAndInTheDark) {
    open(reportPage(runs().at("failures")));
    std::map<bool, std::string> grounds;
    for (const bool dark : {false, true}) {
        TheBrowser->show(1280, dark);
        grounds[dark] = value("getComputedStyle(document.body).backgroundColor");
        const Json faint = value("(() => {" + std::string(kContrast) + R"js(
            return [...document.querySelectorAll('h1,h2,h3,p,pre,dt,dd,td,th,a,li,data,summary,footer,.faint,.values,.marks,.bad-text')]
                .filter(element => contrast(getComputedStyle(element).color, ground(element)) < 4.5)
                .map(element => element.outerHTML.slice(0, 80));
        })())js");
        EXPECT_EQ(faint, Json::array()) << dark;
        // Series that lie on each other differ in lightness, for those who see no colours.
        const Json steps = value("(() => {" + std::string(kContrast) + R"js(
            const colors = [...document.querySelectorAll('#failures .legend i')]
                .map(key => getComputedStyle(key).backgroundColor);
            return colors.slice(1).map((color, i) => contrast(color, colors[i]));
        })())js");
        EXPECT_EQ(steps.size(), 6U);
        for (const Json& step : steps) {
            EXPECT_GT(step.get<double>(), 1.5) << dark;
        }
    }
    EXPECT_NE(grounds[false], grounds[true]);
}

// Otherwise the tests above would see nothing either.
TEST_F(ReportPage, TheBrowserReportsWhatAPageDoesWrong) {
    open("<!DOCTYPE html><img src='http://elsewhere.example/x.png'><script>console.error('oh')</script>");
    EXPECT_THAT(TheBrowser->complaints(),
                AllOf(Contains("asked for http://elsewhere.example/x.png"), Contains(HasSubstr("oh"))));
    TheBrowser->show(400, false);
    open("<!DOCTYPE html><p style='width: 500px'>wide</p>");
    EXPECT_EQ(value(kOverflow).size(), 1U);
    EXPECT_THROW(value("nothing.here"), std::runtime_error);
}

} // namespace
