#include "web/access.h"

#include <sodium.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>

namespace fleifeisa::host {
namespace {

constexpr double kForget = 1800;  // seconds after which failures count no longer
constexpr std::size_t kMostKnown = 10'000;

bool isLocalName(std::string_view host) {
    return host == "localhost" || host == "[::1]" ||
           (host.starts_with("127.") && host.size() <= 15 &&
            host.find_first_not_of("0123456789.") == std::string_view::npos);
}

/// "host:port" without the port; "[::1]:80" keeps its brackets.
std::string_view hostOf(std::string_view authority) {
    const std::size_t bracket = authority.rfind(']'), colon = authority.rfind(':');
    if (colon == std::string_view::npos || (bracket != std::string_view::npos && colon < bracket)) return authority;
    return authority.substr(0, colon);
}

/// "https://cams.example.org:8443/eye" without scheme and path.
std::string_view authorityOf(std::string_view url) {
    if (const std::size_t scheme = url.find("://"); scheme != std::string_view::npos) url.remove_prefix(scheme + 3);
    return url.substr(0, url.find('/'));
}

}  // namespace

std::int64_t wallSeconds() {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

double Throttle::wait(const std::string& who, Clock::time_point now) {
    const auto found = failures_.find(who);
    if (found == failures_.end() || found->second.count < free_) return 0;
    const int doublings = std::min(found->second.count - free_, 10);
    const double pause = std::min(longest_, static_cast<double>(1 << doublings));
    return std::max(0.0, pause - Seconds(now - found->second.latest).count());
}

void Throttle::failed(const std::string& who, Clock::time_point now) {
    const auto old = [now](const auto& each) { return Seconds(now - each.second.latest).count() > kForget; };
    if (failures_.size() >= kMostKnown) std::erase_if(failures_, old);
    if (failures_.size() >= kMostKnown) failures_.erase(failures_.begin());
    Failures& failures = failures_[who];
    if (old(std::pair{who, failures})) failures.count = 0;
    ++failures.count;
    failures.latest = now;
}

void Throttle::succeeded(const std::string& who) {
    failures_.erase(who);
}

Access::Access(AccessSettings settings, const std::string& directory)
    : settings_(std::move(settings)), open_(settings_.local) {
    if (sodium_init() < 0) throw StoreError("libsodium does not start");
    if (directory.empty()) {
        secret_ = randomText(32);
        return;
    }
    accounts_ = std::make_unique<Accounts>(directory);
    secret_ = accounts_->secret();
    refresh();
}

bool Access::refresh() {
    if (!accounts_) return false;
    const std::int64_t version = accounts_->version();
    if (version == seen_version_) return false;
    seen_version_ = version;
    ++changes_;
    open_ = settings_.local && !accounts_->any();
    return true;
}

std::shared_ptr<const Identity> Access::identify(const HttpRequest& request, bool& use) {
    refresh();
    auto identity = std::make_shared<Identity>();
    if (open_) {
        // Another site's name may lead to this address: a browser then says that name.
        if (!isLocalName(hostOf(request.header("host"))))
            throw HttpError(403, "this address is for the machine itself (http://localhost)");
        identity->account.role = Role::kAdmin;
        return identity;
    }
    if (!accounts_) return nullptr;
    std::string user;
    const std::string authorization = request.header("authorization");
    if (constexpr std::string_view kBearer = "Bearer "; authorization.starts_with(kBearer)) {
        user = accounts_->tokenUser(std::string_view(authorization).substr(kBearer.size()));
        identity->bearer = true;
    } else {
        identity->cookie = request.cookie(kCookie);
        user = accounts_->sessionUser(identity->cookie, wallSeconds(), use);
    }
    if (user.empty()) return nullptr;
    const auto account = accounts_->find(user);
    if (!account) return nullptr;
    identity->user = user;
    identity->account = *account;
    return identity;
}

bool Access::holds(const Identity& identity, std::int64_t& checked) {
    refresh();
    if (std::exchange(checked, changes_) == changes_) return true;
    if (identity.user.empty()) return open_;
    bool use = false;
    if (!identity.bearer && accounts_->sessionUser(identity.cookie, wallSeconds(), use) != identity.user) return false;
    const auto account = accounts_->find(identity.user);
    return account && account->role == identity.account.role && account->cameras == identity.account.cameras;
}

void Access::checkOrigin(const HttpRequest& request) const {
    const std::string site = request.header("sec-fetch-site"), origin = request.header("origin");
    if (!site.empty() && site != "same-origin" && site != "none")
        throw HttpError(403, "asked for by a page of another site");
    if (origin.empty()) return;
    const std::string_view authority = authorityOf(origin);
    if (authority != request.header("host") && (settings_.url.empty() || authority != authorityOf(settings_.url)))
        throw HttpError(403, "asked for by a page of another site");
}

void Access::checkToken(const HttpRequest& request, const Identity& identity) const {
    if (identity.bearer) return;
    const std::string given = request.header("x-fleifeisa-token"), wanted = tokenOf(identity);
    if (given.size() != wanted.size() || sodium_memcmp(given.data(), wanted.data(), wanted.size()) != 0)
        throw HttpError(403, "the token is missing (X-Fleifeisa-Token, see session)");
}

std::string Access::keyed(const std::string& text) const {
    std::array<unsigned char, crypto_generichash_BYTES> hash{};
    crypto_generichash(hash.data(), hash.size(), reinterpret_cast<const unsigned char*>(text.data()), text.size(),
                       reinterpret_cast<const unsigned char*>(secret_.data()), secret_.size());
    std::string hex(hash.size() * 2 + 1, '\0');
    sodium_bin2hex(hex.data(), hex.size(), hash.data(), hash.size());
    hex.pop_back();
    return hex;
}

std::string Access::tokenOf(const Identity& identity) const {
    return keyed("token " + identity.cookie);
}

std::string Access::cookieHeader(const std::string& value, bool secure) const {
    const std::string age = std::to_string(value.empty() ? 0 : Accounts::kSessionSeconds);
    return std::string(kCookie) + '=' + value + "; Path=" + settings_.cookie_path + "; Max-Age=" + age +
           "; HttpOnly; SameSite=Strict" + (secure ? "; Secure" : "");
}

std::string Access::sign(const std::string& path, std::int64_t expires) const {
    return "expires=" + std::to_string(expires) + "&sign=" + keyed("link " + std::to_string(expires) + ' ' + path);
}

bool Access::isSigned(const HttpRequest& request, std::int64_t now) const {
    const std::string given = request.argument("sign"), text = request.argument("expires");
    std::int64_t expires = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), expires);
    if (given.empty() || error != std::errc{} || end != text.data() + text.size() || expires <= now) return false;
    const std::string wanted = keyed("link " + text + ' ' + request.path);
    return given.size() == wanted.size() && sodium_memcmp(given.data(), wanted.data(), wanted.size()) == 0;
}

}  // namespace fleifeisa::host
