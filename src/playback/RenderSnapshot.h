// Handing wide values to the render thread: immutable snapshots behind atomic pointers,
// freed on the main thread only once the render callback can no longer hold them.
//
// The render callback must never see a half-written routing, selection or filter, and must
// never free memory. So the main thread builds a new value, publishes it with one atomic
// pointer exchange, and puts the old one on a retire list. The callback reads each pointer
// once per buffer and drops it when the buffer is done.
//
// When is a retired value safe to free? RenderEpoch counts the callback's entries and exits:
// the count is odd while a callback runs. After the exchange the main thread reads the count:
//   - even: no callback is inside. One that starts later loads the new pointer, since the
//     callback's entry increment and the main thread's exchange are both sequentially
//     consistent, and so are the loads that follow each (the store-load pattern of Dekker's
//     algorithm: one side always sees the other's write). The old value is freed at once.
//   - odd: a callback is inside and may hold the old value. It is freed at the first later
//     collect() that sees any other count, i.e. after that callback has left.
// A callback can therefore hold any number of snapshots for the length of one buffer, and
// the main thread never waits for it: a value stays on the list until a later collect().
//
// Rules:
//   - One thread at a time runs the callback (the device's, or a test's or a benchmark's
//     driving thread). RenderEpoch::Scope brackets each run.
//   - Pointers read inside a Scope are used only inside it, never cached across buffers.
//   - publish(), collect() and the owner's destructor run on one thread, "the main thread".
//
// Thread class: RenderEpoch::Scope and SnapshotSlot::acquire() are wait-free, lock-free and
// allocate nothing (render thread). Everything else is main-thread only and may allocate.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <vector>

namespace corvane {

class RenderEpoch {
 public:
  // Brackets one run of the render callback. Render thread.
  class Scope {
   public:
    explicit Scope(RenderEpoch& epoch) noexcept : _epoch(epoch) {
      _epoch._count.fetch_add(1, std::memory_order_seq_cst);
    }
    ~Scope() { _epoch._count.fetch_add(1, std::memory_order_release); }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    RenderEpoch& _epoch;
  };

  // The current count; odd while a callback runs. Main thread.
  std::uint64_t observe() const noexcept { return _count.load(std::memory_order_seq_cst); }
  // How many callbacks have completed since this epoch was made.
  std::uint64_t completedRuns() const noexcept { return observe() / 2; }

 private:
  std::atomic<std::uint64_t> _count{0};
};

// The list of values waiting for the render thread to move on. Main thread only.
class SnapshotRetirer {
 public:
  explicit SnapshotRetirer(const RenderEpoch& epoch) : _epoch(epoch) { _retired.reserve(16); }
  SnapshotRetirer(const SnapshotRetirer&) = delete;
  SnapshotRetirer& operator=(const SnapshotRetirer&) = delete;
  // Frees everything left: by then the owner must have stopped the render thread.
  ~SnapshotRetirer() = default;

  // Takes ownership of a value that was visible to the render thread until the exchange that
  // preceded this call. Frees it at once when no callback is inside.
  template <typename T>
  void retire(std::unique_ptr<T> value) {
    if (!value) return;
    const std::uint64_t count = _epoch.observe();
    if ((count & 1) == 0) return;  // `value` dies here: no callback can hold it
    using Mutable = std::remove_const_t<T>;
    _retired.push_back({std::unique_ptr<void, void (*)(void*)>(
                            const_cast<Mutable*>(value.release()),
                            [](void* p) { delete static_cast<Mutable*>(p); }),
                        count});
  }

  // Frees every value whose callback has left. Returns how many remain.
  std::size_t collect() {
    if (_retired.empty()) return 0;
    const std::uint64_t now = _epoch.observe();
    std::erase_if(_retired, [now](const Retired& r) { return r.countAtRetire != now; });
    return _retired.size();
  }

  std::size_t pending() const { return _retired.size(); }

 private:
  struct Retired {
    std::unique_ptr<void, void (*)(void*)> value;
    std::uint64_t countAtRetire;
  };
  const RenderEpoch& _epoch;
  std::vector<Retired> _retired;
};

// One published value of type T, or none (nullptr). Immutable values are published as
// SnapshotSlot<const X>; a value the render thread works on (a stage with state) as
// SnapshotSlot<X>, which then belongs to the render thread from publication to retirement.
template <typename T>
class SnapshotSlot {
 public:
  explicit SnapshotSlot(SnapshotRetirer& retirer) : _retirer(retirer) {}
  SnapshotSlot(const SnapshotSlot&) = delete;
  SnapshotSlot& operator=(const SnapshotSlot&) = delete;
  ~SnapshotSlot() { delete _current.load(std::memory_order_relaxed); }

  // Render thread, inside a RenderEpoch::Scope: the value in force for this buffer.
  T* acquire() const noexcept { return _current.load(std::memory_order_seq_cst); }

  // Main thread: the value as last published (the main thread's own view).
  T* current() const noexcept { return _current.load(std::memory_order_relaxed); }

  // Main thread: makes `value` (which may be null) the one the next buffer reads.
  void publish(std::unique_ptr<T> value) {
    T* old = _current.exchange(value.release(), std::memory_order_seq_cst);
    _retirer.retire(std::unique_ptr<T>(old));
  }

 private:
  SnapshotRetirer& _retirer;
  std::atomic<T*> _current{nullptr};
};

}  // namespace corvane
