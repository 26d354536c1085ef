#include "cli/closed_periods.h"

#include <fmt/format.h>

namespace kvc::cli {
namespace {

using std::chrono::year_month_day;

// The latest year with carried-forward balances: its annual closing has run.
constexpr char kSelectLastClosedYear[] =
    "select max(ANO) from CTB_SALDO_ANTERIOR where EMPRESA = :EMPRESA and REVENDA = :REVENDA";

}  // namespace

std::string IsoDate(const year_month_day& date) {
  return fmt::format("{:04}-{:02}-{:02}", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
}

year_month_day EntryDate(int32_t ano_mes, int32_t dia) {
  return year_month_day{std::chrono::year{ano_mes / 100},
                        std::chrono::month{static_cast<unsigned>(ano_mes % 100)},
                        std::chrono::day{static_cast<unsigned>(dia)}};
}

ClosedPeriods::ClosedPeriods(Session& session) {
  const auto rows =
      session.Connection().Query(kSelectLastClosedYear, CompanyParams(session.Options())).rows;
  if (!rows.empty() && !rows.at(0).at(0).IsNull())
    last_closed_year_ = static_cast<int>(rows.at(0).at(0).AsInteger());
  // The day after the last result calculation's closing date, "YYYYMMDD",
  // or empty when none was run.
  const std::string next = session.Module().RetornaDataUltApuracao();
  if (next.size() == 8) {
    const year_month_day day_after{std::chrono::year{std::stoi(next.substr(0, 4))},
                                   std::chrono::month{unsigned(std::stoi(next.substr(4, 2)))},
                                   std::chrono::day{unsigned(std::stoi(next.substr(6, 2)))}};
    if (day_after.ok())
      result_closed_to_ = year_month_day{std::chrono::sys_days{day_after} - std::chrono::days{1}};
  }
}

std::string ClosedPeriods::Why(const year_month_day& date, const std::string& subject) const {
  const std::string named = subject.empty() ? IsoDate(date) : subject;
  const int year = static_cast<int>(date.year());
  if (last_closed_year_ && year <= *last_closed_year_)
    return fmt::format(
        "{} is in a closed year: the annual closing has been run up to {} (its carried-forward "
        "balances exist)",
        named, *last_closed_year_);
  if (result_closed_to_ && date <= *result_closed_to_)
    return fmt::format("{} is in a closed period: the result was calculated up to {}", named,
                       IsoDate(*result_closed_to_));
  return "";
}

std::vector<std::string> ClosedPeriods::RunAgain(const std::set<year_month_day>& dates) const {
  std::vector<std::string> lines;
  if (dates.empty()) return lines;
  const int first = static_cast<int>(dates.begin()->year());
  if (last_closed_year_ && first <= *last_closed_year_) {
    // Each year's closing carries its balances into the next year's.
    std::string commands;
    for (int y = first; y <= *last_closed_year_; ++y)
      commands += fmt::format("{}kvctb close-year {}", commands.empty() ? "" : ", then ", y);
    lines.push_back(
        first == *last_closed_year_
            ? fmt::format("the change reaches a closed year: run its annual closing again: {}",
                          commands)
            : fmt::format(
                  "the change reaches closed years: run the annual closing again from {} to {}: {}",
                  first, *last_closed_year_, commands));
  }
  if (result_closed_to_ && *dates.begin() <= *result_closed_to_)
    lines.push_back(fmt::format(
        "the result calculated up to {} does not include the change, and a new close-result "
        "starts on the day after it: close the change's result by hand, with an entry to the "
        "result account",
        IsoDate(*result_closed_to_)));
  return lines;
}

}  // namespace kvc::cli
