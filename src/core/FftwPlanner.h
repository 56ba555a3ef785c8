// FftwPlanner: the one way Corvane makes FFTW plans.
//
// FFTW's planner keeps global state and is not thread-safe by default, while background tasks
// build FFT processors concurrently (load stages, compare slots, analysis passes). The first
// call switches FFTW to its thread-safe planner (fftwf_make_planner_thread_safe) exactly once per
// process; every plan of CorvaneCore goes through here. Executing a plan with the new-array
// functions is thread-safe in FFTW without this.
//
// Thread class: any thread; never call from the render callback (planning allocates).
#pragma once

#include <fftw3.h>

namespace corvane::FftwPlanner {

// Makes sure the thread-safe planner is installed. Cheap after the first call.
void ensureThreadSafe();

// A real-to-complex plan of size n for arrays aligned as fftwf_malloc aligns them. FFTW_ESTIMATE:
// plans are made in microseconds and the same on every run, so results are reproducible.
// Returns null when FFTW cannot plan (out of memory).
fftwf_plan planRealToComplex(int n, float* in, fftwf_complex* out);

// Destroys a plan made above (null is fine).
void destroy(fftwf_plan plan);

}  // namespace corvane::FftwPlanner
