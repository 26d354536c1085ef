// Tokeniser and recursive-descent translator of the client dataset filter
// dialect. The translation is written while parsing; no tree is kept.
#include "accounting/db/filter.h"

#include <cmath>
#include <cstdint>
#include <optional>
#include <utility>

#include "accounting/db/result_set.h"
#include "accounting/db/sql_format.h"

namespace kvc::db {
namespace {

// What the dataset's SQLite can take of a condition: its parser's stack
// holds some thirty levels of "NOT ((...))", and an expression at most a
// thousand levels of operators, which a flat chain of comparisons counts
// one by one. A filter beyond either is refused here, naming the place,
// rather than failing when the dataset is read.
constexpr int kMaxNesting = 20;
constexpr int kMaxComparisons = 500;

}  // namespace

std::string SqlIdentifier(std::string_view name) {
  std::string out;
  out.reserve(name.size() + 2);
  out += '"';
  for (char c : name) {
    if (c == '"') out += '"';
    out += c;
  }
  out += '"';
  return out;
}

namespace {

enum class Tok {
  kName,        // bare word: a field name or a keyword
  kQuotedName,  // [name] or "name": always a field name
  kText,        // 'quoted text', quotes undoubled
  kNumber,      // as written
  kOperator,    // = <> != < > <= >=
  kOpen,
  kClose,
  kComma,
  kEnd,
};

struct Token {
  Tok kind = Tok::kEnd;
  std::string text;   // name, text value, number or operator
  size_t offset = 0;  // byte offset in the filter text
  size_t length = 0;  // bytes of the token as written
};

bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f'; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsNameStart(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
         static_cast<unsigned char>(c) >= 0x80;
}
bool IsNamePart(char c) { return IsNameStart(c) || IsDigit(c); }

bool IsKeyword(const Token& t, std::string_view keyword) {
  return t.kind == Tok::kName && SameFieldName(t.text, keyword);
}

// An operand of a comparison: a field of the dataset or a literal.
struct Operand {
  enum Kind { kField, kText, kNumber } kind = kField;
  const FieldDef* field = nullptr;
  std::string text;  // text value, or the number as written
  size_t offset = 0;
};

class Translator {
 public:
  Translator(std::string_view text, const std::vector<FieldDef>& fields)
      : text_(text), fields_(fields) {}

  SqlFilter Run() {
    Tokenise();
    if (tokens_.front().kind == Tok::kEnd) return {};
    out_.where = Condition();
    if (Peek().kind != Tok::kEnd) {
      if (Peek().kind == Tok::kClose) Fail("unexpected ')'", Peek().offset);
      Fail("unexpected " + Describe(Peek()) + " after the end of a condition", Peek().offset);
    }
    return std::move(out_);
  }

 private:
  [[noreturn]] void Fail(const std::string& problem, size_t offset) const {
    // Positions count characters, not bytes: skip UTF-8 continuation bytes.
    size_t position = 1;
    for (size_t i = 0; i < offset && i < text_.size(); ++i)
      if ((static_cast<unsigned char>(text_[i]) & 0xC0) != 0x80) ++position;
    throw FilterError("filter: " + problem + " at position " + std::to_string(position) +
                      " in: " + std::string(text_));
  }

  std::string Describe(const Token& t) const {
    if (t.kind == Tok::kEnd) return "end of filter";
    return sql::QuotedAsIs(text_.substr(t.offset, t.length));
  }

  // ---- tokeniser ----------------------------------------------------------
  void Tokenise() {
    size_t i = 0;
    const size_t n = text_.size();
    while (true) {
      while (i < n && IsSpace(text_[i])) ++i;
      Token t;
      t.offset = i;
      if (i >= n) {
        t.kind = Tok::kEnd;
        tokens_.push_back(std::move(t));
        return;
      }
      char c = text_[i];
      if (c == '\'') {
        t.kind = Tok::kText;
        size_t j = i + 1;
        while (true) {
          if (j >= n) Fail("unclosed quote", i);
          if (text_[j] == '\'') {
            if (j + 1 < n && text_[j + 1] == '\'') {
              t.text += '\'';
              j += 2;
              continue;
            }
            ++j;
            break;
          }
          t.text += text_[j++];
        }
        i = j;
      } else if (c == '[' || c == '"') {
        const char close = c == '[' ? ']' : '"';
        t.kind = Tok::kQuotedName;
        size_t j = i + 1;
        while (j < n && text_[j] != close) t.text += text_[j++];
        if (j >= n) Fail(c == '[' ? "unclosed bracket" : "unclosed quote", i);
        if (t.text.empty()) Fail("empty field name", i);
        i = j + 1;
      } else if (IsDigit(c) || ((c == '-' || c == '.') && i + 1 < n &&
                                (IsDigit(text_[i + 1]) || (c == '-' && text_[i + 1] == '.' &&
                                                           i + 2 < n && IsDigit(text_[i + 2]))))) {
        t.kind = Tok::kNumber;
        size_t j = i;
        if (text_[j] == '-') ++j;
        while (j < n && IsDigit(text_[j])) ++j;
        if (j < n && text_[j] == '.') {
          ++j;
          if (j >= n || !IsDigit(text_[j])) Fail("malformed number", i);
          while (j < n && IsDigit(text_[j])) ++j;
        }
        if (j < n && IsNamePart(text_[j])) Fail("malformed number", i);
        t.text = std::string(text_.substr(i, j - i));
        i = j;
      } else if (IsNameStart(c)) {
        t.kind = Tok::kName;
        size_t j = i;
        while (j < n && IsNamePart(text_[j])) ++j;
        t.text = std::string(text_.substr(i, j - i));
        i = j;
      } else if (c == '=' || c == '<' || c == '>' || c == '!') {
        t.kind = Tok::kOperator;
        std::string_view two = text_.substr(i, 2);
        if (two == "<>" || two == "<=" || two == ">=" || two == "!=") {
          t.text = std::string(two);
        } else if (c == '!') {
          Fail("unexpected character '!'", i);
        } else {
          t.text = std::string(1, c);
        }
        i += t.text.size();
      } else if (c == '(' || c == ')' || c == ',') {
        t.kind = c == '(' ? Tok::kOpen : c == ')' ? Tok::kClose : Tok::kComma;
        t.text = std::string(1, c);
        ++i;
      } else {
        // Show a whole UTF-8 sequence, not a lone lead byte.
        size_t len = 1;
        while (i + len < n && (static_cast<unsigned char>(text_[i + len]) & 0xC0) == 0x80) ++len;
        Fail("unexpected character '" + std::string(text_.substr(i, len)) + "'", i);
      }
      t.length = i - t.offset;
      tokens_.push_back(std::move(t));
    }
  }

  // ---- parser -------------------------------------------------------------
  const Token& Peek() const { return tokens_[pos_]; }
  const Token& Take() { return tokens_[pos_ < tokens_.size() - 1 ? pos_++ : pos_]; }

  // Fails at the current token, which should have been `what`.
  [[noreturn]] void Expected(const std::string& what) const {
    const Token& t = Peek();
    if (t.kind == Tok::kEnd && pos_ > 0) {
      const Token& prev = tokens_[pos_ - 1];
      Fail("missing " + what + " after " + Describe(prev), prev.offset);
    }
    if (t.kind == Tok::kEnd) Fail("missing " + what, t.offset);
    Fail("expected " + what + " but found " + Describe(t), t.offset);
  }

  // A chain of ORs (of ANDs) is written flat, in one pair of parentheses:
  // nesting each link would make the depth grow with the chain's length.
  std::string Condition() {
    std::string sql = Term();
    bool chain = false;
    while (IsKeyword(Peek(), "or")) {
      Take();
      sql += " OR " + Term();
      chain = true;
    }
    return chain ? "(" + sql + ")" : sql;
  }

  std::string Term() {
    std::string sql = Factor();
    bool chain = false;
    while (IsKeyword(Peek(), "and")) {
      Take();
      sql += " AND " + Factor();
      chain = true;
    }
    return chain ? "(" + sql + ")" : sql;
  }

  // One level deeper for the NOT or the parenthesis at `offset`.
  void Deeper(size_t offset) {
    if (++depth_ > kMaxNesting)
      Fail("nested deeper than " + std::to_string(kMaxNesting) + " levels", offset);
  }

  std::string Factor() {
    const Token& t = Peek();
    if (IsKeyword(t, "not")) {
      Deeper(t.offset);
      Take();
      std::string sql = "NOT (" + Factor() + ")";
      --depth_;
      return sql;
    }
    if (t.kind == Tok::kOpen) {
      const size_t open = t.offset;
      Deeper(open);
      Take();
      std::string inner = Condition();
      --depth_;
      if (Peek().kind == Tok::kEnd) Fail("unclosed parenthesis", open);
      if (Peek().kind != Tok::kClose) Expected("')'");
      Take();
      return "(" + inner + ")";
    }
    return Predicate();
  }

  bool StartsOperand(const Token& t) const {
    if (t.kind == Tok::kQuotedName || t.kind == Tok::kText || t.kind == Tok::kNumber) return true;
    return t.kind == Tok::kName && !IsKeyword(t, "and") && !IsKeyword(t, "or") &&
           !IsKeyword(t, "not") && !IsKeyword(t, "is") && !IsKeyword(t, "in") &&
           !IsKeyword(t, "null");
  }

  Operand ReadOperand(const std::string& what) {
    const Token& t = Peek();
    if (!StartsOperand(t)) {
      if (IsKeyword(t, "null"))
        Fail("null can only be tested with IS NULL or IS NOT NULL", t.offset);
      Expected(what);
    }
    Take();
    Operand o;
    o.offset = t.offset;
    o.text = t.text;
    switch (t.kind) {
      case Tok::kText:
        o.kind = Operand::kText;
        break;
      case Tok::kNumber:
        o.kind = Operand::kNumber;
        break;
      default:
        o.kind = Operand::kField;
        o.field = FindField(t);
        break;
    }
    return o;
  }

  const FieldDef* FindField(const Token& t) const {
    for (const FieldDef& f : fields_)
      if (SameFieldName(f.name, t.text)) return &f;
    Fail("unknown field '" + t.text + "'", t.offset);
  }

  std::string Predicate() {
    if (++comparisons_ > kMaxComparisons)
      Fail("more than " + std::to_string(kMaxComparisons) + " comparisons", Peek().offset);
    Operand left = ReadOperand("a condition");
    const Token& t = Peek();

    if (IsKeyword(t, "is")) {
      if (left.kind != Operand::kField) Fail("IS NULL needs a field", left.offset);
      Take();
      bool negated = false;
      if (IsKeyword(Peek(), "not")) {
        Take();
        negated = true;
      }
      if (!IsKeyword(Peek(), "null")) Expected("NULL");
      Take();
      return SqlIdentifier(left.field->name) + (negated ? " IS NOT NULL" : " IS NULL");
    }

    if (IsKeyword(t, "in") || (IsKeyword(t, "not") && IsKeyword(tokens_[pos_ + 1], "in"))) {
      if (left.kind != Operand::kField) Fail("IN needs a field", left.offset);
      const bool negated = IsKeyword(t, "not");
      if (negated) Take();
      Take();
      if (Peek().kind != Tok::kOpen) Expected("'('");
      const size_t open = Peek().offset;
      Take();
      std::string sql = SqlIdentifier(left.field->name) + (negated ? " NOT IN (" : " IN (");
      while (true) {
        const Token& v = Peek();
        if (v.kind == Tok::kEnd) {
          if (tokens_[pos_ - 1].kind == Tok::kComma) Expected("a value");
          Fail("unclosed parenthesis", open);
        }
        if (v.kind != Tok::kText && v.kind != Tok::kNumber) Expected("a value");
        Take();
        Operand lit;
        lit.kind = v.kind == Tok::kText ? Operand::kText : Operand::kNumber;
        lit.text = v.text;
        lit.offset = v.offset;
        sql += Param(lit, left.field);
        if (Peek().kind == Tok::kComma) {
          Take();
          sql += ", ";
          continue;
        }
        if (Peek().kind == Tok::kClose) {
          Take();
          break;
        }
        if (Peek().kind == Tok::kEnd) Fail("unclosed parenthesis", open);
        Expected("',' or ')'");
      }
      return sql + ")";
    }

    if (t.kind != Tok::kOperator)
      Expected(left.kind == Operand::kField ? "a comparison, IS or IN" : "a comparison");
    const Token& op_token = Take();
    const std::string op = op_token.text == "!=" ? "<>" : op_token.text;
    Operand right = ReadOperand("a field or value");

    std::string lhs, rhs;
    if (left.kind == Operand::kField && right.kind == Operand::kField) {
      lhs = SqlIdentifier(left.field->name);
      rhs = SqlIdentifier(right.field->name);
    } else if (left.kind == Operand::kField) {
      lhs = SqlIdentifier(left.field->name);
      rhs = Param(right, left.field);
    } else if (right.kind == Operand::kField) {
      lhs = Param(left, right.field);
      rhs = SqlIdentifier(right.field->name);
    } else {
      lhs = Param(left, nullptr);
      rhs = Param(right, nullptr);
    }
    return lhs + " " + op + " " + rhs;
  }

  // Adds the literal as a parameter, in the type of `field` when there is one.
  std::string Param(const Operand& lit, const FieldDef* field) {
    out_.params.push_back(LiteralValue(lit, field));
    return "?";
  }

  Value NumberValue(const Operand& lit) const {
    int64_t i = 0;
    double d = 0;
    if (lit.text.find('.') == std::string::npos && sql::ParseInteger(lit.text, i)) return Value(i);
    if (sql::ParseDouble(lit.text, d)) return Value(d);
    Fail("malformed number", lit.offset);
  }

  Value LiteralValue(const Operand& lit, const FieldDef* field) const {
    if (field == nullptr) return lit.kind == Operand::kNumber ? NumberValue(lit) : Value(lit.text);
    switch (field->type) {
      case FieldType::kString:
        return Value(lit.text);
      case FieldType::kInteger:
      case FieldType::kFloat: {
        if (lit.kind == Operand::kNumber) return NumberValue(lit);
        int64_t i = 0;
        double d = 0;
        if (sql::ParseInteger(lit.text, i)) return Value(i);
        if (sql::ParseDouble(lit.text, d) && std::isfinite(d)) return Value(d);
        Fail("'" + lit.text + "' is not a number for field '" + field->name + "'", lit.offset);
      }
      case FieldType::kDateTime: {
        if (lit.kind == Operand::kText) {
          if (auto dt = DateTime::ParseIso(lit.text)) return Value(dt->ToIso());
        }
        Fail("'" + lit.text + "' is not a date and time for field '" + field->name + "'",
             lit.offset);
      }
    }
    return Value(lit.text);
  }

  std::string_view text_;
  const std::vector<FieldDef>& fields_;
  std::vector<Token> tokens_;
  size_t pos_ = 0;
  int depth_ = 0;        // NOTs and parentheses around the current token
  int comparisons_ = 0;  // predicates read so far
  SqlFilter out_;
};

}  // namespace

SqlFilter TranslateFilter(std::string_view text, const std::vector<FieldDef>& fields) {
  return Translator(text, fields).Run();
}

}  // namespace kvc::db
