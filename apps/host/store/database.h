// SQLite with owners and exceptions.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace fleifeisa::host {

/// A sentence for the log, with the file's name.
class StoreError : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

/// Bytes to be bound as a blob.
struct BlobValue {
    std::string_view bytes;
};

class Database;

/// One prepared statement. Values are bound from the left, columns counted from 0. Texts and blobs must live until
/// the statement is stepped.
class Statement {
 public:
    template <typename... Values>
    Statement& bind(const Values&... values) {
        reset();
        int index = 0;
        (put(++index, values), ...);
        return *this;
    }
    /// True while there is a row. @throws StoreError
    bool step();
    /// All of it, for statements without rows. @throws StoreError
    void run() {
        while (step()) continue;
        reset();
    }
    void reset();
    /// Rows it changed the last time.
    int changed() const;

    bool isNull(int column) const;
    std::int64_t integer(int column) const;
    double number(int column) const;
    std::string text(int column) const;  ///< also of a blob

 private:
    friend class Database;
    Statement(Database& database, std::string_view sql);
    void put(int index, std::int64_t value);
    void put(int index, int value) { put(index, static_cast<std::int64_t>(value)); }
    void put(int index, bool value) { put(index, static_cast<std::int64_t>(value)); }
    void put(int index, double value);
    void put(int index, std::string_view value);
    void put(int index, BlobValue value);
    void putNull(int index);
    template <typename Value>
    void put(int index, const std::optional<Value>& value) {
        value ? put(index, *value) : putNull(index);
    }
    void check(int code) const;

    struct Finalize {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    Database* database_;
    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

class Database {
 public:
    enum class Mode { kReadWrite, kReadOnly };
    /// Read-only: beside a running host as well as without one. @throws StoreError
    Database(const std::string& path, Mode mode);

    Statement prepare(std::string_view sql) { return {*this, sql}; }
    void run(const std::string& sql);
    /// The first column of the first row, 0 where there is none.
    std::int64_t integer(std::string_view sql);
    /// Rows changed by the latest statement.
    int changes() const;
    /// A whole copy while others write. @throws StoreError
    void backup(const std::string& path);

    const std::string& path() const { return path_; }
    [[noreturn]] void fail(const std::string& what) const;

 private:
    friend class Statement;
    struct Close {
        void operator()(sqlite3* handle) const { sqlite3_close_v2(handle); }
    };
    std::string path_;
    std::unique_ptr<sqlite3, Close> handle_;
};

/// Begins at once to write; rolls back unless committed.
class Transaction {
 public:
    explicit Transaction(Database& database) : database_(database) { database_.run("BEGIN IMMEDIATE"); }
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    void commit();

 private:
    Database& database_;
    bool open_ = true;
};

}  // namespace fleifeisa::host
