// The records of a fixed-width posting file, checked and read in passes so
// that a posting holds one record at a time whatever the file's size.
#ifndef KVC_CLI_RECORD_FILE_H_
#define KVC_CLI_RECORD_FILE_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "accounting/entries/registro_interface.h"
#include "cli/commands.h"

namespace kvc::cli {

// A record of the file that passed the boundary check, read once: its
// fields, its two account fields as the posting method reads them, and its
// debit and credit accounts.
struct NumberedRecord {
  size_t line;
  std::string text;
  RegistroInterface fields;
  std::string first, second;  // the account fields' accounts
  std::string debit, credit;
  std::string debit_code, credit_code;  // the division code of each side's entry
};

// `text` read as the posting method reads it. GravaLancamentoSAP takes plain
// accounts and reports the first field as the debit; GravaLancamento's side
// mark "-" credits the first account field.
NumberedRecord ReadRecord(size_t line, const std::string& text, bool code_in_account, bool erp);

// The records of a file, one at a time, in as many passes as the posting
// needs (the checks, then the posting), so that the posting holds one record
// whatever the file's size: every non-empty line, a trailing carriage return
// removed and the apostrophes of the history made typographic.
class RecordFile {
 public:
  // Opens `file` and reads it once: every bad record is reported together
  // (FileError), as is a file with none. The lines whose apostrophes were
  // replaced are counted, the first of them kept for the announcement.
  RecordFile(std::string file, bool code_in_account, bool erp);

  size_t Records() const { return records_; }

  // Calls `visit` with each record, read again. The file was checked when it
  // was opened; should it read differently now (written to meanwhile), this
  // throws std::runtime_error, at the latest once every record was visited:
  // the caller rolls back what it did with them.
  void ForEach(const std::function<void(const NumberedRecord&)>& visit);

  // Announces, --quiet or not, the lines whose apostrophes were written as
  // U+2019: the journal does not hold the bytes of the file.
  void AnnounceApostrophes() const;

 private:
  // What a pass read: its lines, blank ones included, and a digest of
  // their bytes (FNV-1a), to tell whether two passes read the same.
  struct Pass {
    size_t lines = 0;
    uint64_t digest = 14695981039346656037ull;
  };
  using Visit = std::function<void(size_t line, const std::string& text, size_t apostrophes)>;

  // Calls `visit(line number, record text, apostrophes replaced)` for each
  // non-empty line.
  Pass Read(const Visit& visit);
  [[noreturn]] void Changed() const;

  static constexpr size_t kApostrophesShown = 20;
  std::string file_;
  InputFile input_;
  bool code_in_account_, erp_;
  size_t records_ = 0;
  uint64_t checked_ = 0;  // the digest of the checking pass
  std::vector<size_t> apostrophes_;
  size_t apostrophe_lines_ = 0;
};

}  // namespace kvc::cli

#endif  // KVC_CLI_RECORD_FILE_H_
