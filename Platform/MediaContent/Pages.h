// Listings in a total order, a page at a time, at a price that does not grow with the depth of the
// page.
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

// Where a row stands in an order: the value that it is ordered by, and its number.
struct Position {
    int type = SQLITE_INTEGER;  // of the value: SQLITE_INTEGER, SQLITE_FLOAT or SQLITE_TEXT
    int64_t integer = 0;
    double real = 0.0;
    std::string text;
    int64_t number = 0;
};

// What is listed and how. `source` is the end of a SELECT from FROM on, with its WHERE.
struct Plan {
    std::string source;
    std::string key;  // the expression that orders
    bool descending = false;
    const Columns* guarded = nullptr;  // the source contains a client's text over these columns
    std::string revisionQuery;         // its one number changes when any row of the source does
};

constexpr int kAnchorStep = 1000;  // rows

// Remembers, for the orders listed of late, the position of every thousandth row: a page deep in a
// listing begins at the anchor before it instead of at the first row. Anchors are taken while rows
// are walked over anyway and go with the first change of the rows. A few dozen bytes each.
class AnchorCache {
public:
    // The last known anchor at or before row `offset` of the order; false when there is none.
    // Row `index` is the first after the anchor.
    bool Find(const std::string& order, int64_t revision, int64_t offset, Position& anchor,
              int64_t& index);
    void Add(const std::string& order, int64_t revision, int64_t index, const Position& anchor);

private:
    struct Order {
        std::string text;
        int64_t revision;
        std::vector<Position> anchors;  // the n-th stands before row (n + 1) * kAnchorStep
    };
    std::list<Order>::iterator Touch(const std::string& order, int64_t revision);

    std::mutex m_mutex;
    std::list<Order> m_orders;  // guarded by m_mutex; the last used first
};

// Reads the positions of `count` rows from the `offset`-th on. Inside a transaction, so that the
// revision belongs to the rows. Throws DatabaseError or BadFilter.
std::vector<Position> ReadPage(Connection& connection, AnchorCache& cache, const Plan& plan,
                               int64_t offset, int64_t count);

// Reads the positions of the next `count` rows after `last`.
std::vector<Position> ReadAfter(Connection& connection, const Plan& plan, const Position& last,
                                int64_t count);

}  // namespace platform

#endif
