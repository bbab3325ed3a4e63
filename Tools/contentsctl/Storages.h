// The attached storages, and how people name them.
#ifndef TOOLS_CONTENTSCTL_STORAGES_H
#define TOOLS_CONTENTSCTL_STORAGES_H

#include <string>
#include <vector>

#include "Json.h"
#include "Session.h"

namespace contentsctl {

struct Storage {
    std::string id;
    std::string label;
    std::string mountPath;  // as clients see it, with $USB_DIR
    Json::Value json;       // everything that the service reports
};

// Queries the service. Includes cameras and other devices without an id.
std::vector<Storage> ListStorages(Session& session);

// The storage with that id, label or mount path (with $USB_DIR or as the system sees it). Throws
// Refused, listing the names, when there is none, or several with that label.
Storage FindStorage(Session& session, const std::string& name);

struct Place {
    Storage storage;
    std::string folder;  // its path, as clients see it
};

// Throws Refused when the folder does not exist or is not a folder. Does nothing when that cannot
// be seen from here, for example from another mount namespace.
void CheckFolder(const Place& place);

// A storage's name, optionally followed by "/" and folders in it; or a path below a mount path.
Place FindPlace(Session& session, const std::string& name);

}  // namespace contentsctl

#endif
