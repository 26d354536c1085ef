// Taking the bindable literals out of a statement's text: a single scan that
// copies everything it does not take out, tracking parentheses and the clause
// each level is in.
#include "accounting/db/statement_shape.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>

#include "accounting/db/result_set.h"

namespace kvc::db {
namespace {

// Character classes, ASCII only (and every byte of a multibyte character as
// a letter), whatever the locale.
enum : unsigned char { kStart = 1, kRest = 2, kDigit = 4, kSpace = 8, kPlain = 16 };
constexpr std::array<unsigned char, 256> kClasses = [] {
  std::array<unsigned char, 256> t{};
  for (int c = 'a'; c <= 'z'; ++c) t[c] = t[c - 'a' + 'A'] = kStart | kRest;
  for (int c = 0x80; c < 0x100; ++c) t[c] = kStart | kRest;
  t['_'] = kStart | kRest;
  t['$'] = kRest;
  for (int c = '0'; c <= '9'; ++c) t[c] = kRest | kDigit;
  for (char c : {' ', '\t', '\n', '\r', '\v', '\f'}) t[static_cast<unsigned char>(c)] = kSpace;
  // Plain: copied as they are, with nothing to look at (blanks, commas,
  // operators); everything that can start a token the scanner cares about
  // is not.
  for (int c = 1; c < 0x80; ++c)
    if ((t[c] & (kStart | kRest)) == 0 &&
        std::string_view("'\"-/:;?[`().").find(static_cast<char>(c)) == std::string_view::npos)
      t[c] |= kPlain;
  return t;
}();
bool Has(char c, unsigned char cls) { return (kClasses[static_cast<unsigned char>(c)] & cls) != 0; }
bool IsIdentifierStart(char c) { return Has(c, kStart); }
bool IsIdentifierChar(char c) { return Has(c, kRest); }
bool IsDigit(char c) { return Has(c, kDigit); }
bool IsSpace(char c) { return Has(c, kSpace); }

// The clause a level of parentheses is in, as far as literals care.
enum class Clause { kOther, kSelectList, kOrderOrGroup };

struct Level {
  Clause clause = Clause::kOther;
  bool keeps = false;  // the level or one around it keeps its literals
};

class Shaper {
 public:
  Shaper(std::string_view sql, bool typed_parameters)
      : sql_(sql), typed_parameters_(typed_parameters) {
    shape_.text.reserve(sql.size());
    shape_.slots.reserve(16);
    levels_.reserve(8);
  }

  std::optional<StatementShape> Run() {
    if (!StartsWithQueryOrChange()) return std::nullopt;
    levels_.push_back(Level{});
    while (i_ < sql_.size()) {
      const char c = sql_[i_];
      if (c == '\'') {
        if (!Text()) return std::nullopt;
      } else if (c == '"') {
        if (!CopyQuoted('"')) return std::nullopt;
      } else if (c == '-' && Next() == '-') {
        size_t end = sql_.find('\n', i_);
        Copy(end == std::string_view::npos ? sql_.size() - i_ : end - i_);
      } else if (c == '/' && Next() == '*') {
        size_t end = sql_.find("*/", i_ + 2);
        if (end == std::string_view::npos) return std::nullopt;
        Copy(end + 2 - i_);
      } else if (c == ':' && Next() == ':') {
        Copy(2);
      } else if (c == ':' && IsIdentifierStart(Next())) {
        size_t end = i_ + 1;
        while (end < sql_.size() && IsIdentifierChar(sql_[end])) ++end;
        ShapeSlot& slot = shape_.slots.emplace_back();
        slot.kind = ShapeSlot::Kind::kPlaceholder;
        slot.text = std::string(sql_.substr(i_ + 1, end - i_ - 1));
        PutSlotMark(end);
        last_word_ = {};
      } else if (c == ';' || c == '?' || c == '[' || c == '`') {
        return std::nullopt;
      } else if (c == '(') {
        Level inner;
        inner.keeps = Keeps() || SameFieldName(last_word_, "cast");
        levels_.push_back(inner);
        Copy(1);
        last_word_ = {};
      } else if (c == ')') {
        if (levels_.size() < 2) return std::nullopt;
        levels_.pop_back();
        Copy(1);
        last_word_ = {};
      } else if (IsDigit(c) || (c == '.' && IsDigit(Next()))) {
        if (i_ > 0 && (IsIdentifierChar(sql_[i_ - 1]) || sql_[i_ - 1] == '.')) return std::nullopt;
        if (!Number()) return std::nullopt;
      } else if (IsIdentifierStart(c)) {
        size_t end = i_;
        while (end < sql_.size() && IsIdentifierChar(sql_[end])) ++end;
        // A literal with a prefix (X'..', N'..') is not taken apart.
        if (end < sql_.size() && sql_[end] == '\'') return std::nullopt;
        Word(sql_.substr(i_, end - i_));
        Copy(end - i_);
      } else {
        // A run of plain characters; anything but blanks ends a word.
        size_t end = i_ + 1;
        while (end < sql_.size() && Has(sql_[end], kPlain)) ++end;
        for (size_t k = i_; k < end; ++k)
          if (!IsSpace(sql_[k])) last_word_ = {};
        Copy(end - i_);
      }
    }
    if (levels_.size() != 1) return std::nullopt;
    shape_.text.append(sql_.substr(copied_));
    return std::move(shape_);
  }

 private:
  char Next() const { return i_ + 1 < sql_.size() ? sql_[i_ + 1] : '\0'; }
  // Text is copied lazily: Copy only moves on, and the stretch since the
  // last slot goes into the shape when the next slot (or the end) comes.
  void Copy(size_t n) { i_ += n; }
  void PutSlotMark(size_t resume) {
    shape_.text.append(sql_.substr(copied_, i_ - copied_));
    shape_.text += '?';
    i_ = copied_ = resume;
  }
  bool Keeps() const {
    const Level& level = levels_.back();
    return level.keeps || level.clause != Clause::kOther;
  }

  bool StartsWithQueryOrChange() const {
    size_t start = 0;
    while (start < sql_.size() && (IsSpace(sql_[start]) || sql_[start] == '(')) ++start;
    size_t end = start;
    while (end < sql_.size() && IsIdentifierChar(sql_[end])) ++end;
    std::string_view first = sql_.substr(start, end - start);
    return SameFieldName(first, "select") || SameFieldName(first, "insert") ||
           SameFieldName(first, "update") || SameFieldName(first, "delete") ||
           SameFieldName(first, "with");
  }

  // A keyword moves its level into or out of the clauses that keep literals.
  // Most words are column and table names: the length and the first letter
  // rule out nearly all of them before any keyword is compared.
  void Word(std::string_view word) {
    if (MayBeClauseKeyword(word)) {
      Clause& clause = levels_.back().clause;
      if (SameFieldName(word, "select")) {
        clause = Clause::kSelectList;
      } else if (SameFieldName(word, "by") &&
                 (SameFieldName(last_word_, "order") || SameFieldName(last_word_, "group"))) {
        clause = Clause::kOrderOrGroup;
      } else if (SameFieldName(word, "from") || SameFieldName(word, "where") ||
                 SameFieldName(word, "having") || SameFieldName(word, "limit") ||
                 SameFieldName(word, "offset") || SameFieldName(word, "union") ||
                 SameFieldName(word, "except") || SameFieldName(word, "intersect") ||
                 SameFieldName(word, "values") || SameFieldName(word, "set") ||
                 SameFieldName(word, "on")) {
        // "from" ends a select list; the others can only follow one.
        if (!(SameFieldName(word, "from") && clause == Clause::kOrderOrGroup))
          clause = Clause::kOther;
      }
    }
    last_word_ = word;
  }

  // False for every word that is none of the keywords Word looks for (by, on,
  // set, from, limit, union, where, except, having, offset, select, values,
  // intersect); true may still be another word.
  static bool MayBeClauseKeyword(std::string_view word) {
    if (word.size() < 2 || word.size() > 9 || word.size() == 7 || word.size() == 8) return false;
    switch (word[0] | 0x20) {
      case 'b':
      case 'e':
      case 'f':
      case 'h':
      case 'i':
      case 'l':
      case 'o':
      case 's':
      case 'u':
      case 'v':
      case 'w':
        return true;
      default:
        return false;
    }
  }

  // '...' with '' standing for a quote.
  bool Text() {
    std::string value;
    size_t j = i_ + 1;
    for (;;) {
      if (j >= sql_.size()) return false;
      if (sql_[j] == '\'') {
        if (j + 1 < sql_.size() && sql_[j + 1] == '\'') {
          value += '\'';
          j += 2;
          continue;
        }
        break;
      }
      value += sql_[j++];
    }
    ++j;  // the closing quote
    const bool kept_for_type =
        !Keeps() && typed_parameters_ &&
        (NextToOperator(i_, j, "|") || value.empty() || LooksLikeADate(value));
    shape_.kept_for_type = shape_.kept_for_type || kept_for_type;
    if (Keeps() || kept_for_type) {
      Copy(j - i_);
    } else {
      ShapeSlot& slot = shape_.slots.emplace_back();
      slot.kind = ShapeSlot::Kind::kText;
      slot.text = std::move(value);
      PutSlotMark(j);
    }
    last_word_ = {};
    return true;
  }

  bool CopyQuoted(char quote) {
    size_t end = sql_.find(quote, i_ + 1);
    if (end == std::string_view::npos) return false;
    Copy(end + 1 - i_);
    last_word_ = {};
    return true;
  }

  // Digits, an optional fraction and an optional exponent; a number run into
  // a letter (0x1F, 12abc) is not taken apart.
  bool Number() {
    size_t j = i_;
    bool real = false;
    while (j < sql_.size() && IsDigit(sql_[j])) ++j;
    if (j < sql_.size() && sql_[j] == '.') {
      real = true;
      ++j;
      while (j < sql_.size() && IsDigit(sql_[j])) ++j;
    }
    if (j < sql_.size() && (sql_[j] == 'e' || sql_[j] == 'E')) {
      size_t k = j + 1;
      if (k < sql_.size() && (sql_[k] == '+' || sql_[k] == '-')) ++k;
      if (k >= sql_.size() || !IsDigit(sql_[k])) return false;
      while (k < sql_.size() && IsDigit(sql_[k])) ++k;
      j = k;
      real = true;
    }
    if (j < sql_.size() && (IsIdentifierChar(sql_[j]) || sql_[j] == '.')) return false;
    const std::string_view number = sql_.substr(i_, j - i_);
    last_word_ = {};
    const bool kept_for_type = !Keeps() && KeepsNumber(number, real, j);
    shape_.kept_for_type = shape_.kept_for_type || kept_for_type;
    if (Keeps() || kept_for_type) {
      Copy(j - i_);
      return true;
    }
    ShapeSlot slot;
    const char* first = number.data();
    const char* last = number.data() + number.size();
    if (real) {
      slot.kind = ShapeSlot::Kind::kReal;
      auto [end, error] = std::from_chars(first, last, slot.real);
      if (error != std::errc() || end != last) return false;
    } else {
      slot.kind = ShapeSlot::Kind::kInteger;
      auto [end, error] = std::from_chars(first, last, slot.integer);
      // Beyond 64 bits the server reads the number as a double, and beyond
      // 32 a typed parameter may be too narrow: keep it.
      const bool wide = typed_parameters_ && slot.integer > INT32_MAX;  // no sign: never below
      shape_.kept_for_type = shape_.kept_for_type || wide;
      if (error != std::errc() || end != last || wide) {
        Copy(j - i_);
        return true;
      }
    }
    shape_.slots.push_back(std::move(slot));
    PutSlotMark(j);
    return true;
  }

  // Whether the literal sql_[begin, end) stands next to an operator in
  // `operators` (blanks between them aside).
  bool NextToOperator(size_t begin, size_t end, std::string_view operators) const {
    size_t before = begin;
    while (before > 0 && IsSpace(sql_[before - 1])) --before;
    size_t after = end;
    while (after < sql_.size() && IsSpace(sql_[after])) ++after;
    return (before > 0 && operators.find(sql_[before - 1]) != std::string_view::npos) ||
           (after < sql_.size() && operators.find(sql_[after]) != std::string_view::npos);
  }

  // A text a date or time column's parameter would read its own way (the
  // client library parses the text itself): "YYYY-MM-DD" and what follows.
  static bool LooksLikeADate(std::string_view text) {
    return text.size() >= 10 && IsDigit(text[0]) && IsDigit(text[1]) && IsDigit(text[2]) &&
           IsDigit(text[3]) && text[4] == '-' && IsDigit(text[5]) && IsDigit(text[6]) &&
           text[7] == '-' && IsDigit(text[8]) && IsDigit(text[9]);
  }

  // A number that a typed parameter could not stand for (see the header).
  bool KeepsNumber(std::string_view number, bool real, size_t end) const {
    if (!typed_parameters_) return false;
    if (NextToOperator(i_, end, "+-*/|")) return true;
    if (real) {
      const size_t point = number.find('.');
      return number.find_first_of("eE") != std::string_view::npos ||
             (point != std::string_view::npos && number.size() - point - 1 > 2);
    }
    return false;
  }

  std::string_view sql_;
  bool typed_parameters_ = false;
  size_t i_ = 0;
  size_t copied_ = 0;  // sql_ up to here is in shape_.text
  StatementShape shape_;
  std::vector<Level> levels_;
  std::string_view last_word_;
};

}  // namespace

std::string StatementShape::Key() const {
  std::string key;
  WriteKey(key);
  return key;
}

void StatementShape::WriteKey(std::string& key) const {
  key.assign(text);
  key += '\x1f';
  for (const ShapeSlot& slot : slots)
    if (slot.kind != ShapeSlot::Kind::kPlaceholder) key += static_cast<char>(slot.kind);
}

bool StatementShape::OnlyPlaceholders() const {
  return std::all_of(slots.begin(), slots.end(), [](const ShapeSlot& slot) {
    return slot.kind == ShapeSlot::Kind::kPlaceholder;
  });
}

std::optional<StatementShape> ShapeStatement(std::string_view sql, bool typed_parameters) {
  return Shaper(sql, typed_parameters).Run();
}

}  // namespace kvc::db
