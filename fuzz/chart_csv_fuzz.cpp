// The chart CSV of kvctb chart-import (ParseChart, ChartCsv and
// CheckTree, cli/chart.cpp). The input is the file's text.
//
// Properties:
// - ParseChart reads the file or throws FileError, nothing else; every
//   line it reads has a valid account code (and parent, when there is one),
//   level A or S, a division level of 0 to 99 or none, a split mark of S, N
//   or none, and a description of at most 100 bytes;
// - the chart written back by ChartCsv (what chart-export prints) reads back
//   the same;
// - CheckTree accepts the chart or throws FileError; a chart it accepts has
//   distinct codes, known parents and no cycle, and is refused when one of
//   its codes is already in the chart.
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "cli/chart.h"
#include "cli/commands.h"
#include "cli/validate.h"
#include "fuzz/fuzz_check.h"

namespace {

using kvc::cli::ChartLine;
using kvc::cli::FileError;

bool ValidAccount(const std::string& code) {
  try {
    return kvc::cli::ParseAccount("CONTA", code) == code;
  } catch (const kvc::cli::UsageError&) {
    return false;
  }
}

bool Same(const ChartLine& a, const ChartLine& b) {
  return a.conta == b.conta && a.superiora == b.superiora && a.nivel == b.nivel &&
         a.descricao == b.descricao && a.dividido == b.dividido &&
         a.nivel_divisao == b.nivel_divisao;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::vector<ChartLine> chart;
  try {
    chart = kvc::cli::ParseChart("chart.csv", text);
  } catch (const FileError&) {
    return 0;
  }

  const std::string first_line = text.substr(0, text.find('\n'));
  const bool with_description = first_line.find("DES_CONTA") != std::string::npos;
  for (const ChartLine& c : chart) {
    FUZZ_CHECK(ValidAccount(c.conta));
    FUZZ_CHECK(c.superiora.empty() || ValidAccount(c.superiora));
    FUZZ_CHECK(c.nivel == "A" || c.nivel == "S");
    FUZZ_CHECK(!c.nivel_divisao || (*c.nivel_divisao >= 0 && *c.nivel_divisao <= 99));
    FUZZ_CHECK(c.dividido.empty() || c.dividido == "S" || c.dividido == "N");
    FUZZ_CHECK(c.descricao.size() <= 100);
    FUZZ_CHECK(with_description || c.descricao.empty());
  }

  const std::string csv = kvc::cli::ChartCsv(chart);
  const std::vector<ChartLine> again = kvc::cli::ParseChart("again.csv", csv);
  FUZZ_CHECK_MSG(again.size() == chart.size(), csv);
  for (size_t i = 0; i < chart.size(); ++i) FUZZ_CHECK_MSG(Same(chart[i], again[i]), csv);

  try {
    kvc::cli::CheckTree("chart.csv", chart, {});
  } catch (const FileError&) {
    return 0;
  }
  std::map<std::string, std::string> parent;
  for (const ChartLine& c : chart) FUZZ_CHECK(parent.emplace(c.conta, c.superiora).second);
  for (const ChartLine& c : chart) {
    FUZZ_CHECK(c.superiora.empty() || parent.count(c.superiora));
    size_t steps = 0;
    for (std::string p = c.superiora; !p.empty(); p = parent.at(p))
      FUZZ_CHECK_MSG(++steps <= chart.size(), "cycle through " + c.conta);
  }
  if (!chart.empty()) {
    bool refused = false;
    try {
      kvc::cli::CheckTree("chart.csv", chart, {chart.back().conta});
    } catch (const FileError&) {
      refused = true;
    }
    FUZZ_CHECK(refused);
  }
  return 0;
}
