// The contents of a filter handle, and the check of its condition text.
#ifndef PLATFORM_MEDIA_CONTENT_FILTER_H
#define PLATFORM_MEDIA_CONTENT_FILTER_H

#include <stdexcept>
#include <string>

#include "MediaContent.h"
#include "MediaContent/Database.h"

struct media_filter_s {
    bool hasStorage = false;
    std::string storage;
    std::string condition;  // empty: none
    media_content_collation_e conditionCollation = MEDIA_CONTENT_COLLATE_DEFAULT;
    std::string orderColumn;  // empty: none
    media_content_order_e order = MEDIA_CONTENT_ORDER_ASC;
    media_content_collation_e orderCollation = MEDIA_CONTENT_COLLATE_DEFAULT;
    int offset = 0;
    int count = -1;  // negative: to the end
};

namespace platform {

// A condition or an order that is not valid.
class BadFilter : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The columns that conditions and orders may name.
struct Columns {
    const char* view;          // without the collation at its end
    const char* const* names;  // ends with null
};
extern const Columns kItemColumns;
extern const Columns kFolderColumns;

// Finds the column of that name, ignoring case, and returns it as it is written in the view. Throws
// BadFilter.
std::string FindColumn(const Columns& columns, const std::string& name);

// True when `text` only restricts the kinds of items ("MEDIA_TYPE = 0 OR MEDIA_TYPE=1", in
// parentheses or not); `mask` is then the set of kinds, bit n for kind n. Such conditions need no
// SQL.
bool ReadTypeMask(const std::string& text, unsigned& mask);

// Checks the words of a condition before SQLite sees it. Allowed are column names, logical and
// comparison operators, numbers, quoted texts and balanced parentheses. Throws BadFilter.
void CheckWords(const Columns& columns, const std::string& text);

// The name of the view that compares texts by `collation`.
std::string ViewName(const Columns& columns, media_content_collation_e collation);

// Checks a condition text in full, on `connection`. Throws BadFilter when it is anything but an
// expression over the columns, including when it is crafted to pass for one.
void CheckCondition(Connection& connection, const Columns& columns, const std::string& text);

// Prepares a statement that contains a condition. Anything but reading the view is forbidden.
StatementPtr PrepareGuarded(Connection& connection, const Columns& columns, const std::string& sql,
                            int* selects = nullptr);

}  // namespace platform

#endif
