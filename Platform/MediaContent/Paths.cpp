#include "MediaContent/Paths.h"

#include <glib.h>
#include <limits.h>
#include <stdlib.h>

namespace platform {

std::string JoinPath(const std::string& folder, const std::string& name) {
    return folder.empty() ? name : folder + '/' + name;
}

std::string ParentPath(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

std::string LastPart(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string WithoutSlash(std::string path) {
    while (!path.empty() && path.back() == '/') path.pop_back();
    return path;
}

std::string RealPath(const std::string& path) {
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) ? resolved : "";
}

bool IsInside(const std::string& path, const std::string& folder, std::string& below) {
    if (path == folder) {
        below.clear();
        return true;
    }
    if (path.compare(0, folder.size() + 1, folder + '/') != 0) return false;
    below = path.substr(folder.size() + 1);
    return true;
}

std::string TitleFromName(const std::string& name) {
    const size_t dot = name.rfind('.');
    const std::string stem = dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
    gchar* valid = g_utf8_make_valid(stem.data(), static_cast<gssize>(stem.size()));
    std::string title = valid;
    g_free(valid);
    return title;
}

}  // namespace platform
