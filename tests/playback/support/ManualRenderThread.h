// A thread that stands in for the audio device in stress tests: it runs the render chain back
// to back through the manual output, in calls of random length, and hands each call's output
// to the test's check on that thread, until stopped.
#pragma once

#include <atomic>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include "playback/PlaybackGraph.h"

namespace corvane::test {

class ManualRenderThread {
 public:
  // Called on the render thread after every call with the call's output channels.
  using Check = std::function<void(float* const* output, int frames)>;

  ManualRenderThread(PlaybackGraph& graph, int minCallFrames, int maxCallFrames, unsigned seed, Check check)
      : _graph(graph), _minCallFrames(minCallFrames), _maxCallFrames(maxCallFrames), _seed(seed),
        _check(std::move(check)) {
    _storage.assign(static_cast<std::size_t>(graph.outputChannels()) * static_cast<std::size_t>(maxCallFrames), 0.0f);
    for (int c = 0; c < graph.outputChannels(); ++c) _pointers.push_back(_storage.data() + c * maxCallFrames);
    _thread = std::thread([this] { run(); });
  }
  ~ManualRenderThread() { stop(); }
  ManualRenderThread(const ManualRenderThread&) = delete;
  ManualRenderThread& operator=(const ManualRenderThread&) = delete;

  void stop() {
    _done.store(true);
    if (_thread.joinable()) _thread.join();
  }
  long calls() const { return _calls.load(); }

 private:
  void run() {
    std::mt19937 rng(_seed);
    std::uniform_int_distribution<int> lengths(_minCallFrames, _maxCallFrames);
    while (!_done.load(std::memory_order_relaxed)) {
      const int frames = lengths(rng);
      _graph.renderManual(_pointers.data(), frames);
      _check(_pointers.data(), frames);
      _calls.fetch_add(1, std::memory_order_relaxed);
    }
  }

  PlaybackGraph& _graph;
  int _minCallFrames;
  int _maxCallFrames;
  unsigned _seed;
  Check _check;
  std::vector<float> _storage;
  std::vector<float*> _pointers;
  std::atomic<bool> _done{false};
  std::atomic<long> _calls{0};
  std::thread _thread;
};

}  // namespace corvane::test
