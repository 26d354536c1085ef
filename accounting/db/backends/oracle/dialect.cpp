// The Oracle dialect: TO_DATE literals with an explicit format, SYSDATE from
// DUAL.
#include <fmt/format.h>

#include "accounting/db/dialect.h"

namespace kvc::db {
namespace {

class Oracle final : public Dialect {
 public:
  ServerKind Kind() const override { return ServerKind::kOracle; }
  std::string_view TipoBanco() const override { return "ORACLE"; }
  std::string_view SchemaName() const override { return "oracle"; }
  std::string DateLiteral(const DateTime& d) const override {
    return fmt::format("TO_DATE('{:02}/{:02}/{:04}', 'DD/MM/YYYY')", d.day, d.month, d.year);
  }
  std::string DateTimeLiteral(const DateTime& d) const override {
    return fmt::format("TO_DATE('{:02}/{:02}/{:04} {:02}:{:02}:{:02}', 'DD/MM/YYYY HH24:MI:SS')",
                       d.day, d.month, d.year, d.hour, d.minute, d.second);
  }
  std::string ServerTimeQuery() const override { return "select sysdate AGORA from dual"; }
  std::string DummyFrom() const override { return " from dual"; }
};

}  // namespace

const Dialect& OracleDialect() {
  static const Oracle kDialect;
  return kDialect;
}

}  // namespace kvc::db
