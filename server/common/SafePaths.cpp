// Path confinement for URLs and module file paths.
#include "common/SafePaths.h"

#include <system_error>

namespace fs = std::filesystem;

namespace kiv
{

bool isInsideFolder(const fs::path& folder, const fs::path& path)
{
    auto folderText = folder.lexically_normal().string();
    auto pathText = path.lexically_normal().string();
    while (folderText.size() > 1 && folderText.back() == '/')
        folderText.pop_back();
    if (pathText == folderText)
        return true;
    if (folderText == "/")
        return !pathText.empty() && pathText[0] == '/';
    return pathText.size() > folderText.size() && pathText.compare(0, folderText.size(), folderText) == 0 &&
           pathText[folderText.size()] == '/';
}

namespace
{

std::optional<fs::path> confine(const fs::path& folder, const fs::path& candidate)
{
    std::error_code error;
    fs::path realFolder = fs::canonical(folder, error);
    if (error)
        return std::nullopt;
    fs::path real = fs::weakly_canonical(candidate, error);
    if (error)
        return std::nullopt;
    if (!isInsideFolder(realFolder, real))
        return std::nullopt;
    return real;
}

// weakly_canonical follows links only up to the first component that does not exist; what
// comes after it is normalised lexically, so "missing/../link/x" keeps an unresolved link.
// Every component between the folder and the end must therefore not be a link (a dangling
// link or one reached that way), else writing through it could leave the folder.
bool hasNoLinkBelow(const fs::path& folder, const fs::path& resolved)
{
    std::error_code error;
    fs::path realFolder = fs::canonical(folder, error);
    if (error)
        return false;
    fs::path current = realFolder;
    for (const auto& component : resolved.lexically_relative(realFolder))
    {
        if (component == ".")
            continue;
        current /= component;
        fs::file_status status = fs::symlink_status(current, error);
        if (fs::is_symlink(status))
            return false;
        if (!fs::exists(status))
            break; // nothing below a missing component exists either
    }
    return true;
}

} // namespace

std::optional<fs::path> resolveUrlPath(const fs::path& root, std::string_view urlPath)
{
    if (urlPath.empty() || urlPath[0] != '/')
        return std::nullopt;
    fs::path relative;
    size_t start = 1;
    while (start <= urlPath.size())
    {
        size_t end = urlPath.find('/', start);
        if (end == std::string_view::npos)
            end = urlPath.size();
        std::string_view segment = urlPath.substr(start, end - start);
        if (segment == "..")
            return std::nullopt;
        if (segment.find('\0') != std::string_view::npos || segment.find('\\') != std::string_view::npos)
            return std::nullopt;
        if (!segment.empty() && segment != ".")
            relative /= fs::path(std::string(segment));
        start = end + 1;
    }
    return confine(root, root / relative);
}

std::optional<fs::path> resolveFileInFolder(const fs::path& folder, std::string_view path)
{
    if (path.empty() || path.find('\0') != std::string_view::npos)
        return std::nullopt;
    fs::path given{std::string(path)};
    fs::path candidate = given.is_absolute() ? given : folder / given;
    auto resolved = confine(folder, candidate);
    if (!resolved || !hasNoLinkBelow(folder, *resolved))
        return std::nullopt;
    return resolved;
}

} // namespace kiv
