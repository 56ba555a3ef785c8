// EditOutputGuard: refuses an output file that is the input file.
//
// Save As, exports and `corvane process` write new files; a chosen output that names the
// file being read would destroy it (and, streamed, read half-overwritten data). "Names" means
// any spelling: the same path after resolving ".", "..", repeated slashes and symbolic links,
// or a different path to the same file (a hard link, a bind mount), caught by device and
// inode.
//
// Thread class: any thread.
#pragma once

#include <filesystem>
#include <stdexcept>

namespace corvane {

class EditOutputGuardError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct EditOutputGuard {
  // Throws EditOutputGuardError ("Cannot overwrite the original file: ...") when `output` is
  // `input`. An output that doesn't exist yet passes unless its resolved path is the input's.
  static void assertNotInPlace(const std::filesystem::path& input, const std::filesystem::path& output);
};

}  // namespace corvane
