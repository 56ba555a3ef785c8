#include "displays/SelectionFields.h"

#include <algorithm>

namespace corvane {

SelectionFieldTexts selectionFieldTexts(const std::optional<SecondsRange>& selection, RulerMode mode, double sampleRate) {
  if (!selection) return {"\u2014", "\u2014", "\u2014"};
  return {formatPosition(selection->lower, mode, sampleRate), formatPosition(selection->upper, mode, sampleRate),
          formatPosition(selection->upper - selection->lower, mode, sampleRate)};
}

std::optional<SecondsRange> commitSelectionField(SelectionField field, std::string_view text,
                                                 const std::optional<SecondsRange>& selection, double duration,
                                                 double sampleRate, RulerMode mode) {
  const auto parsed = parsePosition(text, mode, sampleRate);
  if (!parsed || !(sampleRate > 0.0)) return std::nullopt;
  const double t = *parsed;
  const double m = 1.0 / sampleRate;
  duration = std::max(duration, 0.0);
  switch (field) {
    case SelectionField::in: {
      const double start = std::clamp(t, 0.0, duration);
      if (!selection) return SecondsRange{start, std::min(start + m, duration)};
      double end = selection->upper;
      if (end < start + m) end = std::min(start + m, duration);
      return SecondsRange{start, end};
    }
    case SelectionField::out: {
      const double end = std::clamp(t, 0.0, duration);
      if (!selection) return SecondsRange{0.0, end};
      double start = selection->lower;
      if (start > end - m) start = std::max(end - m, 0.0);
      return SecondsRange{start, end};
    }
    case SelectionField::length: {
      const double length = std::max(t, m);
      if (!selection) return SecondsRange{0.0, std::min(length, duration)};
      return SecondsRange{selection->lower, std::min(selection->lower + length, duration)};
    }
  }
  return std::nullopt;
}

}  // namespace corvane
