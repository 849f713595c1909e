// What every fuzz target uses to report a broken rule: the rule's place on
// standard error, then an abort, which libFuzzer records as a crash together
// with the input that caused it.
#ifndef VELMOR_FUZZ_FUZZ_CHECK_H_
#define VELMOR_FUZZ_FUZZ_CHECK_H_

#include <cstdio>
#include <cstdlib>

namespace velmor::fuzz {

// The defaults name the caller's line, as the compiler fills them in there.
inline void require(bool condition, const char* file = __builtin_FILE(),
                    int line = __builtin_LINE()) {
  if (condition) return;
  std::fprintf(stderr, "broken rule at %s:%d\n", file, line);
  std::abort();
}

}  // namespace velmor::fuzz

#endif  // VELMOR_FUZZ_FUZZ_CHECK_H_
