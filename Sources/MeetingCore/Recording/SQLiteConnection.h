#pragma once

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include <sqlite3.h>

namespace meetingcore {

/// One run of a statement. Every parameter is bound as text, numbers as their decimal text: the affinity of the
/// REAL and INTEGER columns makes SQLite store and compare them as numbers.
class SQLiteStatement {
public:
    using Values = std::initializer_list<std::string_view>;

    /// Runs a prepared statement that is not running, and gives it back on destruction; errors come from `db`.
    SQLiteStatement(sqlite3* db, sqlite3_stmt* prepared, Values values);

    /// True while there is a row.
    bool step();

    std::string text(int column) const { return std::string(view(column)); }

    /// The text where it lies, until the next step.
    std::string_view view(int column) const;

    std::int64_t integer(int column) const;
    double real(int column) const;
    bool isNull(int column) const;

private:
    struct Reset {
        void operator()(sqlite3_stmt* statement) const {
            sqlite3_reset(statement);
            sqlite3_clear_bindings(statement);
        }
    };

    sqlite3* db_;
    std::unique_ptr<sqlite3_stmt, Reset> statement_;
};

/// An open SQLite database in full-mutex mode with a busy timeout of 5 s. Failures throw MeetingError
/// (database) with SQLite's own message and what it means as the cause. Each statement is compiled once, so
/// one text runs once at a time.
class SQLiteConnection {
public:
    explicit SQLiteConnection(const std::filesystem::path& file);

    /// A file that nobody writes, for reading: takes no locks and makes no journal.
    static std::unique_ptr<SQLiteConnection> immutable(const std::filesystem::path& file);

    /// Runs a script of any number of statements.
    void execute(const char* sql);

    /// Runs a script that may be repeated, again and again for up to 5 s while other connections are in its
    /// way. Where several switch a new file to WAL together, SQLite reports that at once instead of waiting.
    void executeRepeatable(const char* sql);

    /// Runs one statement that returns no rows; returns the number of rows that it changed.
    std::int64_t update(const char* sql, SQLiteStatement::Values values);

    /// The first column of the first row as text; nothing without a row or where the column is NULL.
    std::optional<std::string> textValue(const char* sql, SQLiteStatement::Values values);

    SQLiteStatement prepare(const char* sql, SQLiteStatement::Values values);

    /// Runs `body` between BEGIN IMMEDIATE and COMMIT. Taking the write lock at once keeps two processes from
    /// reading the same state and both acting on it. Any exception rolls back and goes on to the caller.
    template <class Body>
    void transaction(const Body& body) {
        update("BEGIN IMMEDIATE", {});
        try {
            body();
            update("COMMIT", {});
        } catch (...) {
            // Where SQLite has rolled back by itself this fails, and the first error is the one to report.
            sqlite3_exec(db_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
            throw;
        }
    }

private:
    SQLiteConnection(const std::string& name, int flags);

    struct Close {
        void operator()(sqlite3* db) const { sqlite3_close(db); }
    };
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };

    std::unique_ptr<sqlite3, Close> db_;
    std::unordered_map<std::string, std::unique_ptr<sqlite3_stmt, Finalize>> statements_;
};

}  // namespace meetingcore
