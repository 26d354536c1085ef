// DataSetProvider: feeds an in-memory client dataset from a command dataset.
// The client may replace the command text when the provider allows it.
#ifndef KVC_DB_PROVIDER_H_
#define KVC_DB_PROVIDER_H_

#include <string>

#include "accounting/db/api.h"
#include "accounting/db/client_dataset.h"
#include "accounting/db/sql_dataset.h"

namespace kvc::db {

class KVC_API DataSetProvider {
 public:
  DataSetProvider(std::string name, SQLDataSet& dataset, bool allow_command_text)
      : name_(std::move(name)), dataset_(dataset), allow_command_text_(allow_command_text) {}

  const std::string& Name() const { return name_; }
  SQLDataSet& DataSet() { return dataset_; }
  bool AllowCommandText() const { return allow_command_text_; }

  // Opens the dataset with the client's command text (when given and allowed)
  // and the client's parameter values (matched by name), loads its rows into
  // `client` and closes the dataset. The dataset's before-open handler runs.
  void Provide(ClientDataSet& client, const std::string& command_text, const Params& params);

 private:
  std::string name_;
  SQLDataSet& dataset_;
  bool allow_command_text_;
};

}  // namespace kvc::db

#endif  // KVC_DB_PROVIDER_H_
