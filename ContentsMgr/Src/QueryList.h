#ifndef CONTENTS_MGR_QUERY_LIST_H
#define CONTENTS_MGR_QUERY_LIST_H

#include <cstddef>
#include <deque>
#include <set>
#include <utility>

#include "CCMTaskJob.h"

namespace dorn {

// All queries of an engine, found by their ids. They are kept until the client disconnects, so what
// one costs is small: queries for the same share one record. No lock of its own.
class QueryList {
public:
    // Bytes that Add would make it hold, the copies that are made to run the query included.
    size_t CostOf(const QueryInfo& query) const;
    // Ids grow from one to the next.
    void Add(const QueryInfo& query);
    // False when the id is none.
    bool Find(int requestId, QueryInfo& query) const;
    // Forgets all; how many bytes they were.
    size_t Clear();

private:
    struct ByContent {
        bool operator()(const QueryInfo& one, const QueryInfo& other) const;
    };

    std::set<QueryInfo, ByContent> m_records;                // their ids mean nothing
    std::deque<std::pair<int, const QueryInfo*>> m_queries;  // by id
    size_t m_bytes = 0;
};

}  // namespace dorn

#endif
