// The selection bar under the waveform: IN, OUT and LEN as the user reads and types them.
//
// A committed field changes the selection by these rules, with t the parsed seconds and one
// frame m = 1 / sampleRate as the shortest selection:
//   IN   start = t held to 0 ... duration; the end stays, raised to start + m where it would fall
//        behind (at most duration). Without a selection: start ... start + m.
//   OUT  end = t held to 0 ... duration; the start stays, lowered to end − m where it would pass
//        it (at least 0). Without a selection: 0 ... end.
//   LEN  length = max(t, m); end = start + length, at most duration. Without a selection: 0 ...
//        length.
// Text that doesn't parse (parsePosition) leaves the selection as it was.
//
// Thread class: pure functions, any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "core/LevelViolations.h"
#include "displays/TimeFormat.h"

namespace corvane {

enum class SelectionField { in, out, length };

struct SelectionFieldTexts {
  std::string in, out, length;  // "—" each while there is no selection
};

SelectionFieldTexts selectionFieldTexts(const std::optional<SecondsRange>& selection, RulerMode mode, double sampleRate);

// The selection after committing `text` in `field`; nullopt when the text doesn't parse (the
// selection stays), else the new selection.
std::optional<SecondsRange> commitSelectionField(SelectionField field, std::string_view text,
                                                 const std::optional<SecondsRange>& selection, double duration,
                                                 double sampleRate, RulerMode mode);

}  // namespace corvane
