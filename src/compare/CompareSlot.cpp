#include "compare/CompareSlot.h"

#include <algorithm>

namespace corvane {

namespace {

std::int64_t bytesOf(const SharedAudioBuffer& buffer) {
  if (!buffer) return 0;
  return static_cast<std::int64_t>(buffer->frameLength()) * buffer->channelCount() * static_cast<std::int64_t>(sizeof(float));
}

}  // namespace

CompareSlot CompareSlot::make(std::filesystem::path url, AudioFileModel model, SharedAudioBuffer buffer,
                              bool isLoadingMetrics) {
  CompareSlot slot;
  slot.id = QUuid::createUuid();
  slot.url = std::move(url);
  slot.model = std::move(model);
  slot.buffer = std::move(buffer);
  slot.isLoadingMetrics = isLoadingMetrics;
  return slot;
}

QString CompareSlot::letter(int index) {
  static const char* const kLetters[] = {"A", "B", "C", "D", "E", "F"};
  return QLatin1String(kLetters[std::clamp(index, 0, 5)]);
}

std::int64_t CompareSlot::residentBytes() const { return bytesOf(buffer) + bytesOf(diffBuffer); }

}  // namespace corvane
