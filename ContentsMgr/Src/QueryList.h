#ifndef CONTENTS_MGR_QUERY_LIST_H
#define CONTENTS_MGR_QUERY_LIST_H

#include <cstddef>
#include <deque>
#include <set>
#include <utility>

#include "CCMTaskJob.h"

namespace dorn {

// All queries of an engine, found by id. They are kept until the client disconnects, so each must
// be small: queries with the same content share one record. Has no lock of its own.
class QueryList {
public:
    // The bytes that Add would add, including the copies made to run the query.
    size_t CostOf(const QueryInfo& query) const;
    // Ids must increase with each call.
    void Add(const QueryInfo& query);
    // False when there is no such id.
    bool Find(int requestId, QueryInfo& query) const;
    // Removes all queries; returns how many bytes they took.
    size_t Clear();

private:
    struct ByContent {
        bool operator()(const QueryInfo& one, const QueryInfo& other) const;
    };

    std::set<QueryInfo, ByContent> m_records;                // their ids are unused
    std::deque<std::pair<int, const QueryInfo*>> m_queries;  // by id
    size_t m_bytes = 0;
};

}  // namespace dorn

#endif
