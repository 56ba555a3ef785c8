#include "cli/TargetVerdicts.h"

#include <algorithm>
#include <cmath>
#include <ostream>

#include "cli/CliSupport.h"
#include "core/Decibels.h"
#include "core/LoudnessTargetEvaluator.h"
#include "core/LoudnessTargetSelection.h"

namespace corvane::cli {

namespace {

std::vector<LoudnessTarget> targetsOf(LoudnessTargetMode mode) {
  return LoudnessTargetSelection::defaultSelection().withMode(mode).activeTargets();
}

// Characters as a terminal shows them: UTF-8 continuation bytes take no column.
std::size_t displayWidth(const std::string& text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  }));
}

std::string padded(const std::string& text, std::size_t width) {
  const std::size_t shown = displayWidth(text);
  return shown >= width ? text : text + std::string(width - shown, ' ');
}

std::string_view className(LoudnessVerdictClass verdictClass) {
  switch (verdictClass) {
    case LoudnessVerdictClass::playback: return "playback";
    case LoudnessVerdictClass::deliveryPass: return "pass";
    case LoudnessVerdictClass::deliveryFail: return "fail";
    case LoudnessVerdictClass::noReading: return "noReading";
  }
  return "noReading";
}

}  // namespace

std::vector<float> channelRMSDBFS(const AudioBuffer& buffer) {
  std::vector<float> levels;
  const FrameCount frames = buffer.frameLength();
  for (int c = 0; c < buffer.channelCount(); ++c) {
    const float* x = buffer.channel(c);
    double sum = 0.0;
    for (FrameCount i = 0; i < frames; ++i) {
      if (std::isfinite(x[i])) sum += static_cast<double>(x[i]) * x[i];
    }
    const double meanSquare = frames > 0 ? sum / static_cast<double>(frames) : 0.0;
    levels.push_back(static_cast<float>(linearToDB(std::sqrt(meanSquare))));
  }
  return levels;
}

void printTargetVerdicts(std::ostream& out, LoudnessTargetMode mode,
                         const LoudnessMeasurement& measurement) {
  const auto targets = targetsOf(mode);
  out << "Targets (" << label(mode) << "):\n";
  if (targets.empty()) {
    out << "  none selected\n";
    return;
  }
  std::size_t nameWidth = 0;
  for (const auto& target : targets) nameWidth = std::max(nameWidth, displayWidth(target.displayName));
  for (const auto& target : targets) {
    const auto evaluation = LoudnessTargetEvaluator::evaluate(target, measurement);
    std::string verdict = evaluation.verdictText();
    if (evaluation.isFlagged()) verdict += " ⚠";
    out << "  " << padded(target.displayName, nameWidth + 2) << padded(verdict, 11)
        << referenceLine(target) << '\n';
  }
}

std::string targetVerdictsJsonMembers(LoudnessTargetMode mode,
                                      const LoudnessMeasurement& measurement) {
  std::string json = "  \"loudnessMode\": " + jsonString(rawValue(mode)) + ",\n  \"targets\": [";
  bool first = true;
  for (const auto& target : targetsOf(mode)) {
    const auto e = LoudnessTargetEvaluator::evaluate(target, measurement);
    json += first ? "\n" : ",\n";
    first = false;
    json += "    {\"id\": " + jsonString(target.id) +
            ", \"name\": " + jsonString(target.displayName) +
            ", \"reference\": " + jsonString(referenceLine(target)) +
            ", \"verdict\": " + jsonString(e.verdictText()) +
            ", \"verdictClass\": " + jsonString(className(e.verdictClass)) +
            ", \"passed\": " + (e.passed() ? "true" : "false") +
            ", \"flagged\": " + (e.isFlagged() ? "true" : "false") +
            ", \"reading\": " + jsonNumber(e.readingLevel) +
            ", \"playbackGainDB\": " +
            (e.playbackGainDB ? jsonNumber(*e.playbackGainDB) : std::string("null")) + "}";
  }
  json += first ? "]" : "\n  ]";
  return json;
}

}  // namespace corvane::cli
