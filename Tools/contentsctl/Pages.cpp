#include "Pages.h"

#include <algorithm>

#include "Failure.h"
#include "Progress.h"

namespace contentsctl {
namespace {

constexpr int kScanNotComplete = -10;

[[noreturn]] void Explain(int64_t result) {
    if (result == kScanNotComplete)
        throw Refused("the storage is still being scanned after a minute",
                      "Try again later, or take what is known already with --no-wait.");
    throw Refused("the query failed (" + std::to_string(result) + ")",
                  "The storage may be gone: see \"contentsctl storages\", and the service's log.");
}

}  // namespace

Query::Query(Session& session, const Options& options, const std::string& storageId,
             const std::string& kind, const std::string& folder)
    : m_session(session), m_kind(kind) {
    const std::string sync = options.noWait ? "false" : "true";
    if (session.Execute("Query", {storageId, kind, folder, sync}) != "1")
        throw Refused("the service refused the query", "Its log tells why.");
    ProgressLine progress(session, options, storageId);
    const Event event = session.Wait("QUERY_COMPLETED", [&] { progress.Update(); });
    const Json::Value payload = ParseJson(event.payload);
    if (NumberOf(payload, "result") != 1) Explain(NumberOf(payload, "result"));
    m_count = NumberOf(payload, "count");
}

const char* Query::ItemsKey(const std::string& kind) {
    if (kind == "photo") return "photos";
    if (kind == "video") return "videos";
    return "music";
}

Json::Value Query::Fetch(int64_t start, int count) {
    const std::string id =
        m_session.Execute("Fetch", {std::to_string(start), std::to_string(count)});
    if (id == "0")
        throw Refused("the service refused the page from " + std::to_string(start),
                      "The result may have changed; a page has 1 to 1000 items and begins inside "
                      "the result.");
    Json::Value payload;
    m_session.Wait([&](const Event& event) {
        if (event.name != "FETCH_COMPLETED") return false;
        payload = ParseJson(event.payload);
        return TextOf(payload, "id") == id;
    });
    if (NumberOf(payload, "result") != 1) throw Refused("the page could not be read");
    return payload;
}

void Query::ForEach(int64_t limit, const std::function<void(const Json::Value&)>& handler,
                    const std::function<void()>& pageEnd) {
    int64_t wanted = limit;
    for (int64_t start = 0; wanted > 0; start += kMaxPage) {
        const int size = static_cast<int>(std::min<int64_t>(wanted, kMaxPage));
        const Json::Value page = Fetch(start, size);
        for (const auto& item : page[ItemsKey(m_kind)]) handler(item);
        pageEnd();
        wanted -= size;
        if (page["isLastPage"].asBool()) return;
    }
}

}  // namespace contentsctl
