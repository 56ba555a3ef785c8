// LiveSeries: a growing, capped array that a model publishes many times a second without
// copying what it already holds.
//
// The points live in immutable chunks of `Chunk` elements, shared by every copy of the series.
// Appending makes (or extends) only the last chunk; dropping the oldest point moves an offset
// into the first chunk and releases that chunk once all of it is gone. A copy is thus a vector
// of at most size / Chunk + 2 pointers, and a reader holding one keeps seeing exactly the points
// it had, whatever the owner appends later: a value, not a view.
//
// Thread class: a value. One thread appends to a given object; copies may go to any thread.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

namespace corvane {

template <class T, std::size_t Chunk = 512>
class LiveSeries {
  static_assert(Chunk >= 1);

 public:
  using value_type = T;

  std::size_t size() const { return _size; }
  bool empty() const { return _size == 0; }

  const T& operator[](std::size_t i) const {
    const std::size_t k = i + _skip;
    return (*_chunks[k / Chunk])[k % Chunk];
  }
  const T& front() const { return (*this)[0]; }
  const T& back() const { return (*this)[_size - 1]; }

  // Appends `value`; beyond `cap` points the oldest go.
  void append(T value, std::size_t cap) {
    if (_chunks.empty() || _chunks.back()->size() == Chunk) {
      auto chunk = std::make_shared<std::vector<T>>();
      chunk->reserve(Chunk);
      chunk->push_back(std::move(value));
      _chunks.push_back(std::move(chunk));
    } else if (_chunks.back().use_count() == 1) {
      // Nobody else holds the last chunk (no copy was taken since it was made): grow it in place.
      _chunks.back()->push_back(std::move(value));
    } else {
      auto chunk = std::make_shared<std::vector<T>>();
      chunk->reserve(Chunk);
      *chunk = *_chunks.back();
      chunk->push_back(std::move(value));
      _chunks.back() = std::move(chunk);
    }
    ++_size;
    while (_size > cap) dropFront();
  }

  void clear() {
    _chunks.clear();
    _skip = 0;
    _size = 0;
  }

  std::vector<T> toVector() const {
    std::vector<T> out;
    out.reserve(_size);
    for (std::size_t i = 0; i < _size; ++i) out.push_back((*this)[i]);
    return out;
  }

  // How many chunks the series holds (tests: that dropping releases storage).
  std::size_t chunkCount() const { return _chunks.size(); }

 private:
  void dropFront() {
    if (_size == 0) return;
    ++_skip;
    --_size;
    if (_skip == Chunk || _size == 0) {
      _chunks.erase(_chunks.begin());
      _skip = 0;
    }
  }

  // Chunks are never changed once a copy of the series may hold them (see append).
  std::vector<std::shared_ptr<std::vector<T>>> _chunks;
  std::size_t _skip = 0;
  std::size_t _size = 0;
};

}  // namespace corvane
