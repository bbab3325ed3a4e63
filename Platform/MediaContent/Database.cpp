#include "MediaContent/Database.h"

#include <string.h>

namespace platform {
namespace {

constexpr int kBusyTimeoutMs = 5000;
constexpr size_t kMaxKeptStatements = 64;

}  // namespace

Connection::Connection(const std::string& file, int flags) {
    sqlite3* handle = nullptr;
    const int result = sqlite3_open_v2(file.c_str(), &handle, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    m_handle.reset(handle);
    if (result != SQLITE_OK) Fail(result);
    sqlite3_extended_result_codes(handle, 1);
    sqlite3_busy_timeout(handle, kBusyTimeoutMs);
}

void Connection::Fail(int code) const {
    if (!m_handle) throw DatabaseError(code, sqlite3_errstr(code));
    std::string text = sqlite3_errmsg(m_handle.get());
    if (const int cause = sqlite3_system_errno(m_handle.get()))
        text += std::string(": ") + strerror(cause);
    if (const char* file = sqlite3_db_filename(m_handle.get(), "main"))
        text += std::string(" (") + file + ")";
    throw DatabaseError(code, text);
}

void Connection::Execute(const char* sql) {
    const int result = sqlite3_exec(m_handle.get(), sql, nullptr, nullptr, nullptr);
    if (result != SQLITE_OK) Fail(result);
}

StatementPtr Connection::Prepare(std::string_view sql) {
    sqlite3_stmt* statement = nullptr;
    const int result = sqlite3_prepare_v3(m_handle.get(), sql.data(), static_cast<int>(sql.size()),
                                          0, &statement, nullptr);
    if (result != SQLITE_OK) Fail(result);
    return StatementPtr(statement);
}

// Without this, statements with numbers in their text would pile up.
void Connection::DropKeptStatements() {
    if (m_kept.size() < kMaxKeptStatements) return;
    for (auto at = m_kept.begin(); at != m_kept.end();)
        at = at->second.inUse ? std::next(at) : m_kept.erase(at);
}

Query::Query(Connection& connection, const std::string& sql) : m_connection(connection) {
    auto found = connection.m_kept.find(sql);
    if (found == connection.m_kept.end()) connection.DropKeptStatements();
    if (found == connection.m_kept.end())
        found = connection.m_kept.emplace(sql, Connection::Kept{connection.Prepare(sql)}).first;
    if (found->second.inUse) {
        m_own = connection.Prepare(sql);
        m_statement = m_own.get();
        return;
    }
    m_borrowed = &found->second;
    m_borrowed->inUse = true;
    m_statement = m_borrowed->statement.get();
}

Query::Query(Connection& connection, StatementPtr statement)
    : m_connection(connection), m_own(std::move(statement)), m_statement(m_own.get()) {}

Query::~Query() {
    if (!m_borrowed) return;
    sqlite3_reset(m_statement);
    sqlite3_clear_bindings(m_statement);
    m_borrowed->inUse = false;
}

Query& Query::Bind(int64_t value) {
    const int result = sqlite3_bind_int64(m_statement, ++m_bound, value);
    if (result != SQLITE_OK) m_connection.Fail(result);
    return *this;
}

Query& Query::Bind(double value) {
    const int result = sqlite3_bind_double(m_statement, ++m_bound, value);
    if (result != SQLITE_OK) m_connection.Fail(result);
    return *this;
}

Query& Query::Bind(std::string_view value) {
    return BindText(value, SQLITE_TRANSIENT);
}

Query& Query::BindInPlace(std::string_view value) {
    return BindText(value, SQLITE_STATIC);
}

Query& Query::BindText(std::string_view value, sqlite3_destructor_type ownership) {
    const char* data = value.data() ? value.data() : "";
    const int result =
        sqlite3_bind_text64(m_statement, ++m_bound, data, value.size(), ownership, SQLITE_UTF8);
    if (result != SQLITE_OK) m_connection.Fail(result);
    return *this;
}

bool Query::Next() {
    const int result = sqlite3_step(m_statement);
    if (result == SQLITE_ROW) return true;
    if (result != SQLITE_DONE) m_connection.Fail(result);
    return false;
}

void Query::Again() {
    sqlite3_reset(m_statement);
    sqlite3_clear_bindings(m_statement);
    m_bound = 0;
}

std::string_view Query::View(int column) const {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(m_statement, column));
    if (!text) return {};
    return {text, static_cast<size_t>(sqlite3_column_bytes(m_statement, column))};
}

Transaction::Transaction(Connection& connection, Kind kind) : m_connection(connection) {
    connection.Execute(kind == WRITE ? "BEGIN IMMEDIATE" : "BEGIN");
}

Transaction::~Transaction() {
    // SQLite may already have rolled back, for example on a full disk.
    if (m_open && !sqlite3_get_autocommit(m_connection.Handle()))
        sqlite3_exec(m_connection.Handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::Commit() {
    m_connection.Execute("COMMIT");
    m_open = false;
}

}  // namespace platform
