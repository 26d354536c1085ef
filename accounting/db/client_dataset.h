// ClientDataSet: an in-memory table with field definitions, named indexes, a
// filter in a small SQL-like dialect, a current row, editing, and serialised
// table data. The rows live in a private in-memory SQLite database, one table
// per client dataset, so that a filtered read whose filter fixes the leading
// fields of the active index costs in proportion to the rows it returns.
#ifndef KVC_DB_CLIENT_DATASET_H_
#define KVC_DB_CLIENT_DATASET_H_

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "accounting/db/api.h"
#include "accounting/db/result_set.h"
#include "accounting/db/value.h"

namespace kvc::db {

class SQLDataSet;

struct KVC_API FieldDef {
  std::string name;
  FieldType type = FieldType::kString;
};

// A filter text that the dialect does not accept. what() names the problem and
// its 1-based character position, for example
//   "filter: unknown field 'CONTAX' at position 1 in: CONTAX = '1'".
class KVC_API FilterError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

// The in-memory client dataset.
//
// Life: define fields (DefineFields or LoadFrom / LoadFromString), which makes
// it active; append rows; set indexes and filters; walk the visible rows with
// First / Next / Eof and read them with FieldByName. Close() drops rows and
// fields.
//
// Visible rows: the rows that pass the filter when Filtered() is on (all rows
// otherwise), in the order of the active index (insertion order when there is
// none). The visible set is re-read by First(), by any change of filter,
// Filtered or index, and after Post or Delete.
//
// Field names are matched without regard to case everywhere (FieldByName,
// index field lists, filters, serialised data).
class KVC_API ClientDataSet {
 public:
  explicit ClientDataSet(std::string name = "");
  ~ClientDataSet();
  ClientDataSet(const ClientDataSet&) = delete;
  ClientDataSet& operator=(const ClientDataSet&) = delete;

  const std::string& Name() const { return name_; }

  // ---- structure --------------------------------------------------------
  // Creates an empty table with these fields (CreateDataSet). Replaces any
  // previous structure, rows, indexes and filter. Duplicate names (any case)
  // throw std::invalid_argument.
  void DefineFields(std::vector<FieldDef> fields);
  // Replaces structure and rows with a copy of `rows` (columns and types as
  // given). Indexes defined before are kept when their fields still exist.
  void LoadFrom(const ResultSet& rows);
  const std::vector<FieldDef>& FieldDefs() const;
  bool HasField(std::string_view name) const;
  bool Active() const;
  // Drops rows, fields, filter and indexes; Active() becomes false.
  void Close();

  // ---- rows -------------------------------------------------------------
  // Appends one row; values in field order, converted to the field types (a
  // null stays null). Throws std::invalid_argument on a wrong count or a value
  // that does not convert.
  void AppendRecord(const std::vector<Value>& values);
  // Starts a new row (all fields null) in the edit buffer.
  void Append();
  // Starts editing the current row. Throws std::logic_error when Eof().
  void Edit();
  // Sets a field of the edit buffer. Throws std::logic_error outside
  // Append/Edit and std::invalid_argument for an unknown field.
  void SetFieldValue(std::string_view field, const Value& value);
  // Writes the edit buffer; after Post the current row is the posted row.
  void Post();
  // Discards the edit buffer.
  void Cancel();
  // Deletes the current row; the current row becomes the next visible one.
  void Delete();
  // Deletes every row, keeping fields and indexes.
  void EmptyDataSet();

  // ---- indexes ----------------------------------------------------------
  // Adds a named index on "f1;f2;..." (ascending). Unknown fields throw
  // std::invalid_argument naming the field.
  void AddIndex(std::string_view index_name, std::string_view fields);
  // Makes a named index current; "" means none (insertion order). An unknown
  // name throws std::invalid_argument.
  void SetIndexName(std::string_view index_name);
  const std::string& IndexName() const;
  // Field list of the current index ("" when none).
  std::string IndexFieldNames() const;

  // ---- filter -----------------------------------------------------------
  // The filter dialect: comparisons field OP literal or literal OP field or
  // field OP field, with OP one of = <> != < > <= >=; field is null; field is
  // not null; field in (literal, ...); field not in (...); and, or, not,
  // parentheses. Literals are 'quoted text' (a doubled quote inside) and
  // numbers (-12, 3.5). Keywords and field names ignore case. An empty text
  // means no filter. A text outside the dialect throws FilterError when the
  // filter is applied (SetFilter while Filtered, or SetFiltered(true)).
  void SetFilter(std::string filter);
  const std::string& Filter() const;
  void SetFiltered(bool on);
  bool Filtered() const;

  // ---- navigation over visible rows ----------------------------------------
  void First();
  void Next();
  bool Eof() const;
  bool IsEmpty() const;        // no visible row
  size_t RecordCount() const;  // visible rows
  // Moves to the first visible row whose fields equal the values (text
  // compared exactly, numbers numerically). Returns false and stays when none.
  bool Locate(std::string_view fields, const std::vector<Value>& values);

  // The value of a field of the current row (or of the edit buffer while
  // editing). Unknown fields throw std::invalid_argument
  // ("field 'X' not found in NAME"); with no current row the value is null.
  const Value& FieldByName(std::string_view field) const;

  // The SQLite query plan (EXPLAIN QUERY PLAN, one step a line) of the query
  // that reads the visible rows with the current filter and index; for
  // diagnostics and tests.
  std::string VisibleRowsPlan() const;

  // ---- serialised table data ---------------------------------------------
  // A JSON text: {"fields":[{"name":"N","type":"string"},...],
  //               "rows":[[v,...],...]} with null, numbers, strings, and
  // date-times as "YYYY-MM-DD HH:MM:SS[.mmm]" strings. Holds all rows,
  // whatever the filter.
  std::string SaveToString() const;
  // Replaces structure and rows from SaveToString's format. An empty text
  // leaves an inactive dataset. Malformed data throws std::invalid_argument
  // naming what is wrong (row and field).
  void LoadFromString(std::string_view data);

 private:
  struct Impl;
  std::string name_;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kvc::db

#endif  // KVC_DB_CLIENT_DATASET_H_
