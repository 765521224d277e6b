#include "Sqlite.h"

#include <sqlite3.h>

namespace {

constexpr int kPatienceMilliseconds = 10'000;

SqliteError errorOf(sqlite3* handle) {
    const int code = sqlite3_errcode(handle);
    // A table that is missing is a plain error to SQLite; our statements are right, so the file is not.
    const bool damage = code == SQLITE_CORRUPT || code == SQLITE_NOTADB || code == SQLITE_ERROR;
    return {damage ? SqliteError::Kind::damage : SqliteError::Kind::other, sqlite3_errmsg(handle)};
}

}  // namespace

void SqliteDatabase::Closer::operator()(sqlite3* handle) const { sqlite3_close_v2(handle); }

SqliteDatabase::SqliteDatabase(const std::string& path) {
    sqlite3* handle = nullptr;
    // SQLite has meanings of its own for names such as ":memory:", none of them with a folder in front.
    const std::string file = path.starts_with('/') ? path : "./" + path;
    const int code = sqlite3_open_v2(file.c_str(), &handle, SQLITE_OPEN_READWRITE, nullptr);
    _handle.reset(handle);
    if (handle == nullptr) throw std::bad_alloc();
    if (code != SQLITE_OK) throw errorOf(handle);
    sqlite3_busy_timeout(handle, kPatienceMilliseconds);
    sqlite3_db_config(handle, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(handle, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
}

void SqliteDatabase::execute(const char* sql) {
    if (sqlite3_exec(_handle.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) throw errorOf(_handle.get());
}

void SqliteDatabase::makeEmpty() {
    sqlite3_db_config(_handle.get(), SQLITE_DBCONFIG_RESET_DATABASE, 1, nullptr);
    execute("VACUUM");
    sqlite3_db_config(_handle.get(), SQLITE_DBCONFIG_RESET_DATABASE, 0, nullptr);
}

SqliteTransaction::~SqliteTransaction() {
    sqlite3* const handle = _database._handle.get();
    // Some failures have undone it already.
    if (sqlite3_get_autocommit(handle) == 0) sqlite3_exec(handle, "ROLLBACK", nullptr, nullptr, nullptr);
}

SqliteStatement::SqliteStatement(SqliteDatabase& database, std::string_view sql) : _database(database._handle.get()) {
    sqlite3_stmt* handle = nullptr;
    const int code = sqlite3_prepare_v2(_database, sql.data(), static_cast<int>(sql.size()), &handle, nullptr);
    _handle.reset(handle);
    check(code);
}

void SqliteStatement::Finalizer::operator()(sqlite3_stmt* handle) const { sqlite3_finalize(handle); }

bool SqliteStatement::step() {
    const int code = sqlite3_step(_handle.get());
    if (code == SQLITE_ROW) return true;
    if (code != SQLITE_DONE) throw errorOf(_database);
    startOver();
    return false;
}

std::int64_t SqliteStatement::integer(int column) const { return sqlite3_column_int64(_handle.get(), column); }

// What resetting returns is the failure of the last step, which was thrown there.
void SqliteStatement::startOver() { sqlite3_reset(_handle.get()); }

void SqliteStatement::bind(int index, std::int64_t value) { check(sqlite3_bind_int64(_handle.get(), index, value)); }

void SqliteStatement::bind(int index, std::string_view value) {
    check(sqlite3_bind_text64(_handle.get(), index, value.data(), value.size(), nullptr, SQLITE_UTF8));
}

void SqliteStatement::check(int code) const {
    if (code != SQLITE_OK) throw errorOf(_database);
}
