#include "cli/record_file.h"

#include <iostream>
#include <stdexcept>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "cli/record.h"

namespace kvc::cli {

// `text` read as the posting method reads it. GravaLancamentoSAP takes plain
// accounts and reports the first field as the debit; GravaLancamento's side
// mark "-" credits the first account field.
NumberedRecord ReadRecord(size_t line, const std::string& text, bool code_in_account, bool erp) {
  NumberedRecord r{line, text, LeRegistro(text), "", "", "", "", "", ""};
  const std::string& code = r.fields.codigo_divisao;
  const ContaDivisao first = LeContaDivisao(r.fields.primeiro_campo_conta, code_in_account, code);
  const ContaDivisao second = LeContaDivisao(r.fields.segundo_campo_conta, code_in_account, code);
  r.first = first.conta;
  r.second = second.conta;
  const bool first_credited = !erp && r.fields.marca_lado == "-";
  r.debit = first_credited ? r.second : r.first;
  r.credit = first_credited ? r.first : r.second;
  r.debit_code = (first_credited ? second : first).codigo_divisao;
  r.credit_code = (first_credited ? first : second).codigo_divisao;
  return r;
}

RecordFile::RecordFile(std::string file, bool code_in_account, bool erp)
    : file_(std::move(file)), input_(file_), code_in_account_(code_in_account), erp_(erp) {
  FileProblems problems(file_);
  const Pass pass = Read([&](size_t n, const std::string& line, size_t replaced) {
    if (replaced && apostrophes_.size() < kApostrophesShown) apostrophes_.push_back(n);
    if (replaced) ++apostrophe_lines_;
    const std::string problem = CheckRecord(line, code_in_account_);
    if (!problem.empty())
      problems.Add(n, problem);
    else
      ++records_;
  });
  checked_ = pass.digest;
  problems.RaiseIfAny(problems.size() > 1 ? "nothing of the file was posted" : "");
  if (records_ == 0) throw FileError(file_, pass.lines ? pass.lines : 1, "no records");
}

void RecordFile::ForEach(const std::function<void(const NumberedRecord&)>& visit) {
  const Pass pass = Read([&](size_t n, const std::string& line, size_t) {
    if (!CheckRecord(line, code_in_account_).empty()) Changed();
    visit(ReadRecord(n, line, code_in_account_, erp_));
  });
  if (pass.digest != checked_) Changed();
}

void RecordFile::AnnounceApostrophes() const {
  if (apostrophes_.empty()) return;
  std::string lines = fmt::format("{}", fmt::join(apostrophes_, ", "));
  if (apostrophe_lines_ > apostrophes_.size())
    lines += fmt::format(" and {} more", apostrophe_lines_ - apostrophes_.size());
  std::cerr << fmt::format(
      "kvctb: {}: the apostrophes of the complementary history on line{} {} are written as "
      "\u2019 (U+2019): the module writes that text between quotes, which an apostrophe would "
      "end\n",
      file_, apostrophe_lines_ > 1 ? "s" : "", lines);
}

RecordFile::Pass RecordFile::Read(const Visit& visit) {
  constexpr uint64_t kPrime = 1099511628211ull;
  std::istream& in = input_.Rewound();
  std::string line;
  Pass pass;
  while (std::getline(in, line)) {
    ++pass.lines;
    for (const char c : line) pass.digest = (pass.digest ^ static_cast<uint8_t>(c)) * kPrime;
    pass.digest = (pass.digest ^ '\n') * kPrime;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty()) continue;
    size_t replaced = 0;
    line = WithTypographicApostrophes(line, replaced);
    visit(pass.lines, line, replaced);
  }
  input_.CheckRead();
  return pass;
}

void RecordFile::Changed() const {
  throw std::runtime_error(
      fmt::format("'{}' changed while it was being posted; nothing of the file was posted", file_));
}

}  // namespace kvc::cli
