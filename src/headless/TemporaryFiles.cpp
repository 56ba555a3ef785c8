#include "headless/TemporaryFiles.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <stdexcept>
#include <string>

namespace corvane {
namespace {

std::filesystem::path cacheHome() {
  if (const char* xdg = std::getenv("XDG_CACHE_HOME"); xdg && *xdg == '/') return xdg;
  if (const char* home = std::getenv("HOME"); home && *home) {
    return std::filesystem::path(home) / ".cache";
  }
  throw std::runtime_error("Corvane can't find a folder for temporary files: neither XDG_CACHE_HOME nor HOME is set.");
}

}  // namespace

std::filesystem::path privateTemporaryDirectory() {
  const auto dir = cacheHome() / "Corvane" / "tmp";
  std::error_code error;
  std::filesystem::create_directories(dir, error);
  struct stat info {};
  if (::lstat(dir.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
    throw std::runtime_error("Corvane can't create its temporary folder " + dir.string() + ".");
  }
  if (info.st_uid != ::getuid()) {
    throw std::runtime_error("Corvane's temporary folder " + dir.string() + " belongs to another user.");
  }
  if ((info.st_mode & 0777) != 0700) ::chmod(dir.c_str(), 0700);
  return dir;
}

std::string makeUUIDString() {
  thread_local std::mt19937_64 generator{std::random_device{}()};
  std::uniform_int_distribution<std::uint64_t> distribution;
  std::uint64_t high = distribution(generator);
  std::uint64_t low = distribution(generator);
  high = (high & 0xFFFFFFFFFFFF0FFFULL) | 0x0000000000004000ULL;  // version 4
  low = (low & 0x3FFFFFFFFFFFFFFFULL) | 0x8000000000000000ULL;    // RFC 4122 variant
  char text[37];
  std::snprintf(text, sizeof text, "%08X-%04X-%04X-%04X-%012llX",
                static_cast<unsigned>(high >> 32), static_cast<unsigned>((high >> 16) & 0xFFFF),
                static_cast<unsigned>(high & 0xFFFF), static_cast<unsigned>(low >> 48),
                static_cast<unsigned long long>(low & 0xFFFFFFFFFFFFULL));
  return text;
}

std::filesystem::path makeTemporaryFilePath(std::string_view tag, std::string_view extension) {
  std::string name = "corvane-";
  name += tag;
  name += '-';
  name += makeUUIDString();
  name += '.';
  name += extension;
  return privateTemporaryDirectory() / name;
}

}  // namespace corvane
