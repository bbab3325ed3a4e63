#include "MediaContent/Pages.h"

#include <algorithm>
#include <optional>

namespace platform {
namespace {

constexpr size_t kMaxOrders = 32;
constexpr size_t kMaxAnchors = 100000;  // per order

// The rows that a statement returns, in the plan's order.
enum Part {
    ALL,   // parameter 1: the limit
    TIED,  // rows with the value of parameter 1, after the number of parameter 2; 3: the limit
    REST,  // rows after the value of parameter 1; 2: the limit
};

// Rows after a position are read in two steps: SQLite uses its index fully for each of them, but
// not for a comparison of pairs.
std::string PageText(const Plan& plan, Part part) {
    const char* direction = plan.descending ? " DESC" : " ASC";
    const std::string after = plan.descending ? " < ?" : " > ?";
    std::string sql = "SELECT " + plan.key + ", number FROM " + plan.source;
    if (part == TIED) sql += " AND " + plan.key + " = ? AND number" + after;
    if (part == REST) sql += " AND " + plan.key + after;
    sql += " ORDER BY ";
    if (part != TIED) sql += plan.key + direction + ", ";
    return sql + "number" + direction + " LIMIT ?";
}

void BindValue(Query& query, const Position& position) {
    if (position.type == SQLITE_INTEGER)
        query.Bind(position.integer);
    else if (position.type == SQLITE_FLOAT)
        query.Bind(position.real);
    else
        query.Bind(std::string_view(position.text));
}

Position ReadPosition(const Query& query) {
    Position position;
    position.type = query.Type(0);
    if (position.type == SQLITE_INTEGER)
        position.integer = query.Int(0);
    else if (position.type == SQLITE_FLOAT)
        position.real = query.Real(0);
    else
        position.text = query.Text(0);
    position.number = query.Int(1);
    return position;
}

// Calls `eachRow` with the running query for each row of the part and returns the number of rows.
template <typename EachRow>
int64_t WalkPart(Connection& connection, const Plan& plan, Part part, const Position* after,
                 int64_t limit, EachRow eachRow) {
    const std::string sql = PageText(plan, part);
    std::optional<Query> query;
    if (plan.guarded)
        query.emplace(connection, PrepareGuarded(connection, *plan.guarded, sql));
    else
        query.emplace(connection, sql);
    if (part != ALL) BindValue(*query, *after);
    if (part == TIED) query->Bind(after->number);
    query->Bind(limit);
    int64_t rows = 0;
    for (; query->Next(); ++rows) eachRow(*query);
    return rows;
}

template <typename EachRow>
void Walk(Connection& connection, const Plan& plan, const Position* after, int64_t limit,
          EachRow eachRow) {
    if (!after) {
        WalkPart(connection, plan, ALL, nullptr, limit, eachRow);
        return;
    }
    limit -= WalkPart(connection, plan, TIED, after, limit, eachRow);
    if (limit > 0) WalkPart(connection, plan, REST, after, limit, eachRow);
}

int64_t ReadRevision(Connection& connection, const Plan& plan) {
    Query query(connection, plan.revisionQuery);
    return query.Next() ? query.Int(0) : 0;
}

}  // namespace

std::list<AnchorCache::Order>::iterator AnchorCache::Touch(const std::string& order,
                                                           int64_t revision) {
    auto found = std::find_if(m_orders.begin(), m_orders.end(),
                              [&](const Order& known) { return known.text == order; });
    if (found == m_orders.end()) {
        m_orders.push_front({order, revision, {}});
        if (m_orders.size() > kMaxOrders) m_orders.pop_back();
        return m_orders.begin();
    }
    if (found->revision != revision) {
        found->revision = revision;
        std::vector<Position>().swap(found->anchors);
    }
    m_orders.splice(m_orders.begin(), m_orders, found);
    return found;
}

bool AnchorCache::Find(const std::string& order, int64_t revision, int64_t offset, Position& anchor,
                       int64_t& index) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto known = Touch(order, revision);
    const size_t usable =
        std::min(known->anchors.size(), static_cast<size_t>(offset / kAnchorStep));
    if (usable == 0) return false;
    anchor = known->anchors[usable - 1];
    index = static_cast<int64_t>(usable) * kAnchorStep;
    return true;
}

void AnchorCache::Add(const std::string& order, int64_t revision, int64_t index,
                      const Position& anchor) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto known = Touch(order, revision);
    // Another reader may have added the anchor already.
    if (static_cast<size_t>(index / kAnchorStep) != known->anchors.size() + 1) return;
    if (known->anchors.size() < kMaxAnchors) known->anchors.push_back(anchor);
}

std::vector<Position> ReadPage(Connection& connection, AnchorCache& cache, const Plan& plan,
                               int64_t offset, int64_t count) {
    std::vector<Position> page;
    if (count <= 0) return page;
    const std::string order = PageText(plan, ALL);
    const int64_t revision = ReadRevision(connection, plan);
    Position anchor;
    int64_t index = 0;
    const bool anchored = cache.Find(order, revision, offset, anchor, index);
    Walk(connection, plan, anchored ? &anchor : nullptr, offset - index + count,
         [&](const Query& query) {
             if (index >= offset) page.push_back(ReadPosition(query));
             if (++index % kAnchorStep == 0) cache.Add(order, revision, index, ReadPosition(query));
         });
    return page;
}

std::vector<Position> ReadAfter(Connection& connection, const Plan& plan, const Position& last,
                                int64_t count) {
    std::vector<Position> page;
    Walk(connection, plan, &last, count,
         [&](const Query& query) { page.push_back(ReadPosition(query)); });
    return page;
}

}  // namespace platform
