// The fixed-width interface record on the tool's side: a builder of valid
// 133-character records (for the demo company) and the boundary check of a
// record read from a file, before anything of it reaches the data module.
#ifndef KVC_CLI_RECORD_H_
#define KVC_CLI_RECORD_H_

#include <cstdint>
#include <string>

namespace kvc::cli {

struct RecordFields {
  std::string division_code;     // 13-16
  std::string yymm;              // 33-36
  std::string day;               // 37-38
  std::string history;           // 42-73
  std::string account1;          // 74-93
  std::string account2;          // 94-113
  std::string standard_history;  // 114-117
  std::string side = " ";        // 118: "-" credits the first account field, " " or "+"
                                 // debits it
  int64_t cents = 0;             // 119-133
};

// The record of `fields`, each left-aligned in its width; unread positions
// hold blanks. REQUIRES: every field fits its width (ASCII).
std::string BuildRecord(const RecordFields& fields);

// `record` with every apostrophe (') of its complementary history (positions
// 42-73) replaced by the typographic apostrophe U+2019, and in `replaced` how
// many there were. The module writes the history into statement text between
// quotes, as it stands, so an ASCII apostrophe would end that text early and
// the rest of the history would be read as SQL; U+2019 cannot, it is one
// character (every later position stays where it was), and a name such as
// D'AVILA reads the same in the journal. A record that is not valid UTF-8,
// or too short, is returned as it is for CheckRecord to refuse.
std::string WithTypographicApostrophes(const std::string& record, size_t& replaced);

// Empty when `record` can be handed to the posting methods; otherwise a
// message naming the field and its positions. Checks what the module writes
// into statement text: year and month, day, the account fields (with a
// five-character division code in front when `code_in_account`), the
// division code, the standard history and the complementary history (no
// quote or control character), and the amount.
std::string CheckRecord(const std::string& record, bool code_in_account);

}  // namespace kvc::cli

#endif  // KVC_CLI_RECORD_H_
