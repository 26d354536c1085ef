// The boundary checks of kvctb: numbers, months, days, account codes, lists
// and the filter condition. Pure functions; no state.
#include "cli/validate.h"

#include <algorithm>
#include <array>
#include <cctype>

#include <fmt/format.h>

namespace kvc::cli {
namespace {

// The columns of CTB_LANCAMENTO, the only names a filter condition may use.
constexpr std::array<std::string_view, 18> kJournalColumns = {"EMPRESA",
                                                              "REVENDA",
                                                              "ANO_MES",
                                                              "LANCAMENTO",
                                                              "LCO_ORIGEM",
                                                              "USUARIO",
                                                              "CONTA",
                                                              "HISTORICO_PADRAO",
                                                              "DIA",
                                                              "NATUREZA",
                                                              "VAL_LANCAMENTO",
                                                              "ORIGEM",
                                                              "HIS_COMPLEMENTAR",
                                                              "DOCUMENTO",
                                                              "LCO_OK",
                                                              "OPERACAO",
                                                              "ENCERRAMENTO_EXERCICIO",
                                                              "REVENDA_OPERACAO"};
constexpr std::string_view kAliasPrefix = "{$ALIAS$}.";

// Text shown in a message: at most 40 bytes, non-printable bytes as \xNN.
std::string Shown(std::string_view text) {
  std::string out;
  for (size_t i = 0; i < text.size() && i < 40; ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (c < 0x20 || c >= 0x7F)
      out += fmt::format("\\x{:02X}", c);
    else
      out += static_cast<char>(c);
  }
  if (text.size() > 40) out += "...";
  return "'" + out + "'";
}

bool ValidUtf8(std::string_view s) {
  size_t i = 0;
  while (i < s.size()) {
    const unsigned char c = static_cast<unsigned char>(s[i]);
    size_t n = 0;
    uint32_t cp = 0;
    if (c < 0x80) {
      ++i;
      continue;
    } else if ((c & 0xE0) == 0xC0) {
      n = 1;
      cp = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
      n = 2;
      cp = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
      n = 3;
      cp = c & 0x07;
    } else {
      return false;
    }
    if (i + n >= s.size()) return false;
    for (size_t k = 1; k <= n; ++k) {
      const unsigned char cc = static_cast<unsigned char>(s[i + k]);
      if ((cc & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (cc & 0x3F);
    }
    // Overlong forms, surrogates and values past U+10FFFF.
    if ((n == 1 && cp < 0x80) || (n == 2 && cp < 0x800) || (n == 3 && cp < 0x10000) ||
        (cp >= 0xD800 && cp <= 0xDFFF) || cp > 0x10FFFF)
      return false;
    i += n + 1;
  }
  return true;
}

bool AllDigits(std::string_view s) {
  return !s.empty() && std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string Trim(std::string_view s) {
  size_t b = 0, e = s.size();
  while (b < e && s[b] == ' ') ++b;
  while (e > b && s[e - 1] == ' ') --e;
  return std::string(s.substr(b, e - b));
}

std::string Upper(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return out;
}

// ---- the filter condition ---------------------------------------------------

struct Token {
  enum Kind { kWord, kColumn, kNumber, kText, kOperator, kOpen, kClose, kComma, kEnd } kind;
  std::string text;
};

class FilterParser {
 public:
  FilterParser(const std::string& option, std::string_view text) : option_(option) {
    Tokenize(text);
  }

  void Parse() {
    Condition();
    if (Peek().kind != Token::kEnd) Fail("unexpected " + Describe(Peek()));
  }

 private:
  [[noreturn]] void Fail(const std::string& why) const {
    throw UsageError(option_, "not an accepted condition: " + why);
  }

  static std::string Describe(const Token& t) {
    return t.kind == Token::kEnd ? std::string("end of condition") : "'" + t.text + "'";
  }

  void Tokenize(std::string_view s) {
    size_t i = 0;
    while (i < s.size()) {
      const char c = s[i];
      if (c == ' ') {
        ++i;
      } else if (c == '(' || c == ')' || c == ',') {
        tokens_.push_back({c == '('   ? Token::kOpen
                           : c == ')' ? Token::kClose
                                      : Token::kComma,
                           std::string(1, c)});
        ++i;
      } else if (c == '\'') {
        size_t j = i + 1;
        while (j < s.size() && s[j] != '\'') {
          const char d = s[j];
          if (!(std::isalnum(static_cast<unsigned char>(d)) || d == ' ' || d == '.' || d == '_'))
            Fail(fmt::format("text literal holds {}", Shown(std::string_view(&s[j], 1))));
          ++j;
        }
        if (j >= s.size()) Fail("unbalanced quote");
        tokens_.push_back({Token::kText, std::string(s.substr(i, j + 1 - i))});
        i = j + 1;
      } else if (c == '=' || c == '<' || c == '>' || c == '!') {
        std::string op(1, c);
        if (i + 1 < s.size() && (s[i + 1] == '=' || (c == '<' && s[i + 1] == '>'))) op += s[i + 1];
        if (op == "!") Fail("'!' alone");
        tokens_.push_back({Token::kOperator, op});
        i += op.size();
      } else if (std::isdigit(static_cast<unsigned char>(c)) ||
                 (c == '-' && i + 1 < s.size() &&
                  std::isdigit(static_cast<unsigned char>(s[i + 1])))) {
        size_t j = i + 1;
        bool point = false;
        while (j < s.size() &&
               (std::isdigit(static_cast<unsigned char>(s[j])) || (s[j] == '.' && !point))) {
          point = point || s[j] == '.';
          ++j;
        }
        tokens_.push_back({Token::kNumber, std::string(s.substr(i, j - i))});
        i = j;
      } else if (s.substr(i, kAliasPrefix.size()) == kAliasPrefix ||
                 std::isalpha(static_cast<unsigned char>(c)) || c == '_') {
        size_t j = i;
        if (s.substr(i, kAliasPrefix.size()) == kAliasPrefix) j += kAliasPrefix.size();
        const size_t name_start = j;
        while (j < s.size() && (std::isalnum(static_cast<unsigned char>(s[j])) || s[j] == '_')) ++j;
        const std::string name = Upper(s.substr(name_start, j - name_start));
        const bool aliased = name_start != i;
        if (name.empty()) Fail("'{$ALIAS$}.' without a column");
        const bool column = std::find(kJournalColumns.begin(), kJournalColumns.end(), name) !=
                            kJournalColumns.end();
        if (column) {
          tokens_.push_back({Token::kColumn, std::string(s.substr(i, j - i))});
        } else if (!aliased && (name == "AND" || name == "OR" || name == "NOT" || name == "IS" ||
                                name == "NULL" || name == "IN" || name == "BETWEEN")) {
          tokens_.push_back({Token::kWord, name});
        } else {
          Fail(
              fmt::format("unknown word {} (a column of CTB_LANCAMENTO or one of AND, OR, NOT, "
                          "IS, NULL, IN, BETWEEN)",
                          Shown(s.substr(i, j - i))));
        }
        i = j;
      } else {
        Fail(fmt::format("character {} is not allowed", Shown(s.substr(i, 1))));
      }
    }
    tokens_.push_back({Token::kEnd, ""});
  }

  const Token& Peek() const { return tokens_[pos_]; }
  Token Next() { return tokens_[pos_ < tokens_.size() - 1 ? pos_++ : pos_]; }
  bool AcceptWord(const char* word) {
    if (Peek().kind == Token::kWord && Peek().text == word) {
      ++pos_;
      return true;
    }
    return false;
  }
  void Expect(Token::Kind kind, const char* what) {
    if (Peek().kind != kind) Fail(std::string("expected ") + what + ", found " + Describe(Peek()));
    ++pos_;
  }

  void Condition() {
    Term();
    while (AcceptWord("OR")) Term();
  }
  void Term() {
    Factor();
    while (AcceptWord("AND")) Factor();
  }
  void Factor() {
    if (++depth_ > 20) Fail("nested too deeply");
    if (AcceptWord("NOT")) {
      Factor();
    } else if (Peek().kind == Token::kOpen) {
      ++pos_;
      Condition();
      Expect(Token::kClose, "')'");
    } else {
      Comparison();
    }
    --depth_;
  }
  void Operand() {
    const Token::Kind k = Peek().kind;
    if (k != Token::kColumn && k != Token::kNumber && k != Token::kText)
      Fail("expected a column, number or text, found " + Describe(Peek()));
    ++pos_;
  }
  void Literal() {
    const Token::Kind k = Peek().kind;
    if (k != Token::kNumber && k != Token::kText)
      Fail("expected a number or text, found " + Describe(Peek()));
    ++pos_;
  }
  void Comparison() {
    Operand();
    if (Peek().kind == Token::kOperator) {
      ++pos_;
      Operand();
      return;
    }
    if (AcceptWord("IS")) {
      AcceptWord("NOT");
      if (!AcceptWord("NULL")) Fail("expected NULL after IS, found " + Describe(Peek()));
      return;
    }
    AcceptWord("NOT");
    if (AcceptWord("IN")) {
      Expect(Token::kOpen, "'('");
      Literal();
      while (Peek().kind == Token::kComma) {
        ++pos_;
        Literal();
      }
      Expect(Token::kClose, "')'");
      return;
    }
    if (AcceptWord("BETWEEN")) {
      Operand();
      if (!AcceptWord("AND")) Fail("expected AND in BETWEEN, found " + Describe(Peek()));
      Operand();
      return;
    }
    Fail("expected a comparison, found " + Describe(Peek()));
  }

  std::string option_;
  std::vector<Token> tokens_;
  size_t pos_ = 0;
  int depth_ = 0;
};

}  // namespace

std::string CheckedText(const std::string& option, std::string_view text, size_t max_length) {
  if (text.size() > max_length)
    throw UsageError(option, fmt::format("longer than {} bytes", max_length));
  if (!ValidUtf8(text)) throw UsageError(option, fmt::format("{} is not UTF-8 text", Shown(text)));
  for (char c : text)
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
      throw UsageError(option, fmt::format("{} holds a control character", Shown(text)));
  return std::string(text);
}

int32_t ParseInt(const std::string& option, std::string_view text, int64_t min, int64_t max) {
  CheckedText(option, text);
  std::string_view digits = text;
  if (!digits.empty() && digits[0] == '-') digits.remove_prefix(1);
  if (!AllDigits(digits) || digits.size() > 10)
    throw UsageError(option, fmt::format("{} is not a whole number", Shown(text)));
  const int64_t v = std::stoll(std::string(text));
  if (v < min || v > max)
    throw UsageError(option, fmt::format("{} is outside {} to {}", Shown(text), min, max));
  return static_cast<int32_t>(v);
}

std::string ParseAccount(const std::string& option, std::string_view text) {
  CheckedText(option, text);
  if (text.empty() || text.size() > 20)
    throw UsageError(option,
                     fmt::format("{} is not an account code (1 to 20 characters)", Shown(text)));
  for (char c : text)
    if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '.'))
      throw UsageError(
          option,
          fmt::format("{} is not an account code (letters, digits and '.' only)", Shown(text)));
  return std::string(text);
}

int32_t ParseMonth(const std::string& option, std::string_view text, bool allow_month_zero) {
  CheckedText(option, text);
  if (text.size() != 6 || !AllDigits(text))
    throw UsageError(option, fmt::format("{} is not a month (YYYYMM)", Shown(text)));
  const int32_t v = std::stoi(std::string(text));
  const int32_t year = v / 100, month = v % 100;
  if (year < 1900 || year > 2999 || month > 12 || (month == 0 && !allow_month_zero))
    throw UsageError(option, fmt::format("{} is not a month (YYYYMM)", Shown(text)));
  return v;
}

std::string ParseYear(const std::string& option, std::string_view text) {
  CheckedText(option, text);
  if (text.size() != 4 || !AllDigits(text) || text < "1900" || text > "2999")
    throw UsageError(option, fmt::format("{} is not a year (YYYY)", Shown(text)));
  return std::string(text);
}

std::string ParseDay(const std::string& option, std::string_view text) {
  CheckedText(option, text);
  if (text.empty() || text.size() > 2 || !AllDigits(text))
    throw UsageError(option, fmt::format("{} is not a day (1 to 31)", Shown(text)));
  const int d = std::stoi(std::string(text));
  if (d < 1 || d > 31)
    throw UsageError(option, fmt::format("{} is not a day (1 to 31)", Shown(text)));
  return fmt::format("{:02d}", d);
}

std::vector<int32_t> ParseNumberList(const std::string& option, std::string_view text) {
  CheckedText(option, text, 1000);
  std::vector<int32_t> items;
  size_t start = 0;
  while (true) {
    const size_t comma = text.find(',', start);
    const std::string item = Trim(text.substr(
        start, comma == std::string_view::npos ? std::string_view::npos : comma - start));
    if (!AllDigits(item) || item.size() > 9)
      throw UsageError(option, fmt::format("list item {} is not a number (use numbers separated "
                                           "by commas, such as 3,7)",
                                           Shown(item)));
    items.push_back(std::stoi(item));
    if (items.size() > 100) throw UsageError(option, "more than 100 items");
    if (comma == std::string_view::npos) break;
    start = comma + 1;
  }
  return items;
}

std::string JoinList(const std::vector<int32_t>& items) {
  std::string out;
  for (size_t i = 0; i < items.size(); ++i) out += (i ? "," : "") + std::to_string(items[i]);
  return out;
}

std::string ExclusionList(const std::string& option, std::string_view text) {
  if (text.empty()) return "";
  return "(" + JoinList(ParseNumberList(option, text)) + ")";
}

std::string ParseItemType(const std::string& option, std::string_view text) {
  CheckedText(option, text);
  if (text.size() != 1 || !std::isalnum(static_cast<unsigned char>(text[0])))
    throw UsageError(option,
                     fmt::format("{} is not an item type (one letter or digit)", Shown(text)));
  return std::string(text);
}

std::string ParseModality(const std::string& option, std::string_view text) {
  CheckedText(option, text);
  if (text == "SPED") return "SPED";
  if (text.size() != 1 || !std::isalnum(static_cast<unsigned char>(text[0])))
    throw UsageError(
        option, fmt::format("{} is not a modality (one letter or digit, or SPED)", Shown(text)));
  return std::string(text);
}

std::string ParseFilter(const std::string& option, std::string_view text) {
  CheckedText(option, text, kMaxFilterLength);
  if (text.find_first_not_of(' ') == std::string_view::npos)
    throw UsageError(option, "empty condition");
  FilterParser(option, text).Parse();
  return std::string(text);
}

}  // namespace kvc::cli
