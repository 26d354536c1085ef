// The error log of the roll-up and the annual closing: one row for each write
// that failed, the run going on. Its fields are defined here once, for the
// module that writes the rows and for the hosts that read them.
#ifndef KVC_MODULE_LOG_ERROS_H_
#define KVC_MODULE_LOG_ERROS_H_

#include <array>
#include <vector>

#include "accounting/db/client_dataset.h"

namespace kvc {

// When the write failed (a date-time), the module's message, the statement
// that failed and the server's own message, in this order.
inline constexpr char kErroData[] = "DTA_ERRO";
inline constexpr char kErroMensagem[] = "MENSAGEM";
inline constexpr char kErroSql[] = "SQL";
inline constexpr char kErroServidor[] = "EMESSAGE";
inline constexpr std::array<const char*, 4> kCamposLogErros = {kErroData, kErroMensagem, kErroSql,
                                                               kErroServidor};

// The fields of an empty error log.
inline std::vector<db::FieldDef> DefinicaoLogErros() {
  return {{kErroData, db::FieldType::kDateTime},
          {kErroMensagem, db::FieldType::kString},
          {kErroSql, db::FieldType::kString},
          {kErroServidor, db::FieldType::kString}};
}

}  // namespace kvc

#endif  // KVC_MODULE_LOG_ERROS_H_
