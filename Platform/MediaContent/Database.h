// RAII wrappers around SQLite: a connection, a query on it, and a transaction.
#ifndef PLATFORM_MEDIA_CONTENT_DATABASE_H
#define PLATFORM_MEDIA_CONTENT_DATABASE_H

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>

namespace platform {

// An error from SQLite; `code` is its primary result code.
class DatabaseError : public std::runtime_error {
public:
    DatabaseError(int code, const std::string& message)
        : std::runtime_error(message), m_code(code & 0xff) {}
    int Code() const { return m_code; }
    // The file itself is damaged; the cause is not the disk, the permissions or the load.
    bool MeansDamage() const { return m_code == SQLITE_CORRUPT || m_code == SQLITE_NOTADB; }

private:
    int m_code;
};

struct StatementCloser {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using StatementPtr = std::unique_ptr<sqlite3_stmt, StatementCloser>;

// One connection, used by one thread at a time. Statements with constant text stay prepared.
class Connection {
public:
    // `flags` as for sqlite3_open_v2. Throws DatabaseError.
    Connection(const std::string& file, int flags);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Runs one or more statements that return no rows.
    void Execute(const char* sql);
    StatementPtr Prepare(std::string_view sql);
    sqlite3* Handle() const { return m_handle.get(); }
    int64_t LastInsertedRow() const { return sqlite3_last_insert_rowid(m_handle.get()); }
    int ChangedRows() const { return sqlite3_changes(m_handle.get()); }
    [[noreturn]] void Fail(int code) const;

private:
    friend class Query;
    void DropKeptStatements();
    struct Kept {
        StatementPtr statement;
        bool inUse = false;
    };
    struct Closer {
        void operator()(sqlite3* handle) const { sqlite3_close_v2(handle); }
    };
    std::unique_ptr<sqlite3, Closer> m_handle;
    std::unordered_map<std::string, Kept> m_kept;  // after m_handle: finalised first
};

// One execution of one statement. Parameters are bound in order, columns are read by index from 0.
class Query {
public:
    // A statement with constant text, prepared once per connection.
    Query(Connection& connection, const std::string& sql);
    // A statement that is used once and not cached.
    Query(Connection& connection, StatementPtr statement);
    ~Query();
    Query(const Query&) = delete;
    Query& operator=(const Query&) = delete;

    Query& Bind(int64_t value);
    Query& Bind(double value);
    Query& Bind(std::string_view value);  // copied
    // Not copied: must stay valid until the query has run.
    Query& BindInPlace(std::string_view value);

    bool Next();                  // false at the end; throws DatabaseError
    void Run() { (void)Next(); }  // for statements without rows
    void Again();                 // resets the statement and clears the parameters

    int64_t Int(int column) const { return sqlite3_column_int64(m_statement, column); }
    double Real(int column) const { return sqlite3_column_double(m_statement, column); }
    std::string Text(int column) const { return std::string(View(column)); }
    std::string_view View(int column) const;  // until the next call
    int Type(int column) const { return sqlite3_column_type(m_statement, column); }
    int Columns() const { return sqlite3_column_count(m_statement); }

private:
    Query& BindText(std::string_view value, sqlite3_destructor_type ownership);

    Connection& m_connection;
    StatementPtr m_own;
    Connection::Kept* m_borrowed = nullptr;
    sqlite3_stmt* m_statement = nullptr;
    int m_bound = 0;
};

// BEGIN; rolled back unless committed.
class Transaction {
public:
    enum Kind { READ, WRITE };
    Transaction(Connection& connection, Kind kind);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    void Commit();

private:
    Connection& m_connection;
    bool m_open = true;
};

}  // namespace platform

#endif
