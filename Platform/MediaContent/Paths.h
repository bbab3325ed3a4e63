// Paths as plain byte strings.
#ifndef PLATFORM_MEDIA_CONTENT_PATHS_H
#define PLATFORM_MEDIA_CONTENT_PATHS_H

#include <string>

namespace platform {

// "a/b" + "c" = "a/b/c"; "" + "c" = "c".
std::string JoinPath(const std::string& folder, const std::string& name);

// The parts before and after the last slash; "" and the path itself when there is none.
std::string ParentPath(const std::string& path);
std::string LastPart(const std::string& path);

std::string WithoutSlash(std::string path);  // removes a trailing slash

// Resolves all links; "" with errno set when there is no such path.
std::string RealPath(const std::string& path);

// True when `path` is `folder` or lies below it; `below` is then the remaining path, "" for the
// folder itself.
bool IsInside(const std::string& path, const std::string& folder, std::string& below);

// The default title of a file: its name without the extension, as valid UTF-8.
std::string TitleFromName(const std::string& name);

}  // namespace platform

#endif
