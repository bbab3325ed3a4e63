// The storages that are attached, and how people name them.
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
    Json::Value json;       // all that the service says
};

// Asks the service. Its cameras and other devices without an id are among them.
std::vector<Storage> ListStorages(Session& session);

// The storage of that id, label or mount path (with $USB_DIR or as the system sees it). Throws
// Refused when there is none, or more than one of that label, with the names that there are.
Storage FindStorage(Session& session, const std::string& name);

struct Place {
    Storage storage;
    std::string folder;  // its path, as clients see it
};

// Throws Refused when the folder is not there, or is none. Silent where that cannot be seen from
// here, as from another mount namespace.
void CheckFolder(const Place& place);

// A storage's name, perhaps followed by "/" and folders in it; or a path below a mount path.
Place FindPlace(Session& session, const std::string& name);

}  // namespace contentsctl

#endif
