// The value checks of kvctb (cli/validate.cpp), its global options
// (GlobalOptions::Check, cli/session.cpp) and the reading of the database
// URL that --db hands to the library (ParseDatabaseUrl,
// accounting/db/database_url.h). Every check runs on the whole input.
//
// Properties:
// - each check returns or throws UsageError naming its option, nothing
//   else; the URL reader returns or throws DatabaseError;
// - a value a check accepts, written back the canonical way, is accepted
//   again with the same result (numbers, months, days, years, lists,
//   accounts, item types, modalities, filter conditions, checked text);
// - the URL's text for messages never holds a password: not one given
//   apart, and not an ODBC PWD= entry in any case.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "accounting/db/database_url.h"
#include "accounting/db/error.h"
#include "cli/session.h"
#include "cli/validate.h"
#include "fuzz/fuzz_check.h"

namespace {

using kvc::cli::UsageError;

// Runs `check`; true when it accepted. A UsageError must name `option`.
template <typename Check>
bool Accepts(const std::string& option, Check check) {
  try {
    check();
    return true;
  } catch (const UsageError& e) {
    FUZZ_CHECK_MSG(e.Option() == option && std::string_view(e.what()).starts_with(option + ": "),
                   e.what());
    return false;
  }
}

std::string Lower(std::string_view text) {
  std::string out(text);
  for (char& c : out)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return out;
}

// Whether an ODBC connection string holds a password entry: PWD or
// PASSWORD in any case, blanks, '='.
bool HasPasswordEntry(std::string_view text) {
  const std::string lower = Lower(text);
  for (const std::string key : {"pwd", "password"}) {
    for (size_t at = lower.find(key); at != std::string::npos; at = lower.find(key, at + 1)) {
      const size_t eq = lower.find_first_not_of(" \t", at + key.size());
      if (eq != std::string::npos && lower[eq] == '=') return true;
    }
  }
  return false;
}

void CheckValidators(const std::string& text) {
  using namespace kvc::cli;
  std::string checked;
  if (Accepts("--opt", [&] { checked = CheckedText("--opt", text); })) {
    FUZZ_CHECK(checked == text);
  }
  int32_t n = 0;
  if (Accepts("--company", [&] { n = ParseInt("--company", text, -1000, 999999999); })) {
    FUZZ_CHECK(ParseInt("--company", std::to_string(n), -1000, 999999999) == n);
  }
  std::string account;
  if (Accepts("ACCOUNT", [&] { account = ParseAccount("ACCOUNT", text); })) {
    FUZZ_CHECK(account == text && ParseAccount("ACCOUNT", account) == account);
  }
  for (bool zero : {false, true}) {
    int32_t month = 0;
    if (Accepts("--month", [&] { month = ParseMonth("--month", text, zero); })) {
      FUZZ_CHECK(month >= 190000 && month <= 299912 && (zero || month % 100 != 0));
      FUZZ_CHECK(ParseMonth("--month", std::to_string(month), zero) == month);
    }
  }
  std::string year;
  if (Accepts("YEAR", [&] { year = ParseYear("YEAR", text); })) {
    FUZZ_CHECK(year.size() == 4 && ParseYear("YEAR", year) == year);
  }
  std::string day;
  if (Accepts("--day", [&] { day = ParseDay("--day", text); })) {
    FUZZ_CHECK(day.size() == 2 && day >= "01" && day <= "31" && ParseDay("--day", day) == day);
  }
  std::vector<int32_t> items;
  if (Accepts("--cost-centres", [&] { items = ParseNumberList("--cost-centres", text); })) {
    FUZZ_CHECK(!items.empty() && items.size() <= 100);
    FUZZ_CHECK(ParseNumberList("--cost-centres", JoinList(items)) == items);
    FUZZ_CHECK(ExclusionList("--cost-centres", JoinList(items)) == "(" + JoinList(items) + ")");
  }
  std::string list;
  if (Accepts("--exclude-dealerships",
              [&] { list = ExclusionList("--exclude-dealerships", text); })) {
    FUZZ_CHECK(text.empty() == list.empty());
  }
  std::string item;
  if (Accepts("--item-type", [&] { item = ParseItemType("--item-type", text); })) {
    FUZZ_CHECK(item == text && item.size() == 1);
  }
  std::string modality;
  if (Accepts("--modality", [&] { modality = ParseModality("--modality", text); })) {
    FUZZ_CHECK(modality == text && (modality.size() == 1 || modality == "SPED"));
  }
  std::string filter;
  if (Accepts("--filter", [&] { filter = ParseFilter("--filter", text); })) {
    FUZZ_CHECK(filter == text && ParseFilter("--filter", filter) == filter);
    FUZZ_CHECK(filter.find(';') == std::string::npos && filter.find("--") == std::string::npos &&
               filter.find("/*") == std::string::npos);
  }
}

void CheckGlobalOptions(const std::string& text) {
  using kvc::cli::GlobalOptions;
  const char* names[] = {"--db",   "--company", "--dealership",
                         "--user", "--format",  "--server-type"};
  for (int field = 0; field < 6; ++field) {
    GlobalOptions o;
    std::string* value[] = {&o.db, &o.company, &o.dealership, &o.user, &o.format, &o.server_type};
    *value[field] = text;
    if (!Accepts(names[field], [&] { o.Check(); })) continue;
    if (field == 5 && !text.empty()) {
      // The canonical name is accepted and stays the same.
      GlobalOptions again;
      again.server_type = o.tipo_banco;
      again.Check();
      FUZZ_CHECK(again.tipo_banco == o.tipo_banco);
    }
  }
}

void CheckUrl(const std::string& text) {
  const std::string password = "Pa55-w0rd";
  kvc::db::DatabaseUrl plain, with_password;
  try {
    plain = kvc::db::ParseDatabaseUrl(text);
  } catch (const kvc::db::DatabaseError& e) {
    if (text.find(password) == std::string::npos)
      FUZZ_CHECK(std::string_view(e.what()).find(password) == std::string_view::npos);
    return;
  }
  with_password = kvc::db::ParseDatabaseUrl(text, password);
  FUZZ_CHECK(with_password.kind == plain.kind);
  FUZZ_CHECK_MSG(with_password.display == plain.display, with_password.display);
  if (text.find(password) == std::string::npos)
    FUZZ_CHECK_MSG(with_password.display.find(password) == std::string::npos,
                   with_password.display);
  if (text.starts_with("odbc:")) FUZZ_CHECK_MSG(!HasPasswordEntry(plain.display), plain.display);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  CheckValidators(text);
  CheckGlobalOptions(text);
  CheckUrl(text);
  return 0;
}
