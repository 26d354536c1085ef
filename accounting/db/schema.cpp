// Schema creation from the embedded DDL files.
#include "accounting/db/schema.h"

#include "accounting/db/dialect.h"
#include "accounting/db/error.h"

namespace kvc::db {

std::string_view SchemaDdl(std::string_view server) { return schema::EmbeddedDdl(server); }

std::vector<std::string> SplitDdl(std::string_view ddl) {
  std::vector<std::string> out;
  std::string current;
  size_t pos = 0;
  while (pos < ddl.size()) {
    size_t end = ddl.find('\n', pos);
    if (end == std::string_view::npos) end = ddl.size();
    std::string_view line = ddl.substr(pos, end - pos);
    pos = end + 1;
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t'))
      line.remove_suffix(1);
    size_t first = line.find_first_not_of(" \t");
    if (first == std::string_view::npos || line.substr(first).starts_with("--")) continue;
    if (line.back() == ';') {
      current.append(line.substr(0, line.size() - 1));
      out.push_back(std::move(current));
      current.clear();
    } else {
      current.append(line);
      current += '\n';
    }
  }
  if (current.find_first_not_of(" \t\n") != std::string::npos) out.push_back(current);
  return out;
}

void CreateSchema(Connection& connection) {
  const std::string_view name = connection.dialect().SchemaName();
  const std::string_view ddl = SchemaDdl(name);
  if (ddl.empty()) throw DatabaseError("no schema for server " + std::string(name), "");
  for (const std::string& statement : SplitDdl(ddl)) connection.Execute(statement, {});
}

bool SchemaExists(Connection& connection) {
  try {
    connection.Query("select VERSAO from GER_VERSAO_ESTRUTURA", {});
    return true;
  } catch (const DatabaseError&) {
    return false;
  }
}

std::vector<std::string> SchemaTables() {
  std::vector<std::string> out;
  for (const std::string& statement : SplitDdl(SchemaDdl("sqlite"))) {
    std::string_view s = statement;
    size_t b = s.find_first_not_of(" \t\n");
    s.remove_prefix(b == std::string_view::npos ? s.size() : b);
    constexpr std::string_view kCreate = "create table ";
    if (s.size() <= kCreate.size()) continue;
    std::string head(s.substr(0, kCreate.size()));
    for (char& c : head) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    if (head != kCreate) continue;
    s.remove_prefix(kCreate.size());
    size_t e = s.find_first_of(" (\n");
    out.emplace_back(s.substr(0, e));
  }
  return out;
}

}  // namespace kvc::db
