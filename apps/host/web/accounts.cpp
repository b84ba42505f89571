#include "web/accounts.h"

#include <fcntl.h>
#include <sodium.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <sstream>

namespace fleifeisa::host {
namespace {

constexpr std::int64_t kUsedStep = 3600;  // seconds between notes that a session is in use
constexpr std::size_t kSecretBytes = 32, kMostSessions = 50;

/// Also makes the file unreadable for others, before anything is in it.
std::string prepared(const std::string& path) {
    if (sodium_init() < 0) throw StoreError("libsodium does not start");
    // SQLite gives the files beside it the same mode. Only where there is none: closing a file that another connection
    // of this process has open would drop its locks.
    if (const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600); file >= 0) ::close(file);
    return path;
}

/// Of a token or session: fast, because what is hashed is random.
std::string digest(std::string_view text) {
    std::array<unsigned char, crypto_generichash_BYTES> hash{};
    crypto_generichash(hash.data(), hash.size(), reinterpret_cast<const unsigned char*>(text.data()), text.size(),
                       nullptr, 0);
    std::string hex(hash.size() * 2 + 1, '\0');
    sodium_bin2hex(hex.data(), hex.size(), hash.data(), hash.size());
    hex.pop_back();
    return hex;
}

/// "*" is all.
std::string camerasText(const Account& account) {
    if (!account.cameras) return "*";
    std::string text;
    for (const std::string& camera : *account.cameras) text += (text.empty() ? "" : ",") + camera;
    return text;
}

Account accountOf(const Statement& row) {
    Account account{row.text(0), row.integer(1) == 1 ? Role::kAdmin : Role::kView, std::nullopt, row.text(3)};
    if (row.text(2) == "*") return account;
    account.cameras.emplace();
    std::istringstream names(row.text(2));
    for (std::string name; std::getline(names, name, ',');) account.cameras->insert(name);
    return account;
}

}  // namespace

const char* nameOf(Role role) {
    return role == Role::kAdmin ? "admin" : "view";
}

std::optional<Role> roleOf(std::string_view name) {
    if (name == "view") return Role::kView;
    if (name == "admin") return Role::kAdmin;
    return std::nullopt;
}

std::string userNameFault(std::string_view name) {
    const auto fits = [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
               std::string_view("_.@-").find(c) != std::string_view::npos;
    };
    constexpr std::size_t kLongest = 64;
    const bool good = !name.empty() && name.size() <= kLongest && std::ranges::all_of(name, fits);
    return good ? "" : "a user's name has 1 to 64 letters, digits, '_', '.', '@' and '-'";
}

std::string passwordFault(std::string_view password) {
    constexpr std::size_t kShortest = 8, kLongest = 1024;
    if (password.size() < kShortest) return "a password has at least 8 characters";
    return password.size() > kLongest ? "a password has at most 1024 bytes" : "";
}

std::string passwordHash(const std::string& password) {
    std::array<char, crypto_pwhash_STRBYTES> hash{};
    if (sodium_init() < 0 ||
        crypto_pwhash_str_alg(hash.data(), password.data(), password.size(), crypto_pwhash_OPSLIMIT_INTERACTIVE,
                              crypto_pwhash_MEMLIMIT_INTERACTIVE, crypto_pwhash_ALG_ARGON2ID13) != 0)
        throw std::runtime_error("there is not enough memory to hash a password");
    return hash.data();
}

bool passwordFits(const std::string& hash, const std::string& password) {
    return crypto_pwhash_str_verify(hash.c_str(), password.data(), password.size()) == 0;
}

std::string randomText(std::size_t bytes) {
    std::string raw(bytes, '\0');
    randombytes_buf(raw.data(), raw.size());
    constexpr int kVariant = sodium_base64_VARIANT_URLSAFE_NO_PADDING;
    std::string text(sodium_base64_ENCODED_LEN(bytes, kVariant), '\0');
    sodium_bin2base64(text.data(), text.size(), reinterpret_cast<const unsigned char*>(raw.data()), raw.size(),
                      kVariant);
    text.pop_back();
    return text;
}

Accounts::Accounts(const std::string& directory) : database_(prepared(pathIn(directory)), Database::Mode::kReadWrite) {
    database_.run("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL");
    database_.run(R"(
CREATE TABLE IF NOT EXISTS users(name TEXT PRIMARY KEY, role INTEGER NOT NULL, cameras TEXT NOT NULL,
                                 hash TEXT NOT NULL) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS sessions(digest TEXT PRIMARY KEY, user TEXT NOT NULL, used INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS tokens(digest TEXT PRIMARY KEY, user TEXT NOT NULL, name TEXT NOT NULL,
                                  UNIQUE(user, name)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS arming(camera TEXT PRIMARY KEY, from_ns INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS secrets(name TEXT PRIMARY KEY, value BLOB NOT NULL) WITHOUT ROWID;
PRAGMA user_version = 1)");
}

std::vector<Account> Accounts::list() {
    std::vector<Account> accounts;
    Statement rows = database_.prepare("SELECT name, role, cameras, hash FROM users ORDER BY name");
    while (rows.step()) accounts.push_back(accountOf(rows));
    return accounts;
}

std::optional<Account> Accounts::find(const std::string& name) {
    Statement row = database_.prepare("SELECT name, role, cameras, hash FROM users WHERE name = ?");
    if (!row.bind(std::string_view(name)).step()) return std::nullopt;
    return accountOf(row);
}

bool Accounts::any() {
    return database_.integer("SELECT count(*) FROM users") > 0;
}

bool Accounts::add(const Account& account) {
    const std::string cameras = camerasText(account);
    database_.prepare("INSERT OR IGNORE INTO users(name, role, cameras, hash) VALUES(?, ?, ?, ?)")
        .bind(std::string_view(account.name), account.role == Role::kAdmin, std::string_view(cameras),
              std::string_view(account.hash))
        .run();
    return database_.changes() > 0;
}

bool Accounts::change(const Account& account) {
    const std::string cameras = camerasText(account);
    Transaction transaction(database_);
    database_.prepare("UPDATE users SET role = ?2, cameras = ?3, hash = ?4 WHERE name = ?1")
        .bind(std::string_view(account.name), account.role == Role::kAdmin, std::string_view(cameras),
              std::string_view(account.hash))
        .run();
    const bool found = database_.changes() > 0;
    endSessions(account.name, "");
    transaction.commit();
    return found;
}

void Accounts::setPassword(const Account& account, std::string_view cookie) {
    Transaction transaction(database_);
    database_.prepare("UPDATE users SET hash = ?2 WHERE name = ?1")
        .bind(std::string_view(account.name), std::string_view(account.hash))
        .run();
    endSessions(account.name, cookie);
    transaction.commit();
}

bool Accounts::remove(const std::string& name) {
    Transaction transaction(database_);
    for (const char* table : {"sessions", "tokens"})
        database_.prepare(std::string("DELETE FROM ") + table + " WHERE user = ?").bind(std::string_view(name)).run();
    database_.prepare("DELETE FROM users WHERE name = ?").bind(std::string_view(name)).run();
    const bool found = database_.changes() > 0;
    transaction.commit();
    return found;
}

bool Accounts::anotherAdmin(const std::string& name) {
    Statement row = database_.prepare("SELECT 1 FROM users WHERE role = 1 AND name != ?");
    return row.bind(std::string_view(name)).step();
}

std::string Accounts::beginSession(const std::string& user, std::int64_t now) {
    std::string cookie = randomText(kSecretBytes);
    const std::string hash = digest(cookie);
    Transaction transaction(database_);
    database_.prepare("DELETE FROM sessions WHERE used < ?").bind(now - kSessionSeconds).run();
    database_.prepare("INSERT INTO sessions(digest, user, used) VALUES(?, ?, ?)")
        .bind(std::string_view(hash), std::string_view(user), now)
        .run();
    // Whoever logs in again and again without a cookie loses the oldest.
    database_
        .prepare(
            "DELETE FROM sessions WHERE user = ?1 AND digest NOT IN (SELECT digest FROM sessions WHERE user = ?1 "
            "ORDER BY used DESC LIMIT ?2)")
        .bind(std::string_view(user), static_cast<std::int64_t>(kMostSessions))
        .run();
    transaction.commit();
    return cookie;
}

std::string Accounts::sessionUser(std::string_view cookie, std::int64_t now, bool& old) {
    if (cookie.empty()) return "";
    const std::string hash = digest(cookie);
    Statement row = database_.prepare("SELECT user, used FROM sessions WHERE digest = ? AND used >= ?");
    if (!row.bind(std::string_view(hash), now - kSessionSeconds).step()) return "";
    old = row.integer(1) + kUsedStep < now;
    return row.text(0);
}

void Accounts::useSession(std::string_view cookie, std::int64_t now) {
    const std::string hash = digest(cookie);
    database_.prepare("UPDATE sessions SET used = ? WHERE digest = ?").bind(now, std::string_view(hash)).run();
}

void Accounts::endSession(std::string_view cookie) {
    const std::string hash = digest(cookie);
    database_.prepare("DELETE FROM sessions WHERE digest = ?").bind(std::string_view(hash)).run();
}

void Accounts::endSessions(const std::string& user, std::string_view but) {
    const std::string hash = digest(but);
    database_.prepare("DELETE FROM sessions WHERE user = ? AND digest != ?")
        .bind(std::string_view(user), std::string_view(hash))
        .run();
}

std::int64_t Accounts::sessions(const std::string& user) {
    Statement row = database_.prepare("SELECT count(*) FROM sessions WHERE user = ?");
    row.bind(std::string_view(user)).step();
    return row.integer(0);
}

std::string Accounts::addToken(const std::string& user, const std::string& name) {
    std::string token = "ff_" + randomText(kSecretBytes);
    const std::string hash = digest(token);
    database_.prepare("INSERT OR IGNORE INTO tokens(digest, user, name) VALUES(?, ?, ?)")
        .bind(std::string_view(hash), std::string_view(user), std::string_view(name))
        .run();
    return database_.changes() > 0 ? token : "";
}

bool Accounts::removeToken(const std::string& user, const std::string& name) {
    database_.prepare("DELETE FROM tokens WHERE user = ? AND name = ?")
        .bind(std::string_view(user), std::string_view(name))
        .run();
    return database_.changes() > 0;
}

std::vector<std::string> Accounts::tokens(const std::string& user) {
    std::vector<std::string> names;
    Statement rows = database_.prepare("SELECT name FROM tokens WHERE user = ? ORDER BY name");
    rows.bind(std::string_view(user));
    while (rows.step()) names.push_back(rows.text(0));
    return names;
}

std::string Accounts::tokenUser(std::string_view token) {
    const std::string hash = digest(token);
    Statement row = database_.prepare("SELECT user FROM tokens WHERE digest = ?");
    return row.bind(std::string_view(hash)).step() ? row.text(0) : "";
}

std::string Accounts::secret() {
    std::string fresh(kSecretBytes, '\0');
    randombytes_buf(fresh.data(), fresh.size());
    database_.prepare("INSERT OR IGNORE INTO secrets(name, value) VALUES('links', ?)").bind(BlobValue{fresh}).run();
    Statement row = database_.prepare("SELECT value FROM secrets WHERE name = 'links'");
    row.bind().step();
    return row.text(0);
}

std::map<std::string, std::int64_t> Accounts::arming() {
    std::map<std::string, std::int64_t> all;
    Statement rows = database_.prepare("SELECT camera, from_ns FROM arming");
    while (rows.step()) all[rows.text(0)] = rows.integer(1);
    return all;
}

void Accounts::arm(const std::string& camera, std::int64_t from_ns) {
    database_.prepare("INSERT OR REPLACE INTO arming(camera, from_ns) VALUES(?, ?)")
        .bind(std::string_view(camera), from_ns)
        .run();
}

std::int64_t Accounts::version() {
    return database_.integer("PRAGMA data_version");
}

}  // namespace fleifeisa::host
