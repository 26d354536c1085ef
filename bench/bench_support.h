// Pieces shared by the benchmark programs: the process's peak memory and a
// connection that counts the statements sent through it.
#ifndef KVC_BENCH_BENCH_SUPPORT_H_
#define KVC_BENCH_BENCH_SUPPORT_H_

#include <sys/resource.h>

#include <cstddef>
#include <string>

#include "accounting/db/connection.h"

namespace kvc::bench {

// The largest resident set of the process so far, in kilobytes.
inline long PeakRssKb() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

// Counts the statements and queries sent, keeping nothing else (a full
// trace would weigh on the memory being measured).
class Contador final : public db::Connection {
 public:
  explicit Contador(db::Connection& inner) : inner_(inner) {}
  const db::Dialect& dialect() const override { return inner_.dialect(); }
  long long Execute(const std::string& sql, const db::BoundParams& params) override {
    ++enviados;
    return inner_.Execute(sql, params);
  }
  db::ResultSet Query(const std::string& sql, const db::BoundParams& params) override {
    ++enviados;
    return inner_.Query(sql, params);
  }
  void Begin(db::Isolation isolation) override { inner_.Begin(isolation); }
  void Commit() override { inner_.Commit(); }
  void Rollback() override { inner_.Rollback(); }
  bool InTransaction() const override { return inner_.InTransaction(); }
  size_t enviados = 0;

 private:
  db::Connection& inner_;
};

}  // namespace kvc::bench

#endif  // KVC_BENCH_BENCH_SUPPORT_H_
