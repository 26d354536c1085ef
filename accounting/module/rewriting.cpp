// The statement-rewriting step run before any command dataset opens. On
// servers other than SQL Server it only adapts the dialect; on SQL Server it
// writes the values of parameters that stand in a sub-query into the text, as
// /*NAME*/'value', and updates such values in place when the same text opens
// again.
#include <string>
#include <string_view>
#include <utility>

#include "accounting/db/sql_format.h"
#include "accounting/module/uddmContabilidadeBD.h"
#include "accounting/services/zorutils.h"

namespace kvc {
namespace {

constexpr char kSqlServer[] = "SQLSERVER";

char Upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

// Position of `needle` in `text` from `from`, ignoring ASCII case.
size_t FindIgnoreCase(std::string_view text, std::string_view needle, size_t from = 0) {
  if (needle.empty()) return from <= text.size() ? from : std::string::npos;
  for (size_t i = from; i + needle.size() <= text.size(); ++i) {
    size_t j = 0;
    while (j < needle.size() && Upper(text[i + j]) == Upper(needle[j])) ++j;
    if (j == needle.size()) return i;
  }
  return std::string::npos;
}

// Replaces every occurrence of `from` in `s` by `to`, ignoring case, left to
// right over the original text.
void ReplaceAllIgnoreCase(std::string& s, std::string_view from, std::string_view to) {
  const std::string_view text = s;
  std::string out;
  size_t last = 0;
  for (size_t pos = FindIgnoreCase(text, from); pos != std::string::npos;
       pos = FindIgnoreCase(text, from, last)) {
    out.append(text.substr(last, pos - last));
    out.append(to);
    last = pos + from.size();
  }
  out.append(text.substr(last));
  s = std::move(out);
}

// Removes leading and trailing blanks and control characters.
std::string Trim(std::string_view text) {
  size_t b = 0, e = text.size();
  while (b < e && static_cast<unsigned char>(text[b]) <= ' ') ++b;
  while (e > b && static_cast<unsigned char>(text[e - 1]) <= ' ') --e;
  return std::string(text.substr(b, e - b));
}

}  // namespace

// Steps 1 to 7 of the rewriting; the numbers appear in the body.
void TddmContabilidadeBD::sdsPadraoBeforeOpen(db::SQLDataSet& dataset) {
  const std::string tipo_banco = aplicacao_ ? aplicacao_->TipoBanco : std::string();  // 1
  const int32_t revenda = aplicacao_ ? aplicacao_->RevendaAplicacao : 0;
  const std::string original = dataset.CommandText();
  std::string texto = original;

  if (tipo_banco != kSqlServer) {  // 2
    dataset.ReplaceCommandText(CompatBanco(texto, tipo_banco, revenda, false));
    return;
  }

  ReplaceAllIgnoreCase(texto, "\n", " ");  // 3
  texto += " ";
  bool inlined = false;

  // 4. T is the text 6 characters after the start of the first SELECT (from
  // the 6th character when there is none); a second SELECT must stand past
  // T's first character.
  size_t first = FindIgnoreCase(texto, "SELECT");
  size_t t_start = first == std::string::npos ? 5 : first + 6;
  std::string_view t = t_start < texto.size() ? std::string_view(texto).substr(t_start) : "";
  size_t second = FindIgnoreCase(t, "SELECT");
  if (second != std::string::npos && second > 0) {
    for (const db::Param& param : dataset.GetParams()) {  // 5
      const std::string valor = param.AsString();
      const std::string entre_aspas = sql::QuotedAsIs(valor);  // 5.1: not escaped
      if (valor.empty()) continue;                             // 5.2
      inlined = true;                                          // 5.3
      const std::string marker = "/*" + param.name + "*/";
      if (texto.find(':') != std::string::npos) {  // 5.4
        texto += " ";
        ReplaceAllIgnoreCase(texto, ":" + param.name + " ", marker + entre_aspas + " ");
        ReplaceAllIgnoreCase(texto, ":" + param.name + ")", marker + entre_aspas + ")");
      } else {  // 5.5
        size_t at = FindIgnoreCase(texto, marker);
        // A text without colons that lacks this parameter's marker has nothing
        // of it to update.
        if (at == std::string::npos) continue;
        const std::string resto = texto.substr(at);
        size_t blank = resto.find(' ');
        if (blank != std::string::npos) {
          std::string segment = resto.substr(0, blank + 1);  // G
          if (segment.find('\'') != std::string::npos) {
            size_t open = resto.find('\'');
            size_t close = resto.find('\'', open + 1);
            segment = resto.substr(0, close == std::string::npos ? resto.size() : close + 1);
          }
          ReplaceAllIgnoreCase(texto, segment, marker + entre_aspas + " ");
        } else {
          ReplaceAllIgnoreCase(texto, resto, marker + entre_aspas);
        }
      }
    }
  }

  if (inlined) dataset.GetParams().Clear();  // 6

  if (dataset.GetParams().Empty() || inlined)  // 7
    dataset.ReplaceCommandText(Trim(CompatBanco(texto, tipo_banco, revenda, false)));
  else
    dataset.ReplaceCommandText(original);
}

}  // namespace kvc
