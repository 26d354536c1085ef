// The Firebird dialect: ISO date literals, CURRENT_TIMESTAMP from the
// one-row system table, and trimming of padded text.
#include "accounting/db/dialect.h"

namespace kvc::db {
namespace {

class Firebird final : public Dialect {
 public:
  ServerKind Kind() const override { return ServerKind::kFirebird; }
  std::string_view TipoBanco() const override { return "FIREBIRD"; }
  std::string_view SchemaName() const override { return "firebird"; }
  std::string DateLiteral(const DateTime& d) const override { return IsoDateLiteral(d); }
  std::string DateTimeLiteral(const DateTime& d) const override { return IsoDateTimeLiteral(d); }
  std::string ServerTimeQuery() const override {
    return "select current_timestamp AGORA from rdb$database";
  }
  std::string DummyFrom() const override { return " from rdb$database"; }
  // Statements of the common dialect run unchanged.
  std::string Adapt(std::string text) const override { return text; }
  // Fixed-width text and text literals come back padded with blanks.
  bool TrimsReadText() const override { return true; }
};

}  // namespace

const Dialect& FirebirdDialect() {
  static const Firebird kDialect;
  return kDialect;
}

}  // namespace kvc::db
