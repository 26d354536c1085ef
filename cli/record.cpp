// Building and checking interface records; the positions are those read by
// the module's record reader (accounting/entries/registro_interface.h).
#include "cli/record.h"

#include <cctype>
#include <chrono>

#include <fmt/format.h>

#include "accounting/entries/registro_interface.h"
#include "cli/validate.h"

namespace kvc::cli {
namespace {

std::string Field(const std::string& value, size_t width) {
  return value.size() >= width ? value.substr(0, width)
                               : value + std::string(width - value.size(), ' ');
}

bool Digits(const std::string& s) {
  if (s.empty()) return false;
  for (char c : s)
    if (c < '0' || c > '9') return false;
  return true;
}

// Empty when `account` is a valid account code, else why not.
std::string AccountProblem(const std::string& account) {
  try {
    ParseAccount("account", account);
    return "";
  } catch (const UsageError& e) {
    return std::string(e.what()).substr(std::string("account: ").size());
  }
}

}  // namespace

std::string BuildRecord(const RecordFields& f) {
  std::string r;
  r += std::string(12, ' ');
  r += Field(f.division_code, 4);
  r += std::string(16, ' ');
  r += Field(f.yymm, 4);
  r += Field(f.day, 2);
  r += std::string(3, ' ');
  r += Field(f.history, 32);
  r += Field(f.account1, 20);
  r += Field(f.account2, 20);
  r += Field(f.standard_history, 4);
  r += Field(f.side, 1);
  r += fmt::format("{:015d}", f.cents);
  return r;
}

std::string WithTypographicApostrophes(const std::string& record, size_t& replaced) {
  replaced = 0;
  if (record.find('\'') == std::string::npos) return record;
  const std::string head = Posicoes(record, 1, 41);
  std::string history = Posicoes(record, 42, 32);
  const std::string tail = Posicoes(record, 74, record.size());
  if (head + history + tail != record || history.find('\'') == std::string::npos) return record;
  std::string out;
  for (char c : history) {
    if (c == '\'') {
      out += "\u2019";
      ++replaced;
    } else {
      out += c;
    }
  }
  return head + out + tail;
}

std::string CheckRecord(const std::string& record, bool code_in_account) {
  try {
    CheckedText("record", record, 1000);
  } catch (const UsageError& e) {
    return std::string(e.what()).substr(std::string("record: ").size());
  }
  try {
    (void)LeRegistro(record);
  } catch (const std::exception& e) {
    return e.what();
  }
  const std::string yymm = Posicoes(record, 33, 4);
  if (!Digits(yymm) || std::stoi(yymm.substr(2)) < 1 || std::stoi(yymm.substr(2)) > 12)
    return fmt::format("year and month (positions 33-36) is not YYMM: '{}'", yymm);
  const std::string day = Posicoes(record, 37, 2);
  if (!Digits(day) || std::stoi(day) < 1 || std::stoi(day) > 31)
    return fmt::format("day (positions 37-38) is not a day of the month: '{}'", day);
  // The module reads the year as 20YY.
  const std::chrono::year_month_day date{std::chrono::year{2000 + std::stoi(yymm.substr(0, 2))},
                                         std::chrono::month{unsigned(std::stoi(yymm.substr(2)))},
                                         std::chrono::day{unsigned(std::stoi(day))}};
  if (!date.ok())
    return fmt::format("day (positions 37-38) is not a day of {}-{}: '{}'",
                       2000 + std::stoi(yymm.substr(0, 2)), yymm.substr(2), day);
  const std::string side = Posicoes(record, 118, 1);
  if (side != "-" && side != " " && side != "+")
    return fmt::format(
        "side mark (position 118) is '{}': \"-\" credits the first account field, a blank or "
        "\"+\" debits it",
        side);
  const std::string code = Apara(Posicoes(record, 13, 4));
  if (!code.empty() && !Digits(code))
    return fmt::format("division code (positions 13-16) is not a number: '{}'", code);
  const std::string history = Posicoes(record, 42, 32);
  if (history.find('\'') != std::string::npos)
    return "complementary history (positions 42-73) holds a quote";
  const std::string standard = Apara(Posicoes(record, 114, 4));
  if (!standard.empty() && !Digits(standard))
    return fmt::format("standard history (positions 114-117) is not a number: '{}'", standard);
  const char* names[] = {"first account field (positions 74-93)",
                         "second account field (positions 94-113)"};
  const size_t starts[] = {74, 94};
  for (int i = 0; i < 2; ++i) {
    const std::string field = Posicoes(record, starts[i], 20);
    const ContaDivisao cd = LeContaDivisao(field, code_in_account, code);
    if (!cd.codigo_divisao.empty() && !Digits(cd.codigo_divisao))
      return fmt::format("{}: division code '{}' is not a number", names[i], cd.codigo_divisao);
    const std::string problem = AccountProblem(cd.conta);
    if (!problem.empty()) return fmt::format("{}: {}", names[i], problem);
  }
  return "";
}

}  // namespace kvc::cli
