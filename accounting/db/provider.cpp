// The provider between a command dataset and a client dataset.
#include "accounting/db/provider.h"

#include <stdexcept>

namespace kvc::db {

void DataSetProvider::Provide(ClientDataSet& client, const std::string& command_text,
                              const Params& params) {
  dataset_.Close();
  if (!command_text.empty()) {
    if (!allow_command_text_)
      throw std::logic_error("provider " + name_ + " does not accept a command text");
    dataset_.SetCommandText(command_text);
  }
  for (const Param& p : params)
    if (Param* target = dataset_.GetParams().Find(p.name)) target->value = p.value;
  dataset_.Open();
  client.LoadFrom(dataset_.Rows());
  dataset_.Close();
}

}  // namespace kvc::db
