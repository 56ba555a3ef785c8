// The private folder for Corvane's temporary audio: undo snapshots, streaming edit results,
// chain renders. It lives on disk under $XDG_CACHE_HOME/Corvane/tmp (else ~/.cache/...),
// mode 0700: not in /run/user, a small tmpfs where a whole-file snapshot of a long recording
// would fail, and never in a folder that another user or another program could purge.
//
// Thread class: any thread. Errors: std::runtime_error with a user-facing text when the
// folder can't be made or isn't ours.
#pragma once

#include <filesystem>
#include <string_view>

namespace corvane {

// The folder, created (with its parents) on first use and on every call after it was
// removed. Its mode is forced to 0700.
std::filesystem::path privateTemporaryDirectory();

// A fresh path "<folder>/corvane-<tag>-<UUID>.<extension>" inside privateTemporaryDirectory().
// The file is not created.
std::filesystem::path makeTemporaryFilePath(std::string_view tag, std::string_view extension);

// A random RFC 4122 version-4 UUID in upper-case canonical form.
std::string makeUUIDString();

}  // namespace corvane
