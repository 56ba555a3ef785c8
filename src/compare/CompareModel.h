// CompareModel: the files of a comparison, as the session holds them.
//
// compareSlots in display order (slot 0 is the loaded file, the reference), which one sounds
// (activeSlotIndex), and the per-slot caches that a switch between slots saves and restores.
// The session builds slot 0 at every load and adds the others in the background
// (AudioEngine::addCompareSlot); switching, moving, alignment and differences belong to the
// comparison's own commands.
//
// Invariants kept here: at most kMaximumSlots slots, no two of one file, activeSlotIndex in
// range (0 for an empty list).
//
// Thread class: main thread.
#pragma once

#include <QObject>
#include <QUuid>
#include <filesystem>
#include <map>
#include <optional>
#include <vector>

#include "compare/CompareSlot.h"
#include "headless/analysis/SelectionAnalysisResult.h"
#include "headless/analysis/SpectrogramColumns.h"
#include "session/SessionTypes.h"

namespace corvane {

using CompareSlots = std::vector<CompareSlot>;

class CompareModel : public QObject {
  Q_OBJECT
  Q_PROPERTY(corvane::CompareSlots compareSlots READ compareSlots NOTIFY compareSlotsChanged)
  Q_PROPERTY(int activeSlotIndex READ activeSlotIndex WRITE setActiveSlotIndex NOTIFY activeSlotIndexChanged)
  Q_PROPERTY(bool showWaveformOverlay READ showWaveformOverlay WRITE setShowWaveformOverlay NOTIFY showWaveformOverlayChanged)
  Q_PROPERTY(bool levelMatchEnabled READ levelMatchEnabled WRITE setLevelMatchEnabled NOTIFY levelMatchEnabledChanged)

 public:
  static constexpr int kMaximumSlots = 6;

  explicit CompareModel(QObject* parent = nullptr);

  const CompareSlots& compareSlots() const { return _compareSlots; }
  int slotCount() const { return static_cast<int>(_compareSlots.size()); }
  // An add is refused once six slots are there (it is tested when it starts and again when it
  // lands).
  bool hasRoomForAnotherSlot() const { return slotCount() < kMaximumSlots; }
  // The slot of a file, by path (the same file under another spelling counts).
  std::optional<int> indexOf(const std::filesystem::path& url) const;
  // Bytes of decoded audio all slots hold, cached differences included.
  std::int64_t residentCompareBytes() const;

  int activeSlotIndex() const { return _activeSlotIndex; }
  // Clamped into the list.
  void setActiveSlotIndex(int index);
  // The metrics of the active slot; none when it has none or the index is out of range.
  std::optional<SlotMetrics> activeSlotMetrics() const;

  bool showWaveformOverlay() const { return _showWaveformOverlay; }
  void setShowWaveformOverlay(bool show);
  bool levelMatchEnabled() const { return _levelMatchEnabled; }
  void setLevelMatchEnabled(bool enabled);

  // ---- What the session's road does to the list ----
  // The loaded file as the reference: the whole list if it was empty, else in place of slot 0
  // (the others stay). The active slot becomes 0.
  void placeReference(CompareSlot slot);
  // Appends a slot that passed the tests (room, not yet listed).
  void appendSlot(CompareSlot slot);
  // Every slot but the first goes, with its cached columns and analysis.
  void dropExtraSlots();
  // Every slot of this file goes.
  void removeSlotsOf(const std::filesystem::path& url);
  // Metrics measured for the file, wherever its slot is now; false when no slot has it.
  bool landMetrics(const std::filesystem::path& url, SlotMetrics metrics);

  // ---- Per-slot caches, by slot id, saved and restored by slot switches ----
  std::map<QUuid, Snapshot<SpectrogramColumns>> slotLiveSpectrogramColumns;
  std::map<QUuid, Snapshot<SpectrogramColumns>> slotOfflineSpectrogramColumns;
  std::map<QUuid, Snapshot<SelectionAnalysisResult>> slotSelectionAnalysis;

  // Whether two paths name one file: the same file on disk, or the same normalised path for
  // files that don't exist (any more).
  static bool sameFile(const std::filesystem::path& a, const std::filesystem::path& b);

 signals:
  void compareSlotsChanged();
  void activeSlotIndexChanged();
  void showWaveformOverlayChanged();
  void levelMatchEnabledChanged();

 private:
  void forgetCaches(const QUuid& id);

  CompareSlots _compareSlots;
  int _activeSlotIndex = 0;
  bool _showWaveformOverlay = true;
  bool _levelMatchEnabled = true;
};

}  // namespace corvane
