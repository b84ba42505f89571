// Who asks, and whether this may be asked from there.
//
// Without accounts whoever reaches the address may do everything, and the address must be the machine's own. Browsers
// carry a session's cookie, programs a bearer token, messages links that are signed and expire. What changes something
// must also bring a token that a page of another site cannot know.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "http/message.h"
#include "web/accounts.h"

namespace fleifeisa::host {

struct Identity {
    std::string user;    ///< "": open access
    Account account;     ///< as of this request
    std::string cookie;  ///< of the session, "": none
    bool bearer = false;

    bool admin() const { return account.role == Role::kAdmin; }
    bool sees(const std::string& camera) const { return account.sees(camera); }
};

/// Slows guessing down: the more attempts fail, the longer the next one has to wait.
class Throttle {
 public:
    /// @param free  attempts before waiting begins  @param longest  seconds to wait at most
    Throttle(int free, double longest) : free_(free), longest_(longest) {}

    /// Seconds until an attempt may be made, 0: now.
    double wait(const std::string& who, Clock::time_point now = Clock::now());
    void failed(const std::string& who, Clock::time_point now = Clock::now());
    void succeeded(const std::string& who);

 private:
    struct Failures {
        int count = 0;
        Clock::time_point latest{};
    };
    const int free_;
    const double longest_;
    std::map<std::string, Failures> failures_;
};

struct AccessSettings {
    std::string cookie_path = "/";
    std::string url;    ///< what people type, "https://cams.example.org/eye", "": the address itself
    bool local = true;  ///< reached from this machine alone: without accounts everything is allowed, else nothing
};

/// For the server's thread, which reads accounts itself; what is written is others' work.
class Access {
 public:
    static constexpr const char* kCookie = "fleifeisa";

    /// @param directory  of the accounts, "": there are none and will be none @throws StoreError
    Access(AccessSettings settings, const std::string& directory);

    /// Looks whether others changed the accounts; true where they did.
    bool refresh();
    /// There are no accounts, and none are needed.
    bool open() const { return open_; }
    /// Null: nobody. @param use  set where Accounts::useSession() is due
    std::shared_ptr<const Identity> identify(const HttpRequest& request, bool& use);
    /// The same user with the same rights is still logged in. Cheap while no account changes.
    bool holds(const Identity& identity, std::int64_t& checked);

    /// Refuses what other sites make a browser ask. @throws HttpError 403
    void checkOrigin(const HttpRequest& request) const;
    /// Refuses a change without the session's token. @throws HttpError 403
    void checkToken(const HttpRequest& request, const Identity& identity) const;
    std::string tokenOf(const Identity& identity) const;

    std::string cookieHeader(const std::string& value, bool secure) const;
    /// "expires=...&sign=..."
    std::string sign(const std::string& path, std::int64_t expires) const;
    bool isSigned(const HttpRequest& request, std::int64_t now) const;

 private:
    std::string keyed(const std::string& text) const;

    const AccessSettings settings_;
    std::unique_ptr<Accounts> accounts_;
    std::string secret_;
    std::atomic<bool> open_;  ///< written by the server's thread
    std::int64_t seen_version_ = -1, changes_ = 0;
};

/// Seconds since 1970.
std::int64_t wallSeconds();

}  // namespace fleifeisa::host
