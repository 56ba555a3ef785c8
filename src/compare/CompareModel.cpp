#include "compare/CompareModel.h"

#include <algorithm>
#include <system_error>

namespace corvane {

CompareModel::CompareModel(QObject* parent) : QObject(parent) {}

bool CompareModel::sameFile(const std::filesystem::path& a, const std::filesystem::path& b) {
  std::error_code error;
  if (std::filesystem::equivalent(a, b, error) && !error) return true;
  return std::filesystem::absolute(a, error).lexically_normal() == std::filesystem::absolute(b, error).lexically_normal();
}

std::optional<int> CompareModel::indexOf(const std::filesystem::path& url) const {
  for (std::size_t i = 0; i < _compareSlots.size(); ++i) {
    if (sameFile(_compareSlots[i].url, url)) return static_cast<int>(i);
  }
  return std::nullopt;
}

std::int64_t CompareModel::residentCompareBytes() const {
  std::int64_t bytes = 0;
  for (const CompareSlot& slot : _compareSlots) bytes += slot.residentBytes();
  return bytes;
}

void CompareModel::setActiveSlotIndex(int index) {
  index = std::clamp(index, 0, std::max(slotCount() - 1, 0));
  if (index == _activeSlotIndex) return;
  _activeSlotIndex = index;
  emit activeSlotIndexChanged();
}

std::optional<SlotMetrics> CompareModel::activeSlotMetrics() const {
  if (_activeSlotIndex < 0 || _activeSlotIndex >= slotCount()) return std::nullopt;
  return _compareSlots[static_cast<std::size_t>(_activeSlotIndex)].metrics;
}

void CompareModel::setShowWaveformOverlay(bool show) {
  if (show == _showWaveformOverlay) return;
  _showWaveformOverlay = show;
  emit showWaveformOverlayChanged();
}

void CompareModel::setLevelMatchEnabled(bool enabled) {
  if (enabled == _levelMatchEnabled) return;
  _levelMatchEnabled = enabled;
  emit levelMatchEnabledChanged();
}

void CompareModel::placeReference(CompareSlot slot) {
  if (_compareSlots.empty()) {
    _compareSlots.push_back(std::move(slot));
  } else {
    forgetCaches(_compareSlots.front().id);
    _compareSlots.front() = std::move(slot);
  }
  emit compareSlotsChanged();
  setActiveSlotIndex(0);
}

void CompareModel::appendSlot(CompareSlot slot) {
  _compareSlots.push_back(std::move(slot));
  emit compareSlotsChanged();
}

void CompareModel::dropExtraSlots() {
  if (_compareSlots.size() < 2) return;
  for (std::size_t i = 1; i < _compareSlots.size(); ++i) forgetCaches(_compareSlots[i].id);
  _compareSlots.resize(1);
  emit compareSlotsChanged();
  setActiveSlotIndex(0);
}

void CompareModel::removeSlotsOf(const std::filesystem::path& url) {
  const auto first = std::remove_if(_compareSlots.begin(), _compareSlots.end(), [&](const CompareSlot& slot) {
    if (!sameFile(slot.url, url)) return false;
    forgetCaches(slot.id);
    return true;
  });
  if (first == _compareSlots.end()) return;
  _compareSlots.erase(first, _compareSlots.end());
  emit compareSlotsChanged();
  setActiveSlotIndex(_activeSlotIndex);
}

bool CompareModel::landMetrics(const std::filesystem::path& url, SlotMetrics metrics) {
  const auto index = indexOf(url);
  if (!index) return false;
  CompareSlot& slot = _compareSlots[static_cast<std::size_t>(*index)];
  slot.metrics = std::move(metrics);
  slot.isLoadingMetrics = false;
  emit compareSlotsChanged();
  return true;
}

void CompareModel::forgetCaches(const QUuid& id) {
  slotLiveSpectrogramColumns.erase(id);
  slotOfflineSpectrogramColumns.erase(id);
  slotSelectionAnalysis.erase(id);
}

}  // namespace corvane
