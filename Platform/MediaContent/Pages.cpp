#include "MediaContent/Pages.h"

#include <algorithm>

namespace platform {
namespace {

constexpr size_t MAX_ORDERS = 32;
constexpr size_t MAX_ANCHORS = 100000;  // of one order

// With `after`, parameters 1 and 2 are the position to go on from; the last one is the limit.
std::string PageText(const Plan& plan, bool after) {
    const char* direction = plan.descending ? " DESC" : " ASC";
    std::string sql = "SELECT " + plan.key + ", number FROM " + plan.source;
    if (after)
        sql += " AND (" + plan.key + ", number) " + (plan.descending ? "<" : ">") + " (?, ?)";
    return sql + " ORDER BY " + plan.key + direction + ", number" + direction + " LIMIT ?";
}

void BindPosition(Query& query, const Position& position) {
    if (position.type == SQLITE_INTEGER)
        query.Bind(position.integer);
    else if (position.type == SQLITE_FLOAT)
        query.Bind(position.real);
    else
        query.Bind(std::string_view(position.text));
    query.Bind(position.number);
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

template <typename EachRow>
void Walk(Connection& connection, const Plan& plan, const Position* after, int64_t limit,
          EachRow eachRow) {
    const auto run = [&](Query& query) {
        if (after) BindPosition(query, *after);
        query.Bind(limit);
        while (query.Next()) eachRow(query);
    };
    const std::string sql = PageText(plan, after != nullptr);
    if (plan.guarded) {
        Query query(connection, PrepareGuarded(connection, *plan.guarded, sql));
        run(query);
    } else {
        Query query(connection, sql);
        run(query);
    }
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
        if (m_orders.size() > MAX_ORDERS) m_orders.pop_back();
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
        std::min(known->anchors.size(), static_cast<size_t>(offset / ANCHOR_STEP));
    if (usable == 0) return false;
    anchor = known->anchors[usable - 1];
    index = static_cast<int64_t>(usable) * ANCHOR_STEP;
    return true;
}

void AnchorCache::Add(const std::string& order, int64_t revision, int64_t index,
                      const Position& anchor) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto known = Touch(order, revision);
    // Another reader may have been here before.
    if (static_cast<size_t>(index / ANCHOR_STEP) != known->anchors.size() + 1) return;
    if (known->anchors.size() < MAX_ANCHORS) known->anchors.push_back(anchor);
}

std::vector<Position> ReadPage(Connection& connection, AnchorCache& cache, const Plan& plan,
                               int64_t offset, int64_t count) {
    std::vector<Position> page;
    if (count <= 0) return page;
    const std::string order = PageText(plan, false);
    const int64_t revision = ReadRevision(connection, plan);
    Position anchor;
    int64_t index = 0;
    const bool anchored = cache.Find(order, revision, offset, anchor, index);
    Walk(connection, plan, anchored ? &anchor : nullptr, offset - index + count,
         [&](const Query& query) {
             if (index >= offset) page.push_back(ReadPosition(query));
             if (++index % ANCHOR_STEP == 0) cache.Add(order, revision, index, ReadPosition(query));
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
