// Sqlite.h: the SQLite library's handles, owned, and its failures as exceptions.
//   Throws:  SqliteError from everything but destructors.
//   Threads: one at a time for a database with its statements. Other processes may use the same file; who has to wait
//            for them waits for ten seconds.
#ifndef VOLE_TOOL_SQLITE_H
#define VOLE_TOOL_SQLITE_H

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

class SqliteError : public std::runtime_error {
public:
    enum class Kind { damage, other };  // damage: the file can be read and written, but what is in it makes no sense
    SqliteError(Kind kind, const std::string& text) : std::runtime_error(text), _kind(kind) {}
    bool isDamage() const { return _kind == Kind::damage; }

private:
    Kind _kind;
};

class SqliteDatabase {
public:
    // The file has to be there; one without any byte is an empty database.
    explicit SqliteDatabase(const std::string& path);

    // One or more statements that return nothing.
    void execute(const char* sql);

    // Throws everything away, whatever state it is in; others that have the database open see an empty one.
    void makeEmpty();

private:
    friend class SqliteStatement;
    friend class SqliteTransaction;
    struct Closer {
        void operator()(sqlite3* handle) const;
    };
    std::unique_ptr<sqlite3, Closer> _handle;
};

// A transaction that may write. Undone unless commit() was reached.
class SqliteTransaction {
public:
    explicit SqliteTransaction(SqliteDatabase& database) : _database(database) { database.execute("BEGIN IMMEDIATE"); }
    SqliteTransaction(const SqliteTransaction&) = delete;
    SqliteTransaction& operator=(const SqliteTransaction&) = delete;
    ~SqliteTransaction();
    void commit() { _database.execute("COMMIT"); }

private:
    SqliteDatabase& _database;
};

class SqliteStatement {
public:
    SqliteStatement(SqliteDatabase& database, std::string_view sql);

    // Starts over with these values for ?1, ?2 and so on. Texts are not copied: they have to outlive the steps.
    template <class... Values>
    SqliteStatement& with(const Values&... values) {
        startOver();
        int index = 0;
        (bind(++index, values), ...);
        return *this;
    }

    // Goes to the next row; false when there is none, and the statement is then done.
    bool step();

    std::int64_t integer(int column) const;

private:
    struct Finalizer {
        void operator()(sqlite3_stmt* handle) const;
    };
    void startOver();
    void bind(int index, std::int64_t value);
    void bind(int index, std::string_view value);
    void check(int code) const;

    sqlite3* _database;
    std::unique_ptr<sqlite3_stmt, Finalizer> _handle;
};

#endif  // VOLE_TOOL_SQLITE_H
