// Queries and their pages.
#ifndef TOOLS_CONTENTSCTL_PAGES_H
#define TOOLS_CONTENTSCTL_PAGES_H

#include <cstdint>
#include <functional>
#include <string>

#include "Json.h"
#include "Session.h"

namespace contentsctl {

constexpr int kMaxPage = 1000;  // the service's limit per page

// One query of the session; a newer query replaces it in the service.
class Query {
public:
    // Kind: "photo", "video", "music", or "folder" with the folder's path. Waits for the storage's
    // scan, with a progress line, unless the options say not to. Throws Refused with a hint.
    Query(Session& session, const Options& options, const std::string& storageId,
          const std::string& kind, const std::string& folder = "");

    int64_t Count() const { return m_count; }

    // The payload of one page.
    Json::Value Fetch(int64_t start, int count);

    // Calls `handler` with each item of a media query in order, at most `limit` of them.
    void ForEach(int64_t limit, const std::function<void(const Json::Value&)>& handler,
                 const std::function<void()>& pageEnd);

    // The member of a media page that contains its items.
    static const char* ItemsKey(const std::string& kind);

private:
    Session& m_session;
    const std::string m_kind;
    int64_t m_count = 0;
};

}  // namespace contentsctl

#endif
