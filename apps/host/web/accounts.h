// Who may come in: accounts, their tokens and sessions; and what users said that concerns no event.
//
// All of it stands in web.db in the state directory, a database of its own, so that nothing here ever waits for the
// writer of events or holds it up. Passwords are kept as argon2id hashes, tokens and sessions as hashes of random
// values: whoever reads the file can use none of them.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "store/database.h"

namespace fleifeisa::host {

enum class Role { kView, kAdmin };
const char* nameOf(Role role);
std::optional<Role> roleOf(std::string_view name);

struct Account {
    std::string name;
    Role role = Role::kView;
    std::optional<std::set<std::string>> cameras;  ///< that the user may see; nothing: all
    std::string hash = {};                         ///< of the password

    bool sees(const std::string& camera) const { return !cameras || cameras->contains(camera); }
};

/// "" where it is one: 1 to 64 letters, digits and "_.@-".
std::string userNameFault(std::string_view name);
/// "" where it will do.
std::string passwordFault(std::string_view password);
/// Takes a tenth of a second and 64 MiB.
std::string passwordHash(const std::string& password);
bool passwordFits(const std::string& hash, const std::string& password);

/// `bytes` random ones in letters, digits, "_" and "-".
std::string randomText(std::size_t bytes);

/// A connection to the file. For one thread; several may have one each.
class Accounts {
 public:
    static constexpr std::int64_t kSessionSeconds = 30 * 86'400;  ///< since it was used last, to the hour

    /// Opens or creates. @throws StoreError
    explicit Accounts(const std::string& directory);
    static std::string pathIn(const std::string& directory) { return directory + "/web.db"; }

    std::vector<Account> list();
    std::optional<Account> find(const std::string& name);
    bool any();
    /// False where there is one of that name.
    bool add(const Account& account);
    /// Ends its sessions. False where there is none.
    bool change(const Account& account);
    /// Ends its sessions but this one.
    void setPassword(const Account& account, std::string_view cookie);
    bool remove(const std::string& name);
    /// Whether somebody else is admin.
    bool anotherAdmin(const std::string& name);

    /// @returns what the cookie holds
    std::string beginSession(const std::string& user, std::int64_t now);
    /// "" where it is none, or has expired. @param old  useSession() is due
    std::string sessionUser(std::string_view cookie, std::int64_t now, bool& old);
    void useSession(std::string_view cookie, std::int64_t now);
    void endSession(std::string_view cookie);
    /// All but this one ("": all).
    void endSessions(const std::string& user, std::string_view but);
    std::int64_t sessions(const std::string& user);

    /// @returns what the program is to send, "" where there is one of that name
    std::string addToken(const std::string& user, const std::string& name);
    bool removeToken(const std::string& user, const std::string& name);
    std::vector<std::string> tokens(const std::string& user);
    std::string tokenUser(std::string_view token);

    /// 32 bytes for signatures, the same as long as the file lives.
    std::string secret();

    // When telling of a camera's events begins again (nanoseconds since 1970), where somebody has said so: 0: it does,
    // INT64_MAX: not until somebody says otherwise.
    std::map<std::string, std::int64_t> arming();
    void arm(const std::string& camera, std::int64_t from_ns);

    /// Another one when another connection has written.
    std::int64_t version();

 private:
    Database database_;
};

}  // namespace fleifeisa::host
