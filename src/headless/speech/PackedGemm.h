// Matrix products for the speech network's batched layers.
//
// Every batched layer of the network is C = A × B (+ bias, ReLU) with A a set of rows given
// by pointer (STFT frames, or three neighbouring time steps of a conv layer's input, which
// lie side by side in memory, so no copy of the input is ever made) and B a fixed weight
// matrix packed once into panels of kPanelWidth columns. Each output element is accumulated
// in the same order whatever the number of rows, so a window's result does not depend on
// how windows are batched or split between threads.
//
// Thread class: pure functions over caller-owned memory, any thread.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

namespace corvane::speech {

inline constexpr int kPanelWidth = 16;

// A K × N matrix stored as ceil(N / 16) panels of K × 16 floats, zero beyond column N.
class PackedMatrix {
 public:
  PackedMatrix() = default;
  // element(k, n) gives the entry at row k, column n.
  PackedMatrix(int rows, int columns, const std::function<float(int, int)>& element);

  int rows() const { return _rows; }
  int columns() const { return _columns; }
  int panelCount() const { return (_columns + kPanelWidth - 1) / kPanelWidth; }
  const float* panel(int index) const {
    return _data.get() + static_cast<std::size_t>(index) * static_cast<std::size_t>(_rows) * kPanelWidth;
  }

 private:
  struct FreeAligned {
    void operator()(float* p) const;
  };
  int _rows = 0;
  int _columns = 0;
  std::unique_ptr<float[], FreeAligned> _data;
};

// cRows[m][n] = act(Σ_k aRows[m][k] · B[k][n] + bias[n]) for m < rowCount, n < B.columns().
// Each aRows[m] points at B.rows() floats; bias may be null; act is ReLU when `relu`.
void multiplyRows(const float* const* aRows, int rowCount, const PackedMatrix& b,
                  const float* bias, bool relu, float* const* cRows);

}  // namespace corvane::speech
