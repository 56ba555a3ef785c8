#include "core/FftwPlanner.h"

#include <mutex>

namespace corvane::FftwPlanner {

void ensureThreadSafe() {
  static std::once_flag once;
  std::call_once(once, [] { fftwf_make_planner_thread_safe(); });
}

fftwf_plan planRealToComplex(int n, float* in, fftwf_complex* out) {
  ensureThreadSafe();
  return fftwf_plan_dft_r2c_1d(n, in, out, FFTW_ESTIMATE);
}

void destroy(fftwf_plan plan) {
  if (plan == nullptr) return;
  ensureThreadSafe();
  fftwf_destroy_plan(plan);
}

}  // namespace corvane::FftwPlanner
