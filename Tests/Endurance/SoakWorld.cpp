#include "Endurance/SoakWorld.h"

#include <cstring>
#include <fstream>

#include "Service/MediaClient.h"

namespace test {
namespace {

namespace fs = std::filesystem;

std::string ClientPath(const fs::path& root, const std::string& path) {
    const std::string prefix = root.string();
    return prefix.substr(0, prefix.size() - strlen("/opt/storage/usb")) + "$USB_DIR" +
           path.substr(prefix.size());
}

}  // namespace

SoakWorld::SoakWorld(const fs::path& folder, const fs::path& samples) : sticks(folder) {
    MakeSamples("--small", samples / "small");
    MakeSamples("--photos", samples / "photos", 1500);
    MakeSamples("--large", samples / "large", 300);
    sticks.Add("ALL", samples / "small");
    sticks.Add("PHOTOS", samples / "photos");
    sticks.Add("MIXED", samples / "large");
    sticks.Add("OTHER", samples / "large");
    sticks.Make("HOSTILE", "--hostile");
    for (const char* name : {"hanging1.wav", "hanging2.wav", "hanging3.wav"}) {
        const fs::path song = sticks.PathOf("HOSTILE") / name;
        std::ofstream(song) << "RIFF\xff\xff\xff\x7fWAVE";  // and then a hole
        fs::resize_file(song, 10ull << 30);
    }
    sticks.AddCamera("CAMERA");
}

bool SoakWorld::Learn(const std::string& atSocket) {
    socket = atSocket;
    for (const Json::Value& storage : MediaClient(socket).Storages())
        if (!storage["id"].asString().empty()) storages.push_back(storage["id"].asString());
    for (const std::string& name : names)
        if (name != "HOSTILE") LearnPaths(name);
    return storages.size() == names.size() && !files.empty();
}

void SoakWorld::LearnPaths(const std::string& name) {
    for (const auto& entry : fs::recursive_directory_iterator(sticks.PathOf(name))) {
        const std::string path = ClientPath(sticks.Root(), entry.path().string());
        if (!g_utf8_validate(path.c_str(), -1, nullptr)) continue;
        if (entry.is_directory()) folders.push_back(path);
        // What a scan lists by itself: the counts are compared at the end. One stick has folders
        // and names that it leaves out.
        const std::string ending = entry.path().extension().string();
        if (entry.is_regular_file() && (ending == ".jpg" || ending == ".mp3") && name != "ALL")
            files.push_back(path);
    }
}

std::vector<std::string> SoakWorld::CountAll() {
    std::vector<std::string> lines;
    MediaClient client(socket);
    for (const Json::Value& storage : client.Storages()) {
        if (storage["type"] != "msc") continue;
        for (const char* kind : {"photo", "music", "video"}) {
            const std::string what = storage["mountPath"].asString() + " " + kind;
            const std::string payload = client.QueryEvent(storage["id"].asString(), kind);
            if (payload.empty()) ledger.Wrong("nobody counts " + what);
            lines.push_back(what + " " + payload);
        }
    }
    return lines;
}

}  // namespace test
