#include "store/database.h"

#include <filesystem>

namespace fleifeisa::host {
namespace {

/// Another connection holds the database for moments only (a checkpoint, a backup's page).
constexpr int kBusyMs = 10'000;

sqlite3* openHandle(const std::string& name, int flags) {
    sqlite3* handle = nullptr;
    if (sqlite3_open_v2(name.c_str(), &handle, flags | SQLITE_OPEN_NOMUTEX, nullptr) == SQLITE_OK) return handle;
    sqlite3_close_v2(handle);
    return nullptr;
}

bool answers(sqlite3* handle) {
    return handle && sqlite3_exec(handle, "SELECT count(*) FROM sqlite_master", nullptr, nullptr, nullptr) == SQLITE_OK;
}

}  // namespace

Statement::Statement(Database& database, std::string_view sql) : database_(&database) {
    sqlite3_stmt* statement = nullptr;
    const int code =
        sqlite3_prepare_v2(database.handle_.get(), sql.data(), static_cast<int>(sql.size()), &statement, nullptr);
    statement_.reset(statement);
    check(code);
}

bool Statement::step() {
    const int code = sqlite3_step(statement_.get());
    if (code == SQLITE_ROW) return true;
    if (code == SQLITE_DONE) return false;
    const std::string why = sqlite3_errmsg(database_->handle_.get());
    reset();
    database_->fail(why);
}

void Statement::reset() {
    sqlite3_reset(statement_.get());
}
int Statement::changed() const {
    return database_->changes();
}
bool Statement::isNull(int column) const {
    return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
}
std::int64_t Statement::integer(int column) const {
    return sqlite3_column_int64(statement_.get(), column);
}
double Statement::number(int column) const {
    return sqlite3_column_double(statement_.get(), column);
}
std::string Statement::text(int column) const {
    const void* bytes = sqlite3_column_blob(statement_.get(), column);
    const int count = sqlite3_column_bytes(statement_.get(), column);
    return bytes ? std::string(static_cast<const char*>(bytes), static_cast<std::size_t>(count)) : std::string();
}

void Statement::put(int index, std::int64_t value) {
    check(sqlite3_bind_int64(statement_.get(), index, value));
}
void Statement::put(int index, double value) {
    check(sqlite3_bind_double(statement_.get(), index, value));
}
void Statement::put(int index, std::string_view value) {
    const char* bytes = value.data() ? value.data() : "";
    check(sqlite3_bind_text(statement_.get(), index, bytes, static_cast<int>(value.size()), SQLITE_STATIC));
}
void Statement::put(int index, BlobValue value) {
    check(sqlite3_bind_blob(statement_.get(), index, value.bytes.data(), static_cast<int>(value.bytes.size()),
                            SQLITE_STATIC));
}
void Statement::putNull(int index) {
    check(sqlite3_bind_null(statement_.get(), index));
}
void Statement::check(int code) const {
    if (code != SQLITE_OK) database_->fail(sqlite3_errmsg(database_->handle_.get()));
}

Database::Database(const std::string& path, Mode mode) : path_(path) {
    if (mode == Mode::kReadWrite) {
        handle_.reset(openHandle(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE));
        if (!handle_) fail("cannot be opened");
    } else {
        if (!std::filesystem::exists(path)) fail("there is no such file");
        handle_.reset(openHandle(path, SQLITE_OPEN_READONLY));
        // A reader without the right to write next to the file: where no host runs, nothing changes it either.
        if (!answers(handle_.get()) && !std::filesystem::exists(path + "-wal"))
            handle_.reset(openHandle("file:" + path + "?immutable=1", SQLITE_OPEN_READONLY | SQLITE_OPEN_URI));
        if (!handle_) fail("cannot be opened");
    }
    sqlite3_extended_result_codes(handle_.get(), 1);
    sqlite3_busy_timeout(handle_.get(), kBusyMs);
}

void Database::run(const std::string& sql) {
    char* message = nullptr;
    if (sqlite3_exec(handle_.get(), sql.c_str(), nullptr, nullptr, &message) == SQLITE_OK) return;
    const std::string why = message ? message : "out of memory";
    sqlite3_free(message);
    fail(why);
}

std::int64_t Database::integer(std::string_view sql) {
    Statement statement = prepare(sql);
    return statement.step() ? statement.integer(0) : 0;
}

int Database::changes() const {
    return sqlite3_changes(handle_.get());
}

void Database::backup(const std::string& path) {
    Database copy(path, Mode::kReadWrite);
    sqlite3_backup* backup = sqlite3_backup_init(copy.handle_.get(), "main", handle_.get(), "main");
    if (!backup) copy.fail(sqlite3_errmsg(copy.handle_.get()));
    // In one step: it reads one moment's state from the log, which writers do not wait for.
    const int code = sqlite3_backup_step(backup, -1);
    sqlite3_backup_finish(backup);
    if (code != SQLITE_DONE) copy.fail(sqlite3_errstr(code));
}

void Database::fail(const std::string& what) const {
    throw StoreError(path_ + ": " + what);
}

Transaction::~Transaction() {
    if (!open_) return;
    try {
        database_.run("ROLLBACK");
    } catch (const StoreError&) {
        // SQLite has rolled back by itself, after the error that brought us here.
    }
}

void Transaction::commit() {
    database_.run("COMMIT");
    open_ = false;
}

}  // namespace fleifeisa::host
