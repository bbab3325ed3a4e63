#include "MediaContent/Filter.h"

#include <string.h>
#include <strings.h>
#include <sys/random.h>

#include <algorithm>
#include <cstdio>

namespace platform {
namespace {

constexpr size_t kMaxCondition = 64 * 1024;  // bytes

const char* const kItemNames[] = {
    "MEDIA_ID",         "MEDIA_TYPE",       "MEDIA_PATH",        "MEDIA_DISPLAY_NAME",
    "MEDIA_MIME_TYPE",  "MEDIA_SIZE",       "MEDIA_ADDED_TIME",  "MEDIA_MODIFIED_TIME",
    "MEDIA_TITLE",      "MEDIA_ALBUM",      "MEDIA_ARTIST",      "MEDIA_GENRE",
    "MEDIA_COMPOSER",   "MEDIA_WIDTH",      "MEDIA_HEIGHT",      "MEDIA_LATITUDE",
    "MEDIA_LONGITUDE",  "MEDIA_ALTITUDE",   "MEDIA_ORIENTATION", "MEDIA_DURATION",
    "MEDIA_BIT_RATE",   "MEDIA_FRAME_RATE", "MEDIA_RATING",      "MEDIA_HAS_PICTURE",
    "MEDIA_TAKEN_TIME", "MEDIA_CAMERA",     "MEDIA_LENS",        "MEDIA_ALBUM_ARTIST",
    "MEDIA_TRACK",      "MEDIA_DISC",       "MEDIA_DESCRIPTION", nullptr};
const char* const kFolderNames[] = {"FOLDER_ID", "FOLDER_PATH", "FOLDER_NAME",
                                    "FOLDER_STORAGE_TYPE", nullptr};
const char* const kWords[] = {"AND",  "OR",      "NOT",    "IN",     "IS",      "NULL",
                              "LIKE", "BETWEEN", "ESCAPE", "ISNULL", "NOTNULL", nullptr};

bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

const char* FindName(const char* const* names, const std::string& word) {
    for (; *names; ++names)
        if (strcasecmp(*names, word.c_str()) == 0) return *names;
    return nullptr;
}

// Splits a condition into words, numbers, quoted texts and punctuation.
class Words {
public:
    enum Kind { END, WORD, NUMBER, TEXT, SIGN, WRONG };

    explicit Words(const std::string& text) : m_text(text) {}

    Kind Next(std::string& word) {
        while (m_at < m_text.size() && IsBlank(m_text[m_at])) ++m_at;
        if (m_at == m_text.size()) return END;
        const size_t begin = m_at;
        const Kind kind = Skip();
        word = m_text.substr(begin, m_at - begin);
        return kind;
    }

private:
    Kind Skip() {
        const char c = m_text[m_at];
        if (IsLetter(c)) return SkipWhile(WORD, [](char d) { return IsLetter(d) || IsDigit(d); });
        if (IsDigit(c)) return SkipNumber();
        if (c == '\'') return SkipQuoted();
        return SkipSign();
    }

    template <typename Test>
    Kind SkipWhile(Kind kind, Test test) {
        while (m_at < m_text.size() && test(m_text[m_at])) ++m_at;
        return kind;
    }

    Kind SkipNumber() {
        SkipWhile(NUMBER, [](char c) { return IsDigit(c) || c == '.'; });
        return m_at < m_text.size() && IsLetter(m_text[m_at]) ? WRONG : NUMBER;
    }

    Kind SkipQuoted() {
        for (++m_at; m_at < m_text.size(); ++m_at) {
            if (m_text[m_at] != '\'') continue;
            if (m_at + 1 == m_text.size() || m_text[m_at + 1] != '\'') {
                ++m_at;
                return TEXT;
            }
            ++m_at;  // a doubled quote is an escaped quote
        }
        return WRONG;
    }

    Kind SkipSign() {
        for (const char* sign : {"<=", ">=", "<>", "!=", "==", "=", "<", ">", "(", ")", ",", "+"}) {
            if (m_text.compare(m_at, strlen(sign), sign) != 0) continue;
            m_at += strlen(sign);
            return SIGN;
        }
        if (m_text[m_at] != '-' || m_text.compare(m_at, 2, "--") == 0) return WRONG;
        ++m_at;
        return SIGN;
    }

    const std::string& m_text;
    size_t m_at = 0;
};

// ---- what SQLite may do for a statement that contains a client's text ------------------------

struct Guard {
    std::string view;
    int selects = 0;
};

bool IsTable(const char* name) {
    return strcmp(name, "item") == 0 || strcmp(name, "folder") == 0 || strcmp(name, "storage") == 0;
}

int Authorize(void* data, int action, const char* first, const char* second, const char*,
              const char* through) {
    Guard& guard = *static_cast<Guard*>(data);
    switch (action) {
        case SQLITE_SELECT:
            ++guard.selects;
            return SQLITE_OK;
        case SQLITE_READ:
            if (first && guard.view == first) return SQLITE_OK;
            // A table of the view, none of whose columns the statement needs.
            if (first && second && !*second && IsTable(first)) return SQLITE_OK;
            return through && guard.view == through ? SQLITE_OK : SQLITE_DENY;
        case SQLITE_FUNCTION:
            return second && (strcasecmp(second, "like") == 0 || strcasecmp(second, "count") == 0)
                       ? SQLITE_OK
                       : SQLITE_DENY;
        default:
            return SQLITE_DENY;
    }
}

class ScopedGuard {
public:
    ScopedGuard(sqlite3* handle, Guard& guard) : m_handle(handle) {
        sqlite3_set_authorizer(handle, Authorize, &guard);
    }
    ~ScopedGuard() { sqlite3_set_authorizer(m_handle, nullptr, nullptr); }
    ScopedGuard(const ScopedGuard&) = delete;
    ScopedGuard& operator=(const ScopedGuard&) = delete;

private:
    sqlite3* m_handle;
};

std::string RandomParameter() {
    uint64_t random = 0;
    (void)!getrandom(&random, sizeof random, 0);
    char name[32];
    snprintf(name, sizeof name, "$p%016llx", static_cast<unsigned long long>(random));
    return name;
}

bool OnlyParameterIs(sqlite3_stmt* statement, const std::string& name) {
    const char* first = sqlite3_bind_parameter_name(statement, 1);
    return sqlite3_bind_parameter_count(statement) == 1 && first && name == first;
}

}  // namespace

const Columns kItemColumns = {"item_columns_", kItemNames};
const Columns kFolderColumns = {"folder_columns_", kFolderNames};

std::string FindColumn(const Columns& columns, const std::string& name) {
    const char* found = FindName(columns.names, name);
    if (!found) throw BadFilter("no column \"" + name + "\"");
    return found;
}

std::string ViewName(const Columns& columns, media_content_collation_e collation) {
    return std::string(columns.view) +
           (collation == MEDIA_CONTENT_COLLATE_NOCASE ? "NOCASE" : "BINARY");
}

bool ReadTypeMask(const std::string& text, unsigned& mask) {
    Words words(text);
    std::string word;
    Words::Kind kind = words.Next(word);
    const bool inParentheses = kind == Words::SIGN && word == "(";
    if (inParentheses) kind = words.Next(word);
    unsigned found = 0;
    for (;;) {
        if (kind != Words::WORD || strcasecmp(word.c_str(), "MEDIA_TYPE") != 0) return false;
        if (words.Next(word) != Words::SIGN || (word != "=" && word != "==")) return false;
        if (words.Next(word) != Words::NUMBER || word.size() != 1 || word[0] > '4') return false;
        found |= 1u << (word[0] - '0');
        kind = words.Next(word);
        if (kind != Words::WORD || strcasecmp(word.c_str(), "OR") != 0) break;
        kind = words.Next(word);
    }
    if (inParentheses) {
        if (kind != Words::SIGN || word != ")") return false;
        kind = words.Next(word);
    }
    if (kind != Words::END) return false;
    mask = found;
    return true;
}

void CheckWords(const Columns& columns, const std::string& text) {
    if (text.size() > kMaxCondition) throw BadFilter("condition too long");
    if (text.find('\0') != std::string::npos) throw BadFilter("condition with a null byte");
    Words words(text);
    std::string word;
    int depth = 0;
    for (;;) {
        switch (words.Next(word)) {
            case Words::END:
                if (depth != 0) throw BadFilter("unbalanced parentheses");
                return;
            case Words::WRONG:
                throw BadFilter("not part of a condition: " + word.substr(0, 40));
            case Words::WORD:
                if (!FindName(columns.names, word) && !FindName(kWords, word))
                    throw BadFilter("unknown word " + word.substr(0, 40));
                break;
            case Words::SIGN:
                if (word == "(") ++depth;
                if (word == ")" && --depth < 0) throw BadFilter("unbalanced parentheses");
                break;
            case Words::NUMBER:
            case Words::TEXT:
                break;
        }
    }
}

StatementPtr PrepareGuarded(Connection& connection, const Columns& columns, const std::string& sql,
                            int* selects) {
    // The views of both collations have the same columns; the statement names the one to use.
    Guard guard;
    for (const auto collation : {MEDIA_CONTENT_COLLATE_DEFAULT, MEDIA_CONTENT_COLLATE_NOCASE}) {
        const std::string view = ViewName(columns, collation);
        if (sql.find("FROM " + view + ' ') != std::string::npos) guard.view = view;
    }
    const ScopedGuard scope(connection.Handle(), guard);
    sqlite3_stmt* statement = nullptr;
    const char* tail = nullptr;
    const int result = sqlite3_prepare_v3(connection.Handle(), sql.data(),
                                          static_cast<int>(sql.size()), 0, &statement, &tail);
    StatementPtr owned(statement);
    if (result == SQLITE_ERROR || result == SQLITE_AUTH || result == SQLITE_TOOBIG)
        throw BadFilter(sqlite3_errmsg(connection.Handle()));
    if (result != SQLITE_OK) connection.Fail(result);
    if (!owned || tail != sql.data() + sql.size()) throw BadFilter("more than one statement");
    if (selects) *selects = guard.selects;
    return owned;
}

void CheckCondition(Connection& connection, const Columns& columns, const std::string& text) {
    CheckWords(columns, text);
    // The client's text stands alone between our parenthesis and a parameter whose name it cannot
    // know: a text that swallows or closes either of them is detected.
    const std::string parameter = RandomParameter();
    const std::string before = "SELECT count(*) FROM (SELECT * FROM " +
                               ViewName(columns, MEDIA_CONTENT_COLLATE_DEFAULT) +
                               " WHERE storage = 0) WHERE (";
    int expected = 0, selects = 0;
    PrepareGuarded(connection, columns, before + "1\n) AND " + parameter, &expected);
    const StatementPtr statement =
        PrepareGuarded(connection, columns, before + text + "\n) AND " + parameter, &selects);
    if (selects != expected) throw BadFilter("a condition may not select");
    if (!OnlyParameterIs(statement.get(), parameter)) throw BadFilter("not one condition");
}

}  // namespace platform
