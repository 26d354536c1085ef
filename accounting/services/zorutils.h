// The suite's utility operations that the module uses: dialect adaptation of
// a statement, date literals for the server in use, "in" lists split to a
// server's limit, and the copy of an opened query into an in-memory table.
#ifndef KVC_SERVICES_ZORUTILS_H_
#define KVC_SERVICES_ZORUTILS_H_

#include <cstdint>
#include <memory>
#include <string>

#include "accounting/db/client_dataset.h"
#include "accounting/db/sql_dataset.h"
#include "accounting/db/value.h"

namespace kvc {

// Adapts `texto` to the server named by `tipo_banco` through that server's
// dialect object; an unknown name leaves the text unchanged. `revenda` and
// `flag` are accepted for the suite's signature and do not change the result
// (every call of the module passes false).
std::string CompatBanco(const std::string& texto, const std::string& tipo_banco, int32_t revenda,
                        bool flag);

// A date literal for the server named by `tipo_banco` ("'2024-01-31'", or
// the server's own form). An unknown name gives the ISO form in quotes.
std::string DataPSql(const DateTime& data, const std::string& tipo_banco);
// A date-and-time literal for the server named by `tipo_banco`.
std::string DataHoraPSql(const DateTime& data_hora, const std::string& tipo_banco);

// Builds "(" campo " " operador " (" values ")" ")" from the comma-separated
// `lista`. When `lista` holds more than `maximo` values (maximo > 0), the
// values are split into groups of at most `maximo`, each written as
// campo operador (group), joined by " and " for a negative operator ("not
// in") and " or " otherwise, all inside one pair of parentheses. `tipo` 0
// writes the values as they stand; 1 quotes each one (quotes inside doubled).
// Blanks around values are dropped and empty values skipped; an empty list
// gives empty text.
std::string AjustaInSelect(const std::string& campo, const std::string& lista,
                           const std::string& operador, int32_t tipo, int32_t maximo);

// Copies every row of an opened command dataset (from its first row) into a
// new in-memory dataset with the same fields, which the caller owns. The
// dataset's position is left at its end.
std::unique_ptr<db::ClientDataSet> SQLDatasetToClientDataSet(db::SQLDataSet& dataset);

}  // namespace kvc

#endif  // KVC_SERVICES_ZORUTILS_H_
