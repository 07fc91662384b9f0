// Keeps every file the host touches on behalf of a request inside the folder it belongs to:
// the site root for URLs, the region's data folder for module file paths. Symbolic links
// are followed before the check, so a link that points out of the folder is refused.
#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

namespace kiv
{

// True when path, after normalisation, is folder itself or lies below it. Both must be
// absolute and already canonical.
bool isInsideFolder(const std::filesystem::path& folder, const std::filesystem::path& path);

// Maps a decoded URL path ("/people/index.html") to a file below root. Refuses ".."
// segments, NUL bytes and backslashes outright, then refuses anything whose real location
// is outside root. The file need not exist.
std::optional<std::filesystem::path> resolveUrlPath(const std::filesystem::path& root,
                                                    std::string_view urlPath);

// Maps a file path given by a module (absolute, or relative to folder) to its physical
// location, which must lie inside folder after following ".." and symbolic links. The
// last components may not exist yet (a file about to be written); a component that is
// still a symbolic link after resolution (a dangling one, or one reached after a missing
// folder and "..") is refused because writing through it could leave the folder.
std::optional<std::filesystem::path> resolveFileInFolder(const std::filesystem::path& folder,
                                                         std::string_view path);

} // namespace kiv
