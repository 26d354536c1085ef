// Hostile values for every option of kvctb that reaches statement text:
// each is refused with exit code 2, the message names the option, and the
// statement trace shows that nothing was sent to the database. A control
// run with a benign value proves that the same command does send
// statements, so an empty trace means something.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cli/kvctb_process.h"

namespace kvc::cli::testing {
namespace {

struct HostileCase {
  std::string option;             // named in the message
  std::vector<std::string> args;  // with the value in place of "@"
  std::string value;
};

// A command line per option; "@" marks where the value goes.
struct Template {
  std::string option;
  std::vector<std::string> args;
  std::string benign;
};

const std::vector<Template>& Templates() {
  static const std::vector<Template> t = {
      {"ACCOUNT", {"balance", "@", "--month", "202406"}, "1.1.1.01"},
      {"--month", {"balance", "1.1.1.01", "--month", "@"}, "202406"},
      {"--cost-centres", {"balance", "3", "--month", "202406", "--cost-centres", "@"}, "1,2"},
      {"--exclude-dealerships",
       {"balance", "3", "--month", "202406", "--exclude-dealerships", "@"},
       "3,7"},
      {"--filter", {"balance", "3.1.1.01", "--month", "202406", "--filter", "@"}, "DIA = 1"},
      {"--cost-centre", {"balance", "3", "--month", "202406", "--cost-centre", "@"}, "2"},
      {"--item-type", {"balance", "3", "--month", "202406", "--item-type", "@"}, "P"},
      {"--modality", {"balance", "3", "--month", "202406", "--modality", "@"}, "V"},
      {"--from", {"movement", "3.1.1.01", "--from", "@", "--to", "202406"}, "202401"},
      {"--from-day",
       {"day-movement", "3", "--month", "202403", "--from-day", "@", "--to-day", "15"},
       "1"},
      {"--day",
       {"close-result", "--month", "202412", "--day", "@", "--year", "2024", "--history", "99",
        "--result-account", "2.9.1.01"},
       "31"},
      {"--year",
       {"close-result", "--month", "202412", "--day", "31", "--year", "@", "--history", "99",
        "--result-account", "2.9.1.01"},
       "2024"},
      {"--history",
       {"close-result", "--month", "202412", "--day", "31", "--year", "2024", "--history", "@",
        "--result-account", "2.9.1.01"},
       "99"},
      {"--result-account",
       {"close-result", "--month", "202412", "--day", "31", "--year", "2024", "--history", "99",
        "--result-account", "@"},
       "2.9.1.01"},
      {"YEAR", {"close-year", "@"}, "2023"},
      {"ENTRY", {"invoice-text", "@", "--month", "202401"}, "1"},
      {"CODE", {"cost-centre", "@"}, "4"},
      {"--company", {"--company", "@", "cost-centre", "4"}, "1"},
      {"--dealership", {"--dealership", "@", "cost-centre", "4"}, "1"},
  };
  return t;
}

// Values that would change a statement's structure, or are not what the
// option takes, whatever the option.
const std::vector<std::string>& CommonValues() {
  static const std::vector<std::string> v = {
      "1' or '1'='1",
      "1; delete from CTB_LANCAMENTO",
      "1 -- comment",
      "1 /* comment */",
      "1 union select CONTA from CTB_CONTA",
      "'",
      "1)",
      std::string("1\xff\xfe"),
      std::string(300, '1'),
  };
  return v;
}

// Values aimed at one option each.
const std::vector<std::pair<std::string, std::string>>& SpecificValues() {
  static const std::vector<std::pair<std::string, std::string>> v = {
      {"ACCOUNT", "1.1'--"},
      {"ACCOUNT", "1.1\"x"},
      {"ACCOUNT", "AAAAAAAAAAAAAAAAAAAAA"},
      {"ACCOUNT", "1 1"},
      {"ACCOUNT", "1,1"},
      {"ACCOUNT", std::string("1.\xc3\x28")},
      {"--month", "202413"},
      {"--month", "2024-01"},
      {"--month", "20240"},
      {"--month", "2024011"},
      {"--month", "0x1234"},
      {"--month", "202401;"},
      {"--cost-centres", "1,2) or (1=1"},
      {"--cost-centres", "1,,2"},
      {"--cost-centres", "1,a"},
      {"--cost-centres", "1;2"},
      {"--cost-centres", "-1"},
      {"--exclude-dealerships", "3,7) or (1=1"},
      {"--exclude-dealerships", "3 7"},
      {"--exclude-dealerships", "(3,7)"},
      {"--exclude-dealerships", "3,--"},
      {"--exclude-dealerships", "3,/*7*/"},
      {"--filter", "DIA = 1; drop table CTB_CONTA"},
      {"--filter", "CONTA = '1' --"},
      {"--filter", "/* x */ DIA = 1"},
      {"--filter", "DIA = 1 union select 1"},
      {"--filter", "CONTA = 'x''y'"},
      {"--filter", "CONTA = '"},
      {"--filter", "CONTA in (select CONTA from CTB_CONTA)"},
      {"--filter", "DIA = 1)"},
      {"--filter", "exists (select 1)"},
      {"--filter", "DIA = char(39)"},
      {"--filter", "DIA = 1 or"},
      {"--filter", "{$ALIAS$}.SENHA = 1"},
      {"--filter", std::string(1200, '(')},
      {"--filter", "DIA = 1 \\"},
      {"--item-type", "PP"},
      {"--item-type", ";"},
      {"--modality", "SPED'"},
      {"--modality", "--"},
      {"--cost-centre", "1 or 1=1"},
      {"--cost-centre", "+1"},
      {"--cost-centre", "1.5"},
      {"--day", "32"},
      {"--day", "0"},
      {"--day", "3'1"},
      {"--year", "20245"},
      {"--year", "2024--"},
      {"--history", "99;drop"},
      {"--result-account", "2.9.1.01' or 1=1 --"},
      {"--result-account", "2.9.1.01;"},
      {"ENTRY", "1 or 1=1"},
      {"ENTRY", "0x10"},
      {"CODE", "4'"},
      {"--company", "1;--"},
  };
  return v;
}

std::vector<HostileCase> Cases() {
  std::vector<HostileCase> cases;
  auto add = [&](const Template& t, const std::string& value) {
    HostileCase c{t.option, t.args, value};
    for (auto& a : c.args)
      if (a == "@") a = value;
    cases.push_back(std::move(c));
  };
  for (const Template& t : Templates())
    for (const std::string& v : CommonValues()) add(t, v);
  for (const auto& [option, value] : SpecificValues())
    for (const Template& t : Templates())
      if (t.option == option) add(t, value);
  return cases;
}

class HostileTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { dir_ = new std::string(DirectoryWithDemo("hostile")); }
  static void TearDownTestSuite() { delete dir_; }

  RunResult Traced(std::vector<std::string> args) {
    args.insert(args.begin(), {"--db", "sqlite:demo.db", "--trace-sql", "trace.jsonl"});
    return RunKvctb(args, {*dir_, {}, ""});
  }
  static std::string* dir_;
};
std::string* HostileTest::dir_ = nullptr;

TEST_F(HostileTest, TheCatalogueHoldsAtLeastFiftyValues) {
  size_t values = CommonValues().size() + SpecificValues().size();
  EXPECT_GE(values, 50u);
  EXPECT_GE(Cases().size(), 200u);
}

TEST_F(HostileTest, BenignValuesSendStatements) {
  for (const Template& t : Templates()) {
    std::vector<std::string> args = t.args;
    for (auto& a : args)
      if (a == "@") a = t.benign;
    const RunResult r = Traced(args);
    // close-result without --confirm is a preview; every template runs.
    EXPECT_NE(r.exit_code, 2) << t.option << ": " << r.err;
    EXPECT_FALSE(ReadFile(*dir_ + "/trace.jsonl").empty()) << t.option << " sent nothing";
  }
}

TEST_F(HostileTest, EveryHostileValueIsRefusedBeforeTheDatabase) {
  for (const HostileCase& c : Cases()) {
    const RunResult r = Traced(c.args);
    std::string shown = c.value.substr(0, 60);
    EXPECT_EQ(r.exit_code, 2) << c.option << " = " << shown << "\n" << r.err << r.out;
    EXPECT_NE(r.err.find(c.option), std::string::npos)
        << "the message does not name " << c.option << ": " << r.err;
    EXPECT_TRUE(FileExists(*dir_ + "/trace.jsonl"));
    EXPECT_EQ(ReadFile(*dir_ + "/trace.jsonl"), "") << c.option << " = " << shown;
    EXPECT_EQ(r.out, "") << c.option << " = " << shown;
  }
}

}  // namespace
}  // namespace kvc::cli::testing
