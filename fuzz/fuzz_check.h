// The property check of the fuzz targets: a property that does not hold
// prints what failed and aborts, which libFuzzer reports as a finding with
// its reproducer.
#ifndef KVC_FUZZ_FUZZ_CHECK_H_
#define KVC_FUZZ_FUZZ_CHECK_H_

#include <cstdio>
#include <cstdlib>
#include <string>

namespace kvc::fuzz {

[[noreturn]] inline void PropertyFailed(const char* file, int line, const char* condition,
                                        const std::string& detail) {
  std::fprintf(stderr, "%s:%d: property failed: %s\n", file, line, condition);
  if (!detail.empty()) std::fprintf(stderr, "  %s\n", detail.c_str());
  std::abort();
}

}  // namespace kvc::fuzz

// FUZZ_CHECK(condition) and FUZZ_CHECK_MSG(condition, detail) abort when
// the condition is false; `detail` is a std::string built only then.
#define FUZZ_CHECK(condition) FUZZ_CHECK_MSG(condition, std::string())
#define FUZZ_CHECK_MSG(condition, detail)                                                  \
  do {                                                                                     \
    if (!(condition)) ::kvc::fuzz::PropertyFailed(__FILE__, __LINE__, #condition, detail); \
  } while (0)

#endif  // KVC_FUZZ_FUZZ_CHECK_H_
