// Listings in a total order, one page at a time, at a cost independent of the page's offset.
#ifndef PLATFORM_MEDIA_CONTENT_PAGES_H
#define PLATFORM_MEDIA_CONTENT_PAGES_H

#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <vector>

#include "MediaContent/Database.h"
#include "MediaContent/Filter.h"

namespace platform {

// A row's position in an order: its sort key and its number.
struct Position {
    int type = SQLITE_INTEGER;  // of the key: SQLITE_INTEGER, SQLITE_FLOAT or SQLITE_TEXT
    int64_t integer = 0;
    double real = 0.0;
    std::string text;
    int64_t number = 0;
};

// What to list and how. `source` is the tail of a SELECT starting at FROM, including its WHERE.
struct Plan {
    std::string source;
    std::string key;  // the sort expression
    bool descending = false;
    const Columns* guarded = nullptr;  // the source contains a client's text over these columns
    std::string revisionQuery;  // returns one number, which changes when any row of the source does
};

constexpr int kAnchorStep = 1000;  // rows

// Remembers, for recently listed orders, the position of every thousandth row: a page deep in a
// listing starts at the anchor before it instead of at the first row. Anchors are recorded while
// rows are walked over anyway and dropped at the first change of the rows. A few dozen bytes each.
class AnchorCache {
public:
    // Finds the last known anchor at or before row `offset` of the order; false when there is none.
    // Row `index` is the first row after the anchor.
    bool Find(const std::string& order, int64_t revision, int64_t offset, Position& anchor,
              int64_t& index);
    void Add(const std::string& order, int64_t revision, int64_t index, const Position& anchor);

private:
    struct Order {
        std::string text;
        int64_t revision;
        std::vector<Position> anchors;  // the n-th precedes row (n + 1) * kAnchorStep
    };
    std::list<Order>::iterator Touch(const std::string& order, int64_t revision);

    std::mutex m_mutex;
    std::list<Order> m_orders;  // guarded by m_mutex; most recently used first
};

// Reads the positions of `count` rows starting at row `offset`. Must run inside a transaction, so
// that the revision matches the rows. Throws DatabaseError or BadFilter.
std::vector<Position> ReadPage(Connection& connection, AnchorCache& cache, const Plan& plan,
                               int64_t offset, int64_t count);

// Reads the positions of the next `count` rows after `last`.
std::vector<Position> ReadAfter(Connection& connection, const Plan& plan, const Position& last,
                                int64_t count);

}  // namespace platform

#endif
