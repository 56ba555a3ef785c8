#include "editing/EditEngine.h"

#include <QUrl>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <system_error>

#include "headless/TemporaryFiles.h"
#include "headless/files/AudioFileReader.h"
#include "headless/files/AudioFileWriter.h"
#include "headless/files/PCMWriteSettings.h"
#include "playback/Transport.h"
#include "session/AlertPresenter.h"
#include "session/AudioEngine.h"
#include "session/SettingsStore.h"

namespace corvane {

namespace {

void removeQuietly(const std::filesystem::path& file) {
  std::error_code ignored;
  std::filesystem::remove(file, ignored);
}

// A shared flock on an open descriptor of the file, released when the descriptor closes
// (also when the process dies, so a crashed session's files become purgeable).
std::shared_ptr<void> lockSnapshotFile(const std::filesystem::path& file) {
  const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return nullptr;
  ::flock(fd, LOCK_SH);
  return std::shared_ptr<void>(new int(fd), [](void* p) {
    const auto* held = static_cast<int*>(p);
    ::close(*held);
    delete held;
  });
}

// Whether a running session holds the file: its exclusive lock can't be had.
bool heldByASession(const std::filesystem::path& file) {
  const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool held = ::flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  ::close(fd);
  return held;
}

}  // namespace

EditEngine::EditEngine(AudioEngine& engine, QObject* parent) : QObject(parent), _engine(engine) {
  _confirmationTimer.setSingleShot(true);
  _confirmationTimer.setInterval(kConfirmationMs);
  connect(&_confirmationTimer, &QTimer::timeout, this, [this] { setEditConfirmation(std::nullopt); });
}

EditEngine::~EditEngine() {
  // The snapshots die with the history: nothing of this session is left on disk.
  for (Snapshot& s : _undoStack) removeQuietly(s.url);
  for (Snapshot& s : _redoStack) removeQuietly(s.url);
}

void EditEngine::setIsDirty(bool dirty) {
  if (dirty == _isDirty) return;
  _isDirty = dirty;
  emit isDirtyChanged();
}

void EditEngine::notify(Stack which) {
  if (which == Stack::undo) {
    emit undoStackChanged();
  } else {
    emit redoStackChanged();
  }
}

// ---- Snapshots on disk --------------------------------------------------------------------------

bool EditEngine::push(const AudioBuffer& buffer, const AudioFileModel& model, Stack onto) {
  std::filesystem::path url;
  try {
    url = privateTemporaryDirectory() / (std::string(kSnapshotPrefix) + makeUUIDString() + ".wav");
    // Float 32 whatever the source's depth: the snapshot is bit-exact with the live buffer.
    PCMWriteSettings settings =
        PCMWriteSettings::make(AudioContainer::wav, AudioStreamFormat::of(buffer), PCMEncoding::float32);
    settings.expectedFrames = buffer.frameLength();
    auto writer = AudioFileWriter::create(url, settings);
    writer->write(buffer);
    writer->finish();
  } catch (...) {
    // A full disk costs the undo step of this edit, not the edit.
    if (!url.empty()) removeQuietly(url);
    return false;
  }
  AudioFileModel description = model;
  description.pcmBuffer.reset();
  auto& entries = stack(onto);
  entries.push_back(Snapshot{url, std::move(description), buffer.channelPositions(), lockSnapshotFile(url)});
  while (entries.size() > static_cast<std::size_t>(kMaxHistoryDepth)) {
    removeQuietly(entries.front().url);
    entries.erase(entries.begin());
  }
  notify(onto);
  return true;
}

std::optional<EditEngine::Restored> EditEngine::pop(Stack from) {
  auto& entries = stack(from);
  if (entries.empty()) return std::nullopt;
  Snapshot snapshot = std::move(entries.back());
  entries.pop_back();
  notify(from);
  SharedAudioBuffer buffer = readBuffer(snapshot.url);
  // Read or not, the snapshot has left the history, and its file with it.
  removeQuietly(snapshot.url);
  if (!buffer) return std::nullopt;
  if (snapshot.channelPositions.size() == static_cast<std::size_t>(buffer->channelCount())) {
    buffer->setChannelPositions(snapshot.channelPositions);
  }
  AudioFileModel model = std::move(snapshot.model);
  model.pcmBuffer = buffer;
  return Restored{std::move(buffer), std::move(model)};
}

void EditEngine::clear(Stack which) {
  auto& entries = stack(which);
  if (entries.empty()) return;
  for (const Snapshot& s : entries) removeQuietly(s.url);
  entries.clear();
  notify(which);
}

SharedAudioBuffer EditEngine::readBuffer(const std::filesystem::path& url) {
  try {
    auto reader = AudioFileReader::open(url);
    const FrameCount length = reader->length();
    if (length <= 0 || length > static_cast<FrameCount>(std::numeric_limits<std::uint32_t>::max())) return nullptr;
    auto buffer = AudioBuffer::create(reader->channelCount(), length, reader->sampleRate());
    FrameCount done = 0;
    while (done < length) {
      std::vector<float*> at(static_cast<std::size_t>(buffer->channelCount()));
      for (int c = 0; c < buffer->channelCount(); ++c) at[static_cast<std::size_t>(c)] = buffer->channel(c) + done;
      const FrameCount got = reader->read(at.data(), length - done);
      if (got <= 0) break;
      done += got;
    }
    // A snapshot that lost frames on the way would undo into other audio.
    if (done != length) return nullptr;
    return buffer;
  } catch (...) {
    return nullptr;
  }
}

void EditEngine::purgeStaleSnapshots() {
  try {
    std::error_code error;
    std::filesystem::directory_iterator it(privateTemporaryDirectory(), error);
    if (error) return;
    std::vector<std::filesystem::path> stale;
    for (const auto& entry : it) {
      if (entry.path().filename().string().starts_with(kSnapshotPrefix)) stale.push_back(entry.path());
    }
    for (const auto& file : stale) {
      if (!heldByASession(file)) removeQuietly(file);
    }
  } catch (...) {
    // A folder that can't be listed keeps its leftovers until a later start.
  }
}

// ---- History ------------------------------------------------------------------------------------

void EditEngine::recordEdit(const AudioBuffer& buffer, const AudioFileModel& model) {
  push(buffer, model, Stack::undo);
  clear(Stack::redo);
}

std::optional<EditEngine::Restored> EditEngine::undo(const AudioBuffer& current, const AudioFileModel& model) {
  if (_undoStack.empty()) return std::nullopt;
  push(current, model, Stack::redo);
  return pop(Stack::undo);
}

std::optional<EditEngine::Restored> EditEngine::redo(const AudioBuffer& current, const AudioFileModel& model) {
  if (_redoStack.empty()) return std::nullopt;
  push(current, model, Stack::undo);
  return pop(Stack::redo);
}

void EditEngine::reset() {
  clear(Stack::undo);
  clear(Stack::redo);
  setIsDirty(false);
}

void EditEngine::dropNewestUndo() {
  if (_undoStack.empty()) return;
  removeQuietly(_undoStack.back().url);
  _undoStack.pop_back();
  notify(Stack::undo);
}

// ---- Undo, redo, discard ------------------------------------------------------------------------

void EditEngine::undoLastEdit() { restore(true); }
void EditEngine::redoLastEdit() { restore(false); }

void EditEngine::restore(bool undoing) {
  const SharedAudioBuffer current = _engine.pcmBuffer();
  if (!current || !_engine.loadedFile()) return;
  const AudioFileModel model = *_engine.loadedFile();
  std::optional<Restored> restored = undoing ? undo(*current, model) : redo(*current, model);
  if (!restored) return;
  _engine.transport().pause();
  const bool lengthChanged = restored->buffer->frameLength() != current->frameLength();
  swapEditedBuffer(std::move(restored->buffer), std::move(restored->model), lengthChanged);
  // The chapter levels are measured again here once the chapter subsystem exists.
}

void EditEngine::discardSessionEdits() {
  if (!_isDirty || !_engine.loadedFile()) return;
  const SessionAlert alert{SessionAlert::Style::warning, QStringLiteral("Discard Edits"),
                           QStringLiteral("Revert to the last saved version? Unsaved edits will be lost."),
                           {QStringLiteral("Discard"), QStringLiteral("Cancel")}};
  if (_engine.presentAlert(alert) != 0) return;
  _engine.loadFile(QUrl::fromLocalFile(QString::fromStdString(_engine.loadedFile()->url.string())));
}

void EditEngine::presentInPlaceWriteRefused() { _engine.presentInPlaceWriteRefused(); }

// ---- Confirmation -------------------------------------------------------------------------------

void EditEngine::setEditConfirmation(OptionalEditConfirmation confirmation) {
  if (confirmation == _editConfirmation) return;
  _editConfirmation = std::move(confirmation);
  emit editConfirmationChanged();
  // The toast stays up from the newest confirmation on.
  if (_editConfirmation) {
    _confirmationTimer.start();
  } else {
    _confirmationTimer.stop();
  }
}

void EditEngine::confirm(const QString& text) { setEditConfirmation(EditConfirmation{QUuid::createUuid(), text}); }

}  // namespace corvane
