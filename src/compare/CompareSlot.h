// CompareSlot: one file of a comparison. Slot 0 ("A") is the loaded file, the reference; the
// others ("B" ... "F") are files added beside it.
//
// A plain value, copied freely; the audio is shared by reference and never changed in place
// by the comparison. A slot is known by its id in the per-slot dictionaries and found by its
// URL when a background stage lands (its index may have changed by then).
//
// Thread class: plain value, any thread.
#pragma once

#include <QString>
#include <QUuid>
#include <cstdint>
#include <filesystem>
#include <optional>

#include "headless/files/AudioFileModel.h"
#include "headless/pipelines/SlotMetrics.h"

namespace corvane {

struct CompareSlot {
  QUuid id;
  std::filesystem::path url;
  AudioFileModel model;
  SharedAudioBuffer buffer;                // the whole decoded file
  std::optional<SlotMetrics> metrics;      // none until the measuring stage lands
  bool isLoadingMetrics = false;           // drives the chip's "Analysing…"
  std::int64_t timeOffsetSamples = 0;      // frames this slot is shifted against A
  float gainOffsetDB = 0.0f;               // the user's trim, -24 ... +24 dB
  bool polarityInverted = false;
  bool isListeningToDiff = false;          // plays its difference against A
  SharedAudioBuffer diffBuffer;            // the cached difference, if any
  std::optional<AudioFileModel> diffModel;
  bool diffComputing = false;

  // A new slot of a decoded file: a fresh id, no metrics, no offset, gain or difference.
  static CompareSlot make(std::filesystem::path url, AudioFileModel model, SharedAudioBuffer buffer,
                          bool isLoadingMetrics);

  // "A" ... "F" by index, capped at "F".
  static QString letter(int index);

  // Bytes of audio this slot keeps in memory: its buffer and its cached difference, as planar
  // float.
  std::int64_t residentBytes() const;

  friend bool operator==(const CompareSlot&, const CompareSlot&) = default;
};

}  // namespace corvane
