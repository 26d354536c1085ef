// The statement-rewriting step run before a command dataset opens
// (TddmContabilidadeBD::sdsPadraoBeforeOpen, accounting/module/rewriting.cpp)
// with the dialect adaptation it calls (CompatBanco, Dialect::Adapt). The
// statement text and the parameter values are both fuzzed. The input:
//
//   SQLSERVER             the server type (TipoBanco)
//   P=i:5                 parameters, one a line: NAME=VALUE, VALUE being
//   Q=s:abc               i:INTEGER, f:DOUBLE, d:YYYY-MM-DD[ HH:MM:SS],
//                         n: (null) or any other text
//                         an empty line
//   select ...            the statement text, to the end
//
// (Without an empty line the statement is everything after the first line.)
// The statement's placeholders make the parameter list; the lines then set
// values, and may add parameters the text does not name, as a caller does
// before the same text opens again. The step runs twice, the second time on
// its own result with the values set again.
//
// Properties:
// - every dialect's adaptation is idempotent;
// - on a server other than SQL Server the text is adapted and the
//   parameters stay as they were;
// - on SQL Server either nothing changes, or the parameters are all
//   dropped (values written into the text) or there were none; a text that
//   changes has no line feed and no blanks at its ends;
// - when values are written into the text (none of them holding a ':',
//   and neither they nor the text a "/*" that could pass for a marker), each
//   non-empty value whose placeholder stood before a blank or ')' is there
//   as /*NAME*/'value', and that placeholder is gone from before blanks
//   and ')' (one before a tab or ',' stays: step 5.4 replaces only those).
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "accounting/db/dialect.h"
#include "accounting/db/sql_dataset.h"
#include "accounting/db/sql_format.h"
#include "accounting/module/uddmContabilidadeBD.h"
#include "accounting/services/zorutils.h"
#include "fuzz/fuzz_check.h"

namespace {

using kvc::db::Param;
using kvc::db::Params;
using kvc::db::SQLDataSet;
using kvc::db::Value;

struct Input {
  std::string tipo_banco;
  std::vector<std::pair<std::string, Value>> values;
  std::string statement;
};

Value ParseValue(std::string_view text) {
  const std::string_view rest = text.size() >= 2 ? text.substr(2) : std::string_view();
  if (text.starts_with("i:")) {
    int64_t i = 0;
    if (kvc::sql::ParseInteger(rest, i)) return Value(i);
  } else if (text.starts_with("f:")) {
    double d = 0;
    if (kvc::sql::ParseDouble(rest, d)) return Value(d);
  } else if (text.starts_with("d:")) {
    if (auto dt = kvc::DateTime::ParseIso(rest)) return Value(*dt);
  } else if (text.starts_with("n:")) {
    return Value();
  }
  return Value(text);
}

Input Parse(std::string_view data) {
  Input in;
  const size_t blank = data.find("\n\n");
  std::string_view header = blank == std::string_view::npos ? data : data.substr(0, blank);
  const size_t eol = header.find('\n');
  in.tipo_banco = std::string(header.substr(0, eol));
  if (blank == std::string_view::npos) {
    in.statement = eol == std::string_view::npos ? "" : std::string(data.substr(eol + 1));
    return in;
  }
  in.statement = std::string(data.substr(blank + 2));
  header = eol == std::string_view::npos ? std::string_view() : header.substr(eol + 1);
  while (!header.empty()) {
    const size_t end = header.find('\n');
    const std::string_view line = header.substr(0, end);
    const size_t eq = line.find('=');
    if (eq != std::string_view::npos && eq > 0)
      in.values.emplace_back(std::string(line.substr(0, eq)), ParseValue(line.substr(eq + 1)));
    header = end == std::string_view::npos ? std::string_view() : header.substr(end + 1);
  }
  return in;
}

char Upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

bool ContainsIgnoreCase(std::string_view text, std::string_view needle) {
  if (needle.size() > text.size()) return false;
  for (size_t i = 0; i + needle.size() <= text.size(); ++i) {
    size_t j = 0;
    while (j < needle.size() && Upper(text[i + j]) == Upper(needle[j])) ++j;
    if (j == needle.size()) return true;
  }
  return false;
}

bool SameParams(const Params& a, const Params& b) {
  if (a.Count() != b.Count()) return false;
  for (size_t i = 0; i < a.Count(); ++i)
    if (a[i].name != b[i].name || a[i].type != b[i].type || !(a[i].value == b[i].value))
      return false;
  return true;
}

// Letters, digits, '_', '$' and bytes past ASCII, as FindPlaceholders reads
// a name.
bool PlaceholderName(std::string_view name) {
  if (name.empty()) return false;
  for (char c : name)
    if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
          c == '$' || static_cast<unsigned char>(c) >= 0x80))
      return false;
  return true;
}

bool Trimmed(std::string_view text) {
  return text.empty() || (static_cast<unsigned char>(text.front()) > ' ' &&
                          static_cast<unsigned char>(text.back()) > ' ');
}

kvc::TddmContabilidadeBD& Module() {
  static kvc::TddmContabilidadeBD* dm = new kvc::TddmContabilidadeBD();
  return *dm;
}

// One run of the step on `ds`, with the properties checked.
void Rewrite(SQLDataSet& ds, const std::string& tipo_banco) {
  const std::string before = ds.CommandText();
  const Params params = ds.GetParams();
  Module().sdsPadraoBeforeOpen(ds);
  const std::string& after = ds.CommandText();

  if (tipo_banco != "SQLSERVER") {
    FUZZ_CHECK(after == kvc::CompatBanco(before, tipo_banco, 0, false));
    FUZZ_CHECK(SameParams(ds.GetParams(), params));
    return;
  }
  const bool kept = SameParams(ds.GetParams(), params);
  FUZZ_CHECK(kept || ds.GetParams().Empty());
  if (kept && !params.Empty()) FUZZ_CHECK(after == before);
  if (after != before) {
    FUZZ_CHECK_MSG(after.find('\n') == std::string::npos, after);
    FUZZ_CHECK_MSG(Trimmed(after), after);
  }
  if (kept || params.Empty()) return;

  // Values were written into the text. Checked when no replacement can
  // make or break another's placeholder or marker: no value holds a ':' or
  // "/*", every name is a placeholder name, and the text held no "/*" (an
  // earlier value is updated from its marker to the next blank, or to the
  // closing quote when that stretch holds one, which may take in a value
  // written after the marker in the same run: intended, see rewriting.cpp
  // step 5.5).
  if (before.find("/*") != std::string::npos) return;
  for (const Param& p : params)
    if (p.AsString().find(':') != std::string::npos ||
        p.AsString().find("/*") != std::string::npos || !PlaceholderName(p.name))
      return;
  std::string s = before;
  for (char& c : s)
    if (c == '\n') c = ' ';
  s += ' ';
  for (const Param& p : params) {
    const std::string v = p.AsString();
    if (v.empty()) continue;
    const std::string blank = ":" + p.name + " ", paren = ":" + p.name + ")";
    if (!ContainsIgnoreCase(s, blank) && !ContainsIgnoreCase(s, paren)) continue;
    const std::string inlined = "/*" + p.name + "*/'" + v + "'";
    FUZZ_CHECK_MSG(after.find(inlined) != std::string::npos, inlined + " not in: " + after);
    FUZZ_CHECK_MSG(!ContainsIgnoreCase(after, blank) && !ContainsIgnoreCase(after, paren),
                   p.name + " still in: " + after);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const Input in = Parse(std::string_view(reinterpret_cast<const char*>(data), size));

  for (auto kind : {kvc::db::ServerKind::kSqlite, kvc::db::ServerKind::kFirebird,
                    kvc::db::ServerKind::kPostgresql, kvc::db::ServerKind::kSqlServer,
                    kvc::db::ServerKind::kOracle}) {
    const kvc::db::Dialect& dialect = kvc::db::DialectFor(kind);
    const std::string once = dialect.Adapt(in.statement);
    FUZZ_CHECK(dialect.Adapt(once) == once);
  }

  Module().Aplicacao()->TipoBanco = in.tipo_banco;
  SQLDataSet ds("sdsFuzz");
  ds.SetCommandText(in.statement);
  for (int run = 0; run < 2; ++run) {
    for (const auto& [name, value] : in.values) ds.GetParams().Add(name).value = value;
    Rewrite(ds, in.tipo_banco);
  }
  return 0;
}
