// The Firebird server the tests may use: KVC_TEST_FIREBIRD =
// "USER:PASSWORD@HOST:/directory" names a server and a directory it can
// write.
#ifndef KVC_TESTS_SUPPORT_FIREBIRD_TARGET_H_
#define KVC_TESTS_SUPPORT_FIREBIRD_TARGET_H_

#include <cstdlib>
#include <exception>
#include <string>

#include "accounting/db/backends/backend_hooks.h"

namespace kvc::testing {

struct FirebirdTarget {
  std::string user, password, host, directory;
};

// Reads KVC_TEST_FIREBIRD into `t`; false when it is unset or malformed.
inline bool ParseFirebirdTarget(FirebirdTarget& t) {
  const char* env = std::getenv("KVC_TEST_FIREBIRD");
  const std::string alvo = env ? env : "";
  if (alvo.empty()) return false;
  const size_t at = alvo.find('@');
  const size_t colon = alvo.find(':');
  const size_t host_colon = alvo.find(':', at);
  if (at == std::string::npos || colon > at || host_colon == std::string::npos) return false;
  t.user = alvo.substr(0, colon);
  t.password = alvo.substr(colon + 1, at - colon - 1);
  t.host = alvo.substr(at + 1, host_colon - at - 1);
  t.directory = alvo.substr(host_colon + 1);
  return true;
}

// Drops the database at `location` ("HOST:/path") of the target's server
// when it is there: a test's own database, left by an earlier run that was
// killed, or done with. A database that is not there is no error.
inline void DropFirebirdDatabaseIfThere(const std::string& location, const FirebirdTarget& t) {
  try {
    db::DropFirebirdDatabase(location, t.user, t.password);
  } catch (const std::exception&) {
    // Not there.
  }
}

// Stops the Firebird client library's threads when the test process ends,
// after every test that uses the client; registered once. A test must not
// stop it itself: the client cannot be used again in the same process.
inline void ShutdownFirebirdClientAtExit() {
  static const bool registered = [] {
    std::atexit([] { db::ShutdownFirebirdClient(); });
    return true;
  }();
  (void)registered;
}

}  // namespace kvc::testing

#endif  // KVC_TESTS_SUPPORT_FIREBIRD_TARGET_H_
