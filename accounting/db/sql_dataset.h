// SQLDataSet: a command dataset, the unit through which the module runs every
// statement. It holds a statement text with ":NAME" parameters, a parameter
// list, a connection, and a before-open handler that may rewrite the text and
// the parameters just before a query opens. Opened, it reads the rows and
// walks them with First / Next / Eof, reading fields by name.
#ifndef KVC_DB_SQL_DATASET_H_
#define KVC_DB_SQL_DATASET_H_

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "accounting/db/api.h"
#include "accounting/db/connection.h"
#include "accounting/db/result_set.h"
#include "accounting/db/value.h"

namespace kvc::db {

// The declared kind of a parameter. kUnknown leaves the type to the value.
enum class ParamType { kUnknown, kInteger, kBcd, kFloat, kString, kDateTime };

struct KVC_API Param {
  std::string name;
  ParamType type = ParamType::kUnknown;
  Value value;

  // The value as text, as the rewriting step reads it ("" for null).
  std::string AsString() const { return value.AsString(); }
};

class KVC_API Params {
 public:
  size_t Count() const { return items_.size(); }
  bool Empty() const { return items_.empty(); }
  void Clear() { items_.clear(); }
  Param& operator[](size_t i) { return items_[i]; }
  const Param& operator[](size_t i) const { return items_[i]; }
  std::vector<Param>::iterator begin() { return items_.begin(); }
  std::vector<Param>::iterator end() { return items_.end(); }
  std::vector<Param>::const_iterator begin() const { return items_.begin(); }
  std::vector<Param>::const_iterator end() const { return items_.end(); }

  // The parameter named `name` (any case), or nullptr.
  Param* Find(std::string_view name);
  const Param* Find(std::string_view name) const;
  // The parameter named `name`; throws std::invalid_argument
  // ("parameter 'X' not found") when there is none.
  Param& ByName(std::string_view name);
  // Adds a parameter (or returns the existing one of that name).
  Param& Add(std::string_view name, ParamType type = ParamType::kUnknown);

  // The values to bind, by name.
  BoundParams ToBound() const;

 private:
  std::vector<Param> items_;
};

class KVC_API SQLDataSet {
 public:
  using BeforeOpenHandler = std::function<void(SQLDataSet&)>;

  explicit SQLDataSet(std::string name) : name_(std::move(name)) {}
  SQLDataSet(const SQLDataSet&) = delete;
  SQLDataSet& operator=(const SQLDataSet&) = delete;

  const std::string& Name() const { return name_; }

  // Sets the statement text and rebuilds the parameter list from its
  // placeholders (a parameter whose name stays keeps its value and type).
  // Closes the dataset first.
  void SetCommandText(std::string text);
  const std::string& CommandText() const { return text_; }
  // Replaces the text without touching the parameter list; the rewriting
  // step uses it.
  void ReplaceCommandText(std::string text) { text_ = std::move(text); }

  Params& GetParams() { return params_; }
  const Params& GetParams() const { return params_; }
  Param& ParamByName(std::string_view name) { return params_.ByName(name); }

  void SetConnection(Connection* connection) { connection_ = connection; }
  Connection* GetConnection() const { return connection_; }

  // The before-open handler and a tag that names it, so that an installer can
  // tell its own handler from another.
  void SetBeforeOpen(BeforeOpenHandler handler, std::string tag);
  bool HasBeforeOpen() const { return static_cast<bool>(before_open_); }
  const std::string& BeforeOpenTag() const { return before_open_tag_; }

  // Metadata retrieval and the large-object size limit (0 = no limit) are
  // kept as settings; rows are always read whole.
  void SetNoMetadata(bool on) { no_metadata_ = on; }
  bool NoMetadata() const { return no_metadata_; }
  void SetMaxBlobSize(int size) { max_blob_size_ = size; }
  int MaxBlobSize() const { return max_blob_size_; }

  // Runs the before-open handler, then the query; the first row becomes
  // current. Opening an open dataset does nothing. Throws DatabaseError (also
  // when no connection is set).
  void Open();
  void Close();
  bool Active() const { return active_; }

  // Executes the statement without opening it: the before-open handler does
  // not run. Returns the rows affected, -1 when unknown.
  long long ExecSQL();

  void First() { pos_ = 0; }
  void Next() {
    if (pos_ < rows_.rows.size()) ++pos_;
  }
  bool Eof() const { return pos_ >= rows_.rows.size(); }
  bool IsEmpty() const { return rows_.rows.empty(); }
  size_t RecordCount() const { return rows_.rows.size(); }

  // The field `name` (any case) of the current row; null after the last row.
  // Throws std::invalid_argument ("field 'X' not found in sdsAux") for an
  // unknown name or when the dataset is closed.
  const Value& FieldByName(std::string_view name) const;
  bool HasField(std::string_view name) const;
  // The i-th field of the current row.
  const Value& Field(size_t i) const;
  size_t FieldCount() const { return rows_.columns.size(); }
  // The rows read by Open.
  const ResultSet& Rows() const { return rows_; }

 private:
  Connection& RequireConnection() const;

  std::string name_;
  std::string text_;
  Params params_;
  Connection* connection_ = nullptr;
  BeforeOpenHandler before_open_;
  std::string before_open_tag_;
  bool no_metadata_ = false;
  int max_blob_size_ = 0;
  bool active_ = false;
  ResultSet rows_;
  size_t pos_ = 0;
};

}  // namespace kvc::db

#endif  // KVC_DB_SQL_DATASET_H_
