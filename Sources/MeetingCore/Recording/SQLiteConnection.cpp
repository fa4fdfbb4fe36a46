#include "MeetingCore/Recording/SQLiteConnection.h"

#include <chrono>

#include "MeetingCore/Platform/MeetingError.h"

namespace meetingcore {

namespace {

constexpr int busyMilliseconds = 5000;

MeetingError::Cause causeOf(int result) {
    using enum MeetingError::Cause;
    switch (result) {
        case SQLITE_BUSY:
            return databaseLocked;
        case SQLITE_NOTADB:
        case SQLITE_CORRUPT:
            return databaseDamaged;
        case SQLITE_READONLY:
        case SQLITE_CANTOPEN:
            return databaseNotWritable;
        case SQLITE_FULL:
        case SQLITE_IOERR:
            return databaseIO;
        default:
            return databaseOther;
    }
}

[[noreturn]] void failWithMessage(sqlite3* db) {
    throw MeetingError::database(sqlite3_errmsg(db), causeOf(sqlite3_errcode(db)));
}

}  // namespace

SQLiteStatement::SQLiteStatement(sqlite3* db, sqlite3_stmt* prepared, Values values)
    : db_(db), statement_(prepared) {
    int index = 0;
    for (const auto value : values) {
        // An empty view may have no address, which SQLite would bind as NULL.
        const char* const bytes = value.empty() ? "" : value.data();
        const auto result =
            sqlite3_bind_text64(prepared, ++index, bytes, value.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
        if (result != SQLITE_OK) failWithMessage(db);
    }
}

bool SQLiteStatement::step() {
    const auto result = sqlite3_step(statement_.get());
    if (result == SQLITE_ROW) return true;
    if (result == SQLITE_DONE) return false;
    failWithMessage(db_);
}

std::string_view SQLiteStatement::view(int column) const {
    const auto* const bytes = sqlite3_column_text(statement_.get(), column);
    if (bytes == nullptr) return {};
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column));
    return {reinterpret_cast<const char*>(bytes), size};
}

std::int64_t SQLiteStatement::integer(int column) const {
    return sqlite3_column_int64(statement_.get(), column);
}

double SQLiteStatement::real(int column) const { return sqlite3_column_double(statement_.get(), column); }

bool SQLiteStatement::isNull(int column) const {
    return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
}

SQLiteConnection::SQLiteConnection(const std::filesystem::path& file)
    : SQLiteConnection(file.string(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE) {}

std::unique_ptr<SQLiteConnection> SQLiteConnection::immutable(const std::filesystem::path& file) {
    std::string uri = "file:";
    for (const char c : std::filesystem::absolute(file).string()) {
        constexpr auto* digits = "0123456789ABCDEF";
        const auto byte = static_cast<unsigned char>(c);
        if (std::string_view("?#%").find(c) == std::string_view::npos) {
            uri += c;
        } else {
            uri.append({'%', digits[byte >> 4U], digits[byte & 15U]});
        }
    }
    return std::unique_ptr<SQLiteConnection>(
        new SQLiteConnection(uri + "?immutable=1", SQLITE_OPEN_READONLY | SQLITE_OPEN_URI));
}

SQLiteConnection::SQLiteConnection(const std::string& name, int flags) {
    sqlite3* opened = nullptr;
    const auto result = sqlite3_open_v2(name.c_str(), &opened, flags | SQLITE_OPEN_FULLMUTEX, nullptr);
    db_.reset(opened);
    if (opened == nullptr) throw MeetingError::database("SQLite konnte nicht geöffnet werden.");
    if (result != SQLITE_OK) failWithMessage(opened);
    sqlite3_busy_timeout(opened, busyMilliseconds);
}

void SQLiteConnection::executeRepeatable(const char* sql) {
    using Clock = std::chrono::steady_clock;
    constexpr int pauseMilliseconds = 10;
    const auto deadline = Clock::now() + std::chrono::milliseconds(busyMilliseconds);
    while (true) {
        const auto result = sqlite3_exec(db_.get(), sql, nullptr, nullptr, nullptr);
        if (result == SQLITE_OK) return;
        if (result != SQLITE_BUSY || Clock::now() >= deadline) failWithMessage(db_.get());
        sqlite3_sleep(pauseMilliseconds);
    }
}

void SQLiteConnection::execute(const char* sql) {
    if (sqlite3_exec(db_.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) failWithMessage(db_.get());
}

SQLiteStatement SQLiteConnection::prepare(const char* sql, SQLiteStatement::Values values) {
    auto& statement = statements_[sql];
    if (statement == nullptr) {
        sqlite3_stmt* prepared = nullptr;
        const auto result =
            sqlite3_prepare_v3(db_.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &prepared, nullptr);
        if (result != SQLITE_OK) failWithMessage(db_.get());
        statement.reset(prepared);
    }
    return {db_.get(), statement.get(), values};
}

std::int64_t SQLiteConnection::update(const char* sql, SQLiteStatement::Values values) {
    auto statement = prepare(sql, values);
    if (statement.step()) throw MeetingError::database("Unerwartete Ergebniszeile der Datenbank.");
    return sqlite3_changes(db_.get());
}

std::optional<std::string> SQLiteConnection::textValue(const char* sql, SQLiteStatement::Values values) {
    auto statement = prepare(sql, values);
    if (!statement.step() || statement.isNull(0)) return std::nullopt;
    return statement.text(0);
}

}  // namespace meetingcore
