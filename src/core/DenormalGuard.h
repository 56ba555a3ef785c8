// DenormalGuard: flush-to-zero for the duration of a DSP loop.
//
// Recursive filters ring down into denormal numbers during silence, and on x86 every
// arithmetic operation on a denormal costs some hundred cycles: a K-filter fed an hour of
// digital silence would otherwise run many times slower than on music. The guard sets the
// SSE flush-to-zero and denormals-are-zero flags and restores the caller's flags on scope exit,
// so code outside our loops keeps IEEE behaviour. Values below 1e-308 do not matter to any
// level we report. A no-op on other architectures.
//
// Thread class: per thread (the flags are per thread); real-time safe.
#pragma once

#if defined(__x86_64__) || defined(__i386__)
#include <xmmintrin.h>
#endif

namespace corvane {

class DenormalGuard {
 public:
#if defined(__x86_64__) || defined(__i386__)
  DenormalGuard() noexcept : _saved(_mm_getcsr()) { _mm_setcsr(_saved | kFlushToZero | kDenormalsAreZero); }
  ~DenormalGuard() { _mm_setcsr(_saved); }
#else
  DenormalGuard() noexcept = default;
#endif
  DenormalGuard(const DenormalGuard&) = delete;
  DenormalGuard& operator=(const DenormalGuard&) = delete;

 private:
#if defined(__x86_64__) || defined(__i386__)
  static constexpr unsigned kFlushToZero = 0x8000;
  static constexpr unsigned kDenormalsAreZero = 0x0040;
  unsigned _saved;
#endif
};

}  // namespace corvane
