#include "headless/files/InPlaceSave.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "headless/TemporaryFiles.h"
#include "headless/files/AudioError.h"
#include "headless/files/AudioFileIdentity.h"
#include "headless/files/AudioFileReader.h"
#include "headless/files/AudioFileWriter.h"
#include "headless/files/FileDescriptor.h"

namespace corvane {

namespace {

namespace fs = std::filesystem;

std::string unchanged(const fs::path& target) {
  std::string text = target.filename().string();
  text.insert(0, 1, ' ');
  return text.append(" is unchanged.");
}

// The file a path finally names, every symbolic link resolved.
fs::path resolveTarget(const fs::path& url) {
  char resolved[PATH_MAX];
  if (!::realpath(url.c_str(), resolved)) {
    const int error = errno;
    if (error == ENOENT) {
      throw InPlaceSaveError(url.filename().string() + " can't be found any more; it may have been moved or deleted.");
    }
    throw InPlaceSaveError(url.filename().string() + " can't be reached: " + std::strerror(error) + ".");
  }
  return fs::path(resolved);
}

// Removes temporary files of earlier saves of this target whose process is gone.
void removeStaleTemporaries(const fs::path& target) {
  const std::string prefix = InPlaceSave::temporaryPrefix(target);
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(target.parent_path(), error)) {
    const std::string name = entry.path().filename().string();
    if (name.rfind(prefix, 0) != 0 || name.size() < 4 || name.compare(name.size() - 4, 4, ".tmp") != 0) continue;
    const long pid = std::strtol(name.c_str() + prefix.size(), nullptr, 10);
    if (pid <= 0 || pid == ::getpid()) continue;
    if (::kill(static_cast<pid_t>(pid), 0) == -1 && errno == ESRCH) fs::remove(entry.path(), error);
  }
}

void syncFolder(const fs::path& folder) {
  detail::UniqueFd fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // The rename has happened; a folder that can't be synced (some network file systems) leaves
  // it to the system's own write-back, which is all those file systems offer.
  if (fd) ::fsync(fd.get());
}

}  // namespace

std::string InPlaceSave::temporaryPrefix(const fs::path& target) {
  std::string prefix = target.filename().string();
  prefix.insert(0, 1, '.');
  return prefix.append(".corvane-save-");
}

void InPlaceSave::write(const AudioBuffer& buffer, const fs::path& url) {
  const fs::path target = resolveTarget(url);
  struct stat original {};
  if (::stat(target.c_str(), &original) != 0 || !S_ISREG(original.st_mode)) {
    throw InPlaceSaveError(target.filename().string() + " is not a regular file, so Corvane can't save over it.");
  }
  const auto identity = AudioFileIdentity::inspect(target);
  if (!identity || !identity->isRewritableInPlace || !identity->container || !identity->pcmEncoding) {
    const std::string format = identity ? identity->formatLabel : "of no format Corvane knows";
    throw InPlaceSaveError(target.filename().string() + " is " + format +
                           " inside, which Corvane can't rewrite in place." + unchanged(target));
  }

  PCMWriteSettings settings;
  try {
    settings = PCMWriteSettings::make(*identity->container, AudioStreamFormat::of(buffer), *identity->pcmEncoding);
  } catch (const AudioWriteError& error) {
    throw InPlaceSaveError(std::string(error.what()) + unchanged(target));
  }
  settings.expectedFrames = buffer.frameLength();

  removeStaleTemporaries(target);
  const fs::path folder = target.parent_path();
  const fs::path temporary =
      folder / (temporaryPrefix(target) + std::to_string(::getpid()) + "-" + makeUUIDString() + ".tmp");
  detail::UniqueFd fd(::open(temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!fd) {
    const int error = errno;
    throw InPlaceSaveError("Corvane can't create a file in the folder of " + target.filename().string() + " (" +
                           std::strerror(error) + "), so it can't replace the file safely." + unchanged(target));
  }
  auto discard = [&](const std::string& why) {
    fd.reset();
    ::unlink(temporary.c_str());
    throw InPlaceSaveError(why + unchanged(target));
  };

  // The new file takes the original's permissions, and its owner where the process may.
  if (::fchmod(fd.get(), original.st_mode & 07777) != 0) {
    discard("Corvane couldn't give the new file the permissions of " + target.filename().string() + ": " +
            std::strerror(errno) + ".");
  }
  if (original.st_uid != ::geteuid() || original.st_gid != ::getegid()) {
    [[maybe_unused]] const int ignored = ::fchown(fd.get(), original.st_uid, original.st_gid);
  }

  try {
    auto writer = AudioFileWriter::create(fd.get(), settings, target);
    writer->write(buffer);
    writer->finish();
  } catch (const AudioWriteError& error) {
    discard(error.what());
  }
  if (::fsync(fd.get()) != 0) {
    discard("The new audio couldn't be written to the disk: " + std::string(std::strerror(errno)) + ".");
  }
  // Read the header back: what is about to replace the original must open as the same audio.
  try {
    auto check = AudioFileReader::open(temporary);
    if (check->channelCount() != buffer.channelCount() || check->length() != buffer.frameLength() ||
        check->sampleRate() != buffer.sampleRate()) {
      discard("The new file didn't read back as written.");
    }
  } catch (const AudioDecodeError&) {
    discard("The new file didn't read back as written.");
  }
  const int raw = fd.release();
  if (::close(raw) != 0) {
    const int error = errno;
    ::unlink(temporary.c_str());
    throw InPlaceSaveError("The new audio couldn't be written to the disk: " + std::string(std::strerror(error)) + "." +
                           unchanged(target));
  }
  if (::rename(temporary.c_str(), target.c_str()) != 0) {
    const int error = errno;
    ::unlink(temporary.c_str());
    throw InPlaceSaveError("The new file couldn't replace " + target.filename().string() + ": " + std::strerror(error) +
                           "." + unchanged(target));
  }
  syncFolder(folder);
}

}  // namespace corvane
