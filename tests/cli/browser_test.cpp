// The HTML reports in a real browser: headless Chromium loads each page (no
// network, no file beside it), the test reads the rendered document
// (--dump-dom) and checks its figures against the JSON form of the same
// report, and a screenshot of each page is left in the build tree
// (screenshots/) to be looked at.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <string>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "cli/kvctb_process.h"
#include "cli/output.h"

namespace kvc::cli::testing {
namespace {

class BrowserTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (std::system("chromium --version > /dev/null 2>&1") != 0) {
      const char* require = std::getenv("KVC_REQUIRE_SERVERS");
      if (require && std::string(require) == "1")
        FAIL() << "chromium is required (scripts/install-deps.sh installs it)";
      GTEST_SKIP() << "chromium is not installed";
    }
    dir_ = DirectoryWithDemo(::testing::UnitTest::GetInstance()->current_test_info()->name());
  }

  RunResult Run(std::vector<std::string> args) {
    args.insert(args.begin(), {"--db", "sqlite:demo.db", "--quiet"});
    return RunKvctb(args, In(dir_));
  }

  // Writes the page of `args` (with --format html) to NAME.html, renders it
  // and returns the rendered document; leaves a screenshot as NAME.png in
  // the build tree.
  std::string Render(const std::string& name, std::vector<std::string> args) {
    args.insert(args.begin(), {"--format", "html"});
    const RunResult page = Run(args);
    EXPECT_EQ(page.exit_code, 0) << page.err;
    // Self-contained: nothing loaded from elsewhere.
    EXPECT_EQ(page.out.find(" src="), std::string::npos);
    EXPECT_EQ(page.out.find(" href="), std::string::npos);
    const std::string file = dir_ + "/" + name + ".html";
    WriteFile(file, page.out);
    const std::string chromium = fmt::format(
        "timeout 120 chromium --headless --no-sandbox --disable-gpu --disable-dev-shm-usage "
        "--user-data-dir='{}/profile' ",
        dir_);
    std::filesystem::create_directories(KVCTB_SCREENSHOT_DIR);
    EXPECT_EQ(
        std::system((chromium + fmt::format("--window-size=1100,1400 --screenshot='{}/{}.png' "
                                            "'file://{}' > /dev/null 2>&1",
                                            KVCTB_SCREENSHOT_DIR, name, file))
                        .c_str()),
        0);
    std::string dom;
    FILE* pipe =
        popen((chromium + fmt::format("--dump-dom 'file://{}' 2>/dev/null", file)).c_str(), "r");
    EXPECT_NE(pipe, nullptr);
    if (!pipe) return dom;
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) dom.append(buffer, n);
    EXPECT_EQ(pclose(pipe), 0);
    return dom;
  }

  static size_t Count(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
  }

  std::string dir_;
};

// The text of the cell that follows `label` in the rendered row.
std::string Balance(double value) {
  const std::string text = FormatAmount(std::abs(value), true);
  return std::llround(value * 100) == 0 ? text : text + (value < 0 ? " C" : " D");
}

TEST_F(BrowserTest, TrialBalancePageShowsTheFiguresTheVerdictAndTwelveMonths) {
  const std::string dom =
      Render("trial_balance", {"trial-balance", "--from", "202401", "--to", "202412"});
  const auto json = nlohmann::json::parse(
      Run({"--format", "json", "trial-balance", "--from", "202401", "--to", "202412"}).out);
  // The totals line: debits and credits as the JSON form gives them.
  const std::string total = fmt::format(
      "<td>Total</td><td></td><td class=\"amount\">0.00</td><td class=\"amount\">{}</td>"
      "<td class=\"amount\">{}</td><td class=\"amount\">0.00</td>",
      FormatAmount(json["totals"]["debits"].get<double>(), true),
      FormatAmount(json["totals"]["credits"].get<double>(), true));
  EXPECT_NE(dom.find(total), std::string::npos) << total;
  EXPECT_NE(dom.find("the books balance"), std::string::npos);
  // Every account is a row, with its closing balance marked D or C.
  EXPECT_EQ(Count(dom, "<tr data-depth=") + Count(dom, "<tr class=\"synthetic\" data-depth="),
            json["accounts"].size());
  bool found = false;
  for (const auto& row : json["accounts"]) {
    if (row["account"] != "1.1.3.02") continue;
    found = true;
    EXPECT_NE(
        dom.find("<td class=\"amount credit\">" + Balance(row["closing"].get<double>()) + "</td>"),
        std::string::npos);
  }
  EXPECT_EQ(Count(dom, "<rect class=\"revenue\""), 12u);
  EXPECT_EQ(Count(dom, "<rect class=\"expense\""), 12u);
  EXPECT_EQ(Count(dom, "<circle class=\"result\""), 12u);
  EXPECT_TRUE(found) << "account 1.1.3.02 (a credit balance) is not in the report";
  // The script ran (it marks the document when its buttons are wired), the
  // fold buttons are there, and nothing is folded yet.
  EXPECT_NE(dom.find("data-folding=\"ready\""), std::string::npos);
  EXPECT_GT(Count(dom, "<button class=\"fold\">"), 50u);
  static const std::regex kFolded(R"re(<tr class="[^"]*folded)re");
  EXPECT_FALSE(std::regex_search(dom, kFolded));
}

TEST_F(BrowserTest, IncomeStatementPageChartsEachMonthsResult) {
  const std::string dom = Render("income_statement", {"income-statement", "--from", "202401",
                                                      "--to", "202412", "--depth", "2"});
  const auto json = nlohmann::json::parse(
      Run({"--format", "json", "income-statement", "--from", "202401", "--to", "202412"}).out);
  EXPECT_NE(dom.find("<td>Result (profit)</td><td></td><td class=\"amount\">" +
                     FormatAmount(json["result"].get<double>(), true) + "</td>"),
            std::string::npos);
  // Each month's point carries the month's result.
  static const std::regex kPoint(R"re(<circle class="result"[^>]* data-value="(-?[0-9.]+)")re");
  double sum = 0;
  size_t points = 0;
  for (std::sregex_iterator it(dom.begin(), dom.end(), kPoint), end; it != end; ++it, ++points)
    sum += std::stod((*it)[1]);
  EXPECT_EQ(points, 12u);
  EXPECT_NEAR(sum, json["result"].get<double>(), 0.01);
  EXPECT_NE(dom.find("<td class=\"amount negative\">-"), std::string::npos);  // expenses marked
}

TEST_F(BrowserTest, BalanceSheetAndLedgerPagesRender) {
  const std::string sheet =
      Render("balance_sheet", {"balance-sheet", "--month", "202412", "--depth", "3"});
  EXPECT_NE(sheet.find("assets equal liabilities and equity plus the result not yet closed"),
            std::string::npos);
  EXPECT_EQ(sheet.find("class=\"verdict wrong\""), std::string::npos);
  const std::string ledger =
      Render("ledger", {"ledger", "1.1.1.01", "--from", "202401", "--to", "202403"});
  const auto json = nlohmann::json::parse(
      Run({"--format", "json", "ledger", "1.1.1.01", "--from", "202401", "--to", "202403"}).out);
  EXPECT_NE(ledger.find("closing balance"), std::string::npos);
  EXPECT_NE(ledger.find(Balance(json["closing"].get<double>())), std::string::npos);
  EXPECT_EQ(Count(ledger, "<tr"), json["entries"].size() + 3);  // header, opening, closing
}

}  // namespace
}  // namespace kvc::cli::testing
