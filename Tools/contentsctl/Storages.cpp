#include "Storages.h"

#include <errno.h>
#include <sys/stat.h>

#include <algorithm>

#include "Failure.h"
#include "Text.h"

namespace contentsctl {
namespace {

constexpr char kListHint[] = "\"contentsctl storages\" lists what there is.";
// The service replaces the root of all USB storages with a token.
const std::string kRoot = "/opt/storage/usb";
const std::string kRootToken = "$USB_DIR";

std::string WithoutEndSlash(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

std::string Replaced(std::string path, const std::string& what, const std::string& by) {
    const size_t at = path.find(what);
    if (at != std::string::npos) path.replace(at, what.size(), by);
    return path;
}

std::string ClientPath(const std::string& path) {
    return WithoutEndSlash(Replaced(path, kRoot, kRootToken));
}

bool IsCalled(const Storage& storage, const std::string& name) {
    return storage.id == name || (!storage.label.empty() && storage.label == name) ||
           storage.mountPath == ClientPath(name);
}

std::vector<Storage> Called(const std::vector<Storage>& storages, const std::string& name) {
    std::vector<Storage> found;
    for (const auto& storage : storages)
        if (!name.empty() && IsCalled(storage, name)) found.push_back(storage);
    return found;
}

Storage TheOne(const std::vector<Storage>& found, const std::string& name) {
    if (found.empty()) throw Refused("no storage is called \"" + Printable(name) + "\"", kListHint);
    if (found.size() > 1)
        throw Refused("more than one storage is called \"" + Printable(name) + "\"",
                      "Give its id or its mount path instead.");
    if (found.front().id.empty())
        throw Refused("\"" + Printable(name) + "\" is not in the media database",
                      "Cameras are listed, but their pictures are not; a storage that has just "
                      "been plugged in takes a second or two.");
    return found.front();
}

}  // namespace

std::vector<Storage> ListStorages(Session& session) {
    const Json::Value answer = ParseJson(session.Execute("GetStorages"));
    if (!answer.isObject())
        throw Refused("the service could not list the storages", "Its log tells why.");
    std::vector<Storage> storages;
    for (const auto& item : answer["storages"])
        storages.push_back(
            {TextOf(item, "id"), TextOf(item, "partitionLabel"), TextOf(item, "mountPath"), item});
    return storages;
}

Storage FindStorage(Session& session, const std::string& name) {
    return TheOne(Called(ListStorages(session), name), name);
}

void CheckFolder(const Place& place) {
    const std::string root = Replaced(place.storage.mountPath, kRootToken, kRoot);
    const std::string folder = Replaced(place.folder, kRootToken, kRoot);
    struct stat facts {};
    if (stat(root.c_str(), &facts) != 0) return;
    const bool isThere = stat(folder.c_str(), &facts) == 0;
    if (!isThere && (errno == ENOENT || errno == ENOTDIR))
        throw Refused("there is no folder " + Printable(place.folder));
    if (isThere && !S_ISDIR(facts.st_mode))
        throw Refused(Printable(place.folder) + " is a file, not a folder");
}

Place FindPlace(Session& session, const std::string& name) {
    const auto storages = ListStorages(session);
    const std::string whole = WithoutEndSlash(name);
    for (size_t length = whole.size(); length != std::string::npos && length > 0;
         length = whole.rfind('/', length - 1)) {
        const auto found = Called(storages, whole.substr(0, length));
        if (!found.empty()) {
            const Storage storage = TheOne(found, whole.substr(0, length));
            return {storage, storage.mountPath + whole.substr(length)};
        }
    }
    throw Refused("\"" + Printable(name) + "\" is no storage and lies in none", kListHint);
}

}  // namespace contentsctl
