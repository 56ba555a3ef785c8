#include "headless/files/EditOutputGuard.h"

#include <sys/stat.h>

namespace corvane {

void EditOutputGuard::assertNotInPlace(const std::filesystem::path& input, const std::filesystem::path& output) {
  std::error_code error;
  const auto resolvedInput = std::filesystem::weakly_canonical(std::filesystem::absolute(input, error), error);
  std::error_code outputError;
  const auto resolvedOutput = std::filesystem::weakly_canonical(std::filesystem::absolute(output, outputError), outputError);
  bool same = !error && !outputError && resolvedInput == resolvedOutput;
  struct stat in {};
  struct stat out {};
  if (!same && ::stat(input.c_str(), &in) == 0 && ::stat(output.c_str(), &out) == 0) {
    same = in.st_dev == out.st_dev && in.st_ino == out.st_ino;
  }
  if (same) {
    throw EditOutputGuardError("Cannot overwrite the original file: " + output.string() +
                               " is the file being edited. Choose a different name or location.");
  }
}

}  // namespace corvane
