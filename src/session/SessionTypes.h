// The small value types of the session's road: why a session is about to be replaced, the
// request that raises the raw-PCM import sheet, and the immutable snapshots in which the
// models publish large arrays.
//
// Thread class: plain values, any thread.
#pragma once

#include <QString>
#include <QUuid>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>

#include "headless/files/RawPCMFormat.h"

namespace corvane {

// The reason the session is about to be replaced: opening something (its label names what,
// "the new file", "the new files", "the generated audio") or quitting.
struct SessionReplaceAction {
  enum class Kind { open, quit };
  Kind kind = Kind::open;
  QString label;  // for open

  static SessionReplaceAction open(QString label) { return {Kind::open, std::move(label)}; }
  static SessionReplaceAction quit() { return {Kind::quit, {}}; }
};

// A file the decoders couldn't read, offered to the raw-PCM import sheet: the sheet stands
// exactly as long as the session holds one of these.
struct RawImportRequest {
  QUuid id;
  std::filesystem::path url;
  std::int64_t fileSize = 0;               // bytes
  std::optional<RawPCMFormat> prefill;     // the format that was tried, if one was
  std::optional<QString> note;             // why the sheet appears, if there is more to say

  friend bool operator==(const RawImportRequest&, const RawImportRequest&) = default;
};

// A large array published by a model: immutable once made, shared by every reader, replaced
// whole. Null and empty both mean "nothing".
template <typename T>
using Snapshot = std::shared_ptr<const T>;

template <typename T>
Snapshot<T> makeSnapshot(T value) {
  return std::make_shared<const T>(std::move(value));
}

// Whether two snapshots hold the same thing without comparing their contents: the same
// object, or nothing in both.
template <typename T>
bool sameSnapshot(const Snapshot<T>& a, const Snapshot<T>& b) {
  if (a == b) return true;
  const bool aEmpty = !a || a->empty();
  const bool bEmpty = !b || b->empty();
  return aEmpty && bEmpty;
}

}  // namespace corvane
