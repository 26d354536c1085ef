// The periods a company's books hold closed: every day up to the closing
// date of the last result calculation, and every year whose annual closing
// has run (its carried-forward balances exist). kvctb refuses to post or
// delete entries there unless told to reopen them, and then says which
// closing to run again.
#ifndef KVC_CLI_CLOSED_PERIODS_H_
#define KVC_CLI_CLOSED_PERIODS_H_

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "cli/session.h"

namespace kvc::cli {

class ClosedPeriods {
 public:
  // Reads the closings of the session's company and dealership.
  explicit ClosedPeriods(Session& session);

  // Why `date` is closed ("2023-06-15 is in a closed ..."), or empty when it
  // is open. `subject` names the date in the text when given ("the closing
  // date is in a closed ...").
  std::string Why(const std::chrono::year_month_day& date, const std::string& subject = "") const;

  // What to run again after changes on `dates`, one line each for standard
  // error; empty when every date was open.
  std::vector<std::string> RunAgain(const std::set<std::chrono::year_month_day>& dates) const;

  // The closing date of the last result calculation, if one was run.
  const std::optional<std::chrono::year_month_day>& ResultCalculatedTo() const {
    return result_closed_to_;
  }

 private:
  std::optional<std::chrono::year_month_day> result_closed_to_;
  std::optional<int> last_closed_year_;
};

// "YYYY-MM-DD".
std::string IsoDate(const std::chrono::year_month_day& date);

// The date of an entry: YYYYMM and the day. REQUIRES: a valid date.
std::chrono::year_month_day EntryDate(int32_t ano_mes, int32_t dia);

}  // namespace kvc::cli

#endif  // KVC_CLI_CLOSED_PERIODS_H_
