#include "EventText.h"

#include "Failure.h"
#include "Json.h"
#include "Text.h"

namespace contentsctl {
namespace {

std::string Kilobytes(const Json::Value& storage, const char* key) {
    return HumanSize(static_cast<uint64_t>(NumberOf(storage, key)) * 1024);
}

// "HOLIDAY (msc, VFAT, 7.5 GiB, 3.2 GiB free) at $USB_DIR/sda1"
std::string StorageText(const Json::Value& payload) {
    const Json::Value& storage = payload["storage"];
    std::string facts = TextOf(storage, "type");
    const bool mounted = TextOf(storage, "mountPath") != "n/a";
    if (mounted) facts += ", " + TextOf(storage, "fileSystem");
    if (NumberOf(storage, "totalSize") > 0)
        facts += ", " + Kilobytes(storage, "totalSize") + ", " +
                 Kilobytes(storage, "availableSize") + " free";
    std::string text = TextOf(storage, "name") + " (" + facts + ")";
    if (mounted) text += " at " + TextOf(storage, "mountPath");
    return text;
}

std::string QueryText(const Json::Value& payload) {
    switch (NumberOf(payload, "result")) {
        case 1:
            return TextOf(payload, "count") + " items";
        case -10:
            return "gave up waiting for the scan";
        default:
            return "failed";
    }
}

std::string PageText(const Json::Value& payload) {
    std::string text = "page " + TextOf(payload, "id") + ":";
    for (const char* key : {"photos", "videos", "music", "folders", "files"})
        if (payload[key].isArray()) text += " " + std::to_string(payload[key].size()) + " " + key;
    if (payload["isFirstPage"].asBool()) text += ", the first";
    if (payload["isLastPage"].asBool()) text += ", the last";
    return text;
}

std::string OutcomeText(const Json::Value& payload) {
    return std::to_string(payload["succeeded"].size()) + " done, " +
           std::to_string(payload["failed"].size()) + " failed";
}

std::string PayloadText(const Event& event) {
    using Writer = std::string (*)(const Json::Value&);
    static constexpr struct {
        const char* name;
        Writer writer;
    } kWriters[] = {
        {"USB_CONNECTED", StorageText},
        {"USB_DISCONNECTED", StorageText},
        {"QUERY_COMPLETED", QueryText},
        {"FETCH_COMPLETED", PageText},
        {"CONTETNS_REGISTER_COMPLETED", OutcomeText},
        {"CONTENTS_UNREGISTER_COMPLETED", OutcomeText},
    };
    for (const auto& entry : kWriters)
        if (event.name == entry.name) return entry.writer(ParseJson(event.payload));
    if (event.name == "SYNC_COMPLETED") return "storage " + event.payload + " is ready";
    if (event.name == "SYNC_FAILED") return "the scan of storage " + event.payload + " failed";
    return event.payload;
}

}  // namespace

std::string EventText(const Event& event) {
    try {
        return Printable(PayloadText(event));
    } catch (const std::exception&) {
        return Printable(event.payload);
    }
}

}  // namespace contentsctl
