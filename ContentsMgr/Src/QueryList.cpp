#include "QueryList.h"

#include <algorithm>
#include <tuple>

#include "JobSize.h"

namespace dorn {
namespace {

// Besides the record itself: a count on each of two threads passes it through one or two calls.
constexpr size_t kCopies = 4;
constexpr size_t kNode = 64;  // of the set, including its heap block

}  // namespace

bool QueryList::ByContent::operator()(const QueryInfo& one, const QueryInfo& other) const {
    return std::tie(one.mediaType, one.storageId, one.folderPath, one.syncOption) <
           std::tie(other.mediaType, other.storageId, other.folderPath, other.syncOption);
}

size_t QueryList::CostOf(const QueryInfo& query) const {
    const size_t place = sizeof m_queries.front();
    if (m_records.count(query) != 0) return place;
    return place + kNode + sizeof query + (1 + kCopies) * TextBytes(query);
}

void QueryList::Add(const QueryInfo& query) {
    m_bytes += CostOf(query);
    m_queries.emplace_back(query.requestId, &*m_records.insert(query).first);
}

bool QueryList::Find(int requestId, QueryInfo& query) const {
    const auto before = [](const auto& entry, int id) { return entry.first < id; };
    const auto found = std::lower_bound(m_queries.begin(), m_queries.end(), requestId, before);
    if (found == m_queries.end() || found->first != requestId) return false;
    query = *found->second;
    query.requestId = requestId;
    return true;
}

size_t QueryList::Clear() {
    m_queries.clear();
    m_queries.shrink_to_fit();
    m_records.clear();
    return std::exchange(m_bytes, 0);
}

}  // namespace dorn
