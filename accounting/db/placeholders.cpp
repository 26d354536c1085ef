// Placeholder scanning and positional renaming of statement text.
#include "accounting/db/placeholders.h"

#include "accounting/db/result_set.h"

namespace kvc::db {

namespace {

bool IsNameStart(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
         static_cast<unsigned char>(c) >= 0x80;
}
bool IsNameChar(char c) { return IsNameStart(c) || (c >= '0' && c <= '9') || c == '$'; }

// Calls on_comment(begin, end) for each comment and on_placeholder for each
// placeholder, skipping quoted text.
template <typename OnComment, typename OnPlaceholder>
void Scan(std::string_view sql, OnComment on_comment, OnPlaceholder on_placeholder) {
  size_t i = 0;
  const size_t n = sql.size();
  while (i < n) {
    char c = sql[i];
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
    } else if (c == '/' && i + 1 < n && sql[i + 1] == '*') {
      size_t end = sql.find("*/", i + 2);
      end = end == std::string_view::npos ? n : end + 2;
      on_comment(i, end);
      i = end;
    } else if (c == '-' && i + 1 < n && sql[i + 1] == '-') {
      size_t end = sql.find('\n', i + 2);
      end = end == std::string_view::npos ? n : end;
      on_comment(i, end);
      i = end;
    } else if (c == ':' && i + 1 < n && sql[i + 1] == ':') {
      i += 2;
    } else if (c == ':' && i + 1 < n && IsNameStart(sql[i + 1]) && (i == 0 || sql[i - 1] != ':')) {
      size_t j = i + 1;
      while (j < n && IsNameChar(sql[j])) ++j;
      on_placeholder(Placeholder{i, j - i, std::string(sql.substr(i + 1, j - i - 1))});
      i = j;
    } else {
      ++i;
    }
  }
}

}  // namespace

std::vector<Placeholder> FindPlaceholders(std::string_view sql) {
  std::vector<Placeholder> out;
  Scan(
      sql, [](size_t, size_t) {}, [&](Placeholder p) { out.push_back(std::move(p)); });
  return out;
}

std::vector<std::string> PlaceholderNames(std::string_view sql) {
  std::vector<std::string> names;
  for (auto& p : FindPlaceholders(sql)) {
    bool seen = false;
    for (auto& n : names) seen = seen || SameFieldName(n, p.name);
    if (!seen) names.push_back(p.name);
  }
  return names;
}

PositionalText ToPositional(std::string_view sql) {
  PositionalText out;
  size_t last = 0;
  for (auto& p : FindPlaceholders(sql)) {
    out.text.append(sql.substr(last, p.pos - last));
    out.names.push_back(p.name);
    out.text += ":p" + std::to_string(out.names.size());
    last = p.pos + p.length;
  }
  out.text.append(sql.substr(last));
  return out;
}

std::string DropAmbiguousComments(std::string_view sql) {
  std::string out;
  size_t last = 0;
  Scan(
      sql,
      [&](size_t begin, size_t end) {
        std::string_view comment = sql.substr(begin, end - begin);
        if (comment.find(':') == std::string_view::npos &&
            comment.find('\'') == std::string_view::npos)
          return;
        out.append(sql.substr(last, begin - last));
        out += ' ';
        last = end;
      },
      [](const Placeholder&) {});
  out.append(sql.substr(last));
  return out;
}

}  // namespace kvc::db
