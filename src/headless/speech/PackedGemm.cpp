#include "headless/speech/PackedGemm.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

// The kernel is written with GCC vector types and built once per instruction set; the
// loader picks the best clone for the machine at start (the Debian baseline has no FMA).
// Not under sanitizers: an ifunc resolver runs while the program is relocated, before the
// sanitizer's runtime is up, and its instrumented code crashes there.
#if defined(__x86_64__) && !defined(__clang__) && !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
#define CORVANE_GEMM_CLONES __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))
#else
#define CORVANE_GEMM_CLONES
#endif

namespace corvane::speech {
namespace {

using Vec8 = float __attribute__((vector_size(32)));

inline Vec8 load8(const float* p) {
  Vec8 v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

inline void store8(float* p, Vec8 v) { std::memcpy(p, &v, sizeof v); }

constexpr int kRowBlock = 6;

// One block of up to six rows against one 16-column panel.
template <int Rows>
inline void kernel(const float* const* a, int k, const float* panel, float (*out)[kPanelWidth]) {
  Vec8 acc[Rows][2] = {};
  const float* rowPointers[Rows];
  for (int r = 0; r < Rows; ++r) rowPointers[r] = a[r];
  for (int i = 0; i < k; ++i) {
    const Vec8 b0 = load8(panel + i * kPanelWidth);
    const Vec8 b1 = load8(panel + i * kPanelWidth + 8);
    for (int r = 0; r < Rows; ++r) {
      const float s = rowPointers[r][i];
      const Vec8 broadcast = {s, s, s, s, s, s, s, s};
      acc[r][0] += broadcast * b0;
      acc[r][1] += broadcast * b1;
    }
  }
  for (int r = 0; r < Rows; ++r) {
    store8(out[r], acc[r][0]);
    store8(out[r] + 8, acc[r][1]);
  }
}

CORVANE_GEMM_CLONES
void multiplyRowsImpl(const float* const* aRows, int rowCount, const PackedMatrix& b,
                      const float* bias, bool relu, float* const* cRows) {
  const int k = b.rows();
  const int n = b.columns();
  float block[kRowBlock][kPanelWidth];
  for (int m0 = 0; m0 < rowCount; m0 += kRowBlock) {
    const int rows = std::min(kRowBlock, rowCount - m0);
    for (int p = 0; p < b.panelCount(); ++p) {
      const float* panel = b.panel(p);
      switch (rows) {
        case 6: kernel<6>(aRows + m0, k, panel, block); break;
        case 5: kernel<5>(aRows + m0, k, panel, block); break;
        case 4: kernel<4>(aRows + m0, k, panel, block); break;
        case 3: kernel<3>(aRows + m0, k, panel, block); break;
        case 2: kernel<2>(aRows + m0, k, panel, block); break;
        default: kernel<1>(aRows + m0, k, panel, block); break;
      }
      const int n0 = p * kPanelWidth;
      const int width = std::min(kPanelWidth, n - n0);
      for (int r = 0; r < rows; ++r) {
        float* c = cRows[m0 + r] + n0;
        for (int j = 0; j < width; ++j) {
          float v = block[r][j] + (bias ? bias[n0 + j] : 0.0f);
          c[j] = relu ? std::max(v, 0.0f) : v;
        }
      }
    }
  }
}

}  // namespace

void PackedMatrix::FreeAligned::operator()(float* p) const { std::free(p); }

PackedMatrix::PackedMatrix(int rows, int columns, const std::function<float(int, int)>& element)
    : _rows(rows), _columns(columns) {
  const std::size_t count = static_cast<std::size_t>(panelCount()) * static_cast<std::size_t>(rows) * kPanelWidth;
  const std::size_t bytes = ((count * sizeof(float) + 63) / 64) * 64;
  auto* memory = static_cast<float*>(std::aligned_alloc(64, std::max<std::size_t>(bytes, 64)));
  if (!memory) throw std::bad_alloc();
  _data.reset(memory);
  std::fill(memory, memory + count, 0.0f);
  for (int p = 0; p < panelCount(); ++p) {
    float* out = memory + static_cast<std::size_t>(p) * static_cast<std::size_t>(rows) * kPanelWidth;
    for (int k = 0; k < rows; ++k) {
      for (int j = 0; j < kPanelWidth && p * kPanelWidth + j < columns; ++j) {
        out[k * kPanelWidth + j] = element(k, p * kPanelWidth + j);
      }
    }
  }
}

void multiplyRows(const float* const* aRows, int rowCount, const PackedMatrix& b, const float* bias,
                  bool relu, float* const* cRows) {
  multiplyRowsImpl(aRows, rowCount, b, bias, relu, cRows);
}

}  // namespace corvane::speech
