// The scanner of ":NAME" placeholders in statement text and the two rewrites
// built on it (accounting/db/placeholders.cpp). The input is one statement.
//
// Properties:
// - FindPlaceholders gives, in text order and without overlap, spans that
//   hold ':' and the name, the name made of name characters (not starting
//   with a digit or '$'), the next character not one of them, and no ':'
//   just before;
// - PlaceholderNames are those names, each once (any case), first
//   occurrence first;
// - ToPositional renames them :p1, :p2, ... in order, keeps the original
//   names, and its text scans to exactly those placeholders;
// - DropAmbiguousComments leaves the placeholders as they were and no
//   comment holding a ':' or a quote, and a second pass changes nothing.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "accounting/db/placeholders.h"
#include "accounting/db/result_set.h"
#include "fuzz/fuzz_check.h"

namespace {

using kvc::db::Placeholder;

bool NameStart(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
         static_cast<unsigned char>(c) >= 0x80;
}
bool NameChar(char c) { return NameStart(c) || (c >= '0' && c <= '9') || c == '$'; }

std::vector<std::string> Names(const std::vector<Placeholder>& placeholders) {
  std::vector<std::string> names;
  for (const Placeholder& p : placeholders) names.push_back(p.name);
  return names;
}

// Whether `sql` still holds a comment with a ':' or a quote, scanning as the
// library does: quoted text and identifiers are skipped, "--" runs to the
// line end and "/*" to "*/" (or the end).
bool HasAmbiguousComment(std::string_view sql) {
  size_t i = 0;
  const size_t n = sql.size();
  while (i < n) {
    const char c = sql[i];
    if (c == '\'' || c == '"') {
      size_t j = i + 1;
      while (j < n) {
        if (sql[j] == c) {
          if (j + 1 < n && sql[j + 1] == c) {
            j += 2;
            continue;
          }
          break;
        }
        ++j;
      }
      i = j < n ? j + 1 : n;
    } else if ((c == '/' && i + 1 < n && sql[i + 1] == '*') ||
               (c == '-' && i + 1 < n && sql[i + 1] == '-')) {
      size_t end = c == '/' ? sql.find("*/", i + 2) : sql.find('\n', i + 2);
      end = end == std::string_view::npos ? n : (c == '/' ? end + 2 : end);
      const std::string_view comment = sql.substr(i, end - i);
      if (comment.find(':') != std::string_view::npos ||
          comment.find('\'') != std::string_view::npos)
        return true;
      i = end;
    } else {
      ++i;
    }
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view sql(reinterpret_cast<const char*>(data), size);

  const std::vector<Placeholder> found = kvc::db::FindPlaceholders(sql);
  size_t end = 0;
  for (const Placeholder& p : found) {
    FUZZ_CHECK(p.pos >= end);
    FUZZ_CHECK(p.length == p.name.size() + 1 && p.pos + p.length <= sql.size());
    FUZZ_CHECK(sql[p.pos] == ':' && sql.substr(p.pos + 1, p.name.size()) == p.name);
    FUZZ_CHECK(!p.name.empty() && NameStart(p.name[0]));
    for (char c : p.name) FUZZ_CHECK(NameChar(c));
    FUZZ_CHECK(p.pos + p.length == sql.size() || !NameChar(sql[p.pos + p.length]));
    FUZZ_CHECK(p.pos == 0 || sql[p.pos - 1] != ':');
    end = p.pos + p.length;
  }

  const std::vector<std::string> names = kvc::db::PlaceholderNames(sql);
  std::vector<std::string> expected;
  for (const Placeholder& p : found) {
    bool seen = false;
    for (const std::string& n : expected) seen = seen || kvc::db::SameFieldName(n, p.name);
    if (!seen) expected.push_back(p.name);
  }
  FUZZ_CHECK(names == expected);

  const kvc::db::PositionalText positional = kvc::db::ToPositional(sql);
  FUZZ_CHECK(positional.names == Names(found));
  const std::vector<Placeholder> renamed = kvc::db::FindPlaceholders(positional.text);
  FUZZ_CHECK_MSG(renamed.size() == found.size(), positional.text);
  for (size_t i = 0; i < renamed.size(); ++i)
    FUZZ_CHECK_MSG(renamed[i].name == "p" + std::to_string(i + 1), positional.text);

  const std::string dropped = kvc::db::DropAmbiguousComments(sql);
  FUZZ_CHECK_MSG(Names(kvc::db::FindPlaceholders(dropped)) == Names(found), dropped);
  FUZZ_CHECK_MSG(!HasAmbiguousComment(dropped), dropped);
  FUZZ_CHECK_MSG(kvc::db::DropAmbiguousComments(dropped) == dropped, dropped);
  return 0;
}
