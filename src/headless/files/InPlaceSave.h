// InPlaceSave: replaces an audio file's samples without ever putting the original at risk.
//
// The new file is written beside the original (same folder, so the same file system) under a
// hidden temporary name, synced to disk, checked by reading its header back, and only then
// renamed over the original; the folder is synced so that the rename itself survives a power
// cut. Until the rename the original is untouched; the rename is atomic, so after a crash, a
// kill, a full disk or any error the file on disk is either the complete original or the
// complete new file, never a mixture and never missing.
//
// What is kept: the file's true container (from its bytes, so a misnamed AIFF stays AIFF),
// its sample encoding and bit depth, its permission bits and (where the process may) its
// owner. A symbolic link is followed and its target replaced; the link stays. A WAV whose new
// data passes 4 GiB becomes RF64. The buffer supplies the rate, channel count and positions.
// Byte order follows PCMWriteSettings (a big-endian CAF comes back little-endian, a 'sowt'
// AIFF-C big-endian 'NONE'): the samples are the same, only their storage is normalised.
// Not kept: metadata chunks (BWF, iXML, tags) and extended attributes; other hard links to
// the file keep the old content (the name now points to a new file).
//
// Temporary files of a save that was killed (".<name>.corvane-save-<pid>-<id>.tmp") are
// removed by the next save of the same file once their process is gone.
//
// Thread class: any thread; blocks for the whole write.
#pragma once

#include <filesystem>
#include <stdexcept>

#include "core/AudioBuffer.h"

namespace corvane {

// A save that failed and left the original as it was; what() says why, in a sentence that
// ends by saying the file is unchanged.
class InPlaceSaveError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct InPlaceSave {
  // Writes the buffer's frameLength() frames over `url`. Throws InPlaceSaveError when the
  // file can't be found, isn't a file Corvane rewrites in place (AudioFileIdentity::
  // isRewritableInPlace), or anything on the way fails (no room, no permission, a file too
  // large for its container or for this process).
  static void write(const AudioBuffer& buffer, const std::filesystem::path& url);

  // The prefix of the temporary files a save of `target` makes, for tests and clean-up:
  // ".<file name>.corvane-save-".
  static std::string temporaryPrefix(const std::filesystem::path& target);
};

}  // namespace corvane
