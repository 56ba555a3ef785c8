// RenderPull: how one stage of the render chain asks the stage before it for audio.
//
// Stages that change the number of frames (time-pitch, rate conversion) pull their input
// through this plain function pointer and context, so that the chain needs no virtual calls,
// no std::function and no allocation on the render thread.
#pragma once

namespace corvane {

struct RenderPull {
  // Fills `frames` frames of every channel of `out` (planar). Render thread; never fails.
  void (*function)(void* context, float* const* out, int frames) noexcept = nullptr;
  void* context = nullptr;

  void operator()(float* const* out, int frames) const noexcept { function(context, out, frames); }
};

// The largest block any stage asks for or hands on in one go. Larger device buffers are
// rendered in pieces of this size.
inline constexpr int kMaxRenderBlockFrames = 4096;

}  // namespace corvane
