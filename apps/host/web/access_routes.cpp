// Sessions, users, tokens.
#include <chrono>

#include "common/text.h"
#include "sources/source.h"
#include "web/json_body.h"
#include "web/web_server.h"

namespace fleifeisa::host {
namespace {

std::string camerasJson(const std::optional<std::set<std::string>>& cameras) {
    if (!cameras) return "null";
    std::string json = "[";
    for (const std::string& camera : *cameras) json += (json.size() > 1 ? "," : "") + jsonString(camera);
    return json + ']';
}

std::string userJson(Accounts& accounts, const Account& account) {
    std::string json = "{\"name\":" + jsonString(account.name) + ",\"role\":\"" + nameOf(account.role) +
                       "\",\"cameras\":" + camerasJson(account.cameras) +
                       ",\"sessions\":" + std::to_string(accounts.sessions(account.name)) + ",\"tokens\":[";
    bool first = true;
    for (const std::string& token : accounts.tokens(account.name))
        json += (std::exchange(first, false) ? "" : ",") + jsonString(token);
    return json + "]}";
}

/// Fields of NewUser and UserChange.
void readUser(const JsonBody& body, Account& account) {
    if (const auto role = body.text("role")) {
        const auto known = roleOf(*role);
        if (!known) throw HttpError(400, "role: expected view or admin");
        account.role = *known;
    }
    if (const auto password = body.text("password")) {
        if (const std::string fault = passwordFault(*password); !fault.empty()) throw HttpError(400, fault);
        account.hash = passwordHash(*password);
    }
    if (!body.has("cameras")) return;
    account.cameras.reset();
    if (body.isNull("cameras")) return;
    account.cameras.emplace();
    for (const std::string& camera : body.texts("cameras")) {
        if (!isCameraName(camera)) throw HttpError(400, "cameras: expected names of cameras");
        account.cameras->insert(camera);
    }
}

}  // namespace

std::string WebServer::sessionJson(const Identity* identity) const {
    const std::int64_t now = std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
    std::string json = std::string("{\"access\":\"") + (access_.open() ? "open" : "accounts") + "\",\"user\":";
    json += identity && !identity->user.empty() ? jsonString(identity->user) : "null";
    json += ",\"role\":" + (identity ? std::string("\"") + nameOf(identity->account.role) + '"' : "null");
    json += ",\"cameras\":" + (identity ? camerasJson(identity->account.cameras) : "null");
    json += ",\"token\":" + (identity ? jsonString(access_.tokenOf(*identity)) : "null");
    return json + ",\"version\":" + jsonString(parts_.version) + ",\"time\":\"" + rfc3339(now) +
           "\",\"time_ns\":" + std::to_string(now) + ",\"timezone\":" + jsonString(parts_.timezone) + '}';
}

/// In the login's thread: hashing takes a tenth of a second. A user that does not exist takes as long as one that does.
void WebServer::login(const Call& call) {
    if (access_.open()) throw HttpError(400, "there are no accounts here");
    const JsonBody body(call.request->body);
    const std::string user = body.needText("user"), password = body.needText("password");
    const std::string from = "from " + call.request->peer, as = "as " + user;
    forgiveThrottle();
    const double wait = std::max(by_address_.wait(from), by_user_.wait(as));
    if (wait > 0) {
        HttpResponse response = errorResponse(429, "too many attempts, wait a little");
        response.headers = {{"Retry-After", std::to_string(static_cast<int>(wait) + 1)}};
        return call.answer(std::move(response));
    }
    // Counts as failed until it has not: who asks ten times at once does not get ten attempts.
    by_address_.failed(from);
    by_user_.failed(as);
    const bool taken = login_worker_->post([this, call, user, password, from, as] {
        try {
            static const std::string nobody = passwordHash(randomText(16));
            Accounts accounts(parts_.state);
            const auto account = accounts.find(user);
            const bool fits = passwordFits(account ? account->hash : nobody, password);
            if (!account || !fits) return call.answer(errorResponse(401, "user and password do not fit"));
            auto identity = Identity{user, *account, accounts.beginSession(user, wallSeconds()), false};
            HttpResponse response = jsonResponse(sessionJson(&identity));
            response.headers.emplace_back("Set-Cookie", access_.cookieHeader(identity.cookie, call.request->secure));
            noteSuccess(from, as);
            call.answer(std::move(response));
        } catch (const std::exception&) {
            call.answer(errorResponse(503, "accounts cannot be read"));
        }
    });
    if (!taken) throw HttpError(503, "too many attempts at once");
}

/// Guessing the old password is slowed down as a login is.
void WebServer::changePassword(const Call& call) {
    const JsonBody body(call.request->body);
    const std::string user = call.identity->user, before = body.needText("old"), after = body.needText("new");
    if (user.empty()) throw HttpError(400, "there are no accounts here");
    if (const std::string fault = passwordFault(after); !fault.empty()) throw HttpError(400, fault);
    forgiveThrottle();
    if (by_user_.wait("as " + user) > 0) throw HttpError(429, "too many attempts, wait a little");
    by_user_.failed("as " + user);
    const bool taken = login_worker_->post([this, call, user, before, after] {
        try {
            Accounts accounts(parts_.state);
            auto account = accounts.find(user);
            if (!account || !passwordFits(account->hash, before))
                return call.answer(errorResponse(401, "the old password is another one"));
            account->hash = passwordHash(after);
            accounts.setPassword(*account, call.identity->cookie);
            noteSuccess("", "as " + user);
            call.answer(noContent());
        } catch (const std::exception&) {
            call.answer(errorResponse(503, "accounts cannot be written"));
        }
    });
    if (!taken) throw HttpError(503, "too many attempts at once");
}

void WebServer::noteSuccess(const std::string& address, const std::string& user) {
    const std::lock_guard lock(mutex_);
    succeeded_.emplace_back(address, user);
}

/// Those who logged in may try again at once.
void WebServer::forgiveThrottle() {
    std::vector<std::pair<std::string, std::string>> succeeded;
    {
        const std::lock_guard lock(mutex_);
        succeeded.swap(succeeded_);
    }
    for (const auto& [address, user] : succeeded) {
        by_address_.succeeded(address);
        by_user_.succeeded(user);
    }
}

void WebServer::addAccessRoutes() {
    const auto now = [this](const char* method, const char* pattern, Need need, Handle handle) {
        routes_.push_back({method, pattern, need, Place::kNow, std::move(handle)});
    };
    // Accounts are written where the disk may be waited for.
    const auto later = [this](const char* method, const char* pattern, Need need,
                              const std::function<HttpResponse(Call&, Accounts&)>& handle) {
        routes_.push_back({method, pattern, need, Place::kStore, [this, handle](Call& call) {
                               if (parts_.state.empty()) throw HttpError(409, "accounts need a state directory");
                               Accounts accounts(parts_.state);
                               return handle(call, accounts);
                           }});
    };
    now("GET", "session", Need::kNothing,
        [this](Call& call) { return jsonResponse(sessionJson(call.identity.get())); });
    now("POST", "session", Need::kNothing, [this](Call& call) {
        login(call);
        return std::nullopt;
    });
    later("DELETE", "session", Need::kNothing, [this](Call& call, Accounts& accounts) {
        accounts.endSession(call.request->cookie(Access::kCookie));
        HttpResponse response;
        response.status = 204;
        response.headers.emplace_back("Set-Cookie", access_.cookieHeader("", call.request->secure));
        return response;
    });
    now("PUT", "session/password", Need::kView, [this](Call& call) {
        changePassword(call);
        return std::nullopt;
    });
    later("GET", "users", Need::kAdmin, [](Call&, Accounts& accounts) {
        std::string json;
        for (const Account& account : accounts.list()) json += (json.empty() ? "" : ",") + userJson(accounts, account);
        return jsonResponse('[' + json + ']');
    });
    later("POST", "users", Need::kAdmin, [](Call& call, Accounts& accounts) {
        const JsonBody body(call.request->body);
        Account account;
        account.name = body.needText("name");
        if (const std::string fault = userNameFault(account.name); !fault.empty()) throw HttpError(400, fault);
        body.needText("password");
        body.needText("role");
        readUser(body, account);
        if (!accounts.any() && account.role != Role::kAdmin)
            throw HttpError(409, "the first user must be an administrator: nobody could change anything else");
        if (!accounts.add(account)) throw HttpError(409, "there is a user of that name");
        return jsonResponse(userJson(accounts, account), 201);
    });
    later("PATCH", "users/{user}", Need::kAdmin, [](Call& call, Accounts& accounts) {
        auto account = accounts.find(call.parts["user"]);
        if (!account) throw HttpError(404, "there is no such user");
        readUser(JsonBody(call.request->body), *account);
        if (account->role != Role::kAdmin && !accounts.anotherAdmin(account->name))
            throw HttpError(409, "nobody else is administrator");
        accounts.change(*account);
        return jsonResponse(userJson(accounts, *account));
    });
    later("DELETE", "users/{user}", Need::kAdmin, [](Call& call, Accounts& accounts) {
        const std::string& name = call.parts["user"];
        if (!accounts.find(name)) throw HttpError(404, "there is no such user");
        if (!accounts.anotherAdmin(name)) throw HttpError(409, "nobody else is administrator");
        accounts.remove(name);
        return noContent();
    });
    later("POST", "users/{user}/tokens", Need::kAdmin, [](Call& call, Accounts& accounts) {
        const std::string name = JsonBody(call.request->body).needText("name");
        if (!accounts.find(call.parts["user"])) throw HttpError(404, "there is no such user");
        if (const std::string fault = userNameFault(name); !fault.empty())
            throw HttpError(400, "name: expected 1 to 64 letters, digits, '_', '.', '@' and '-'");
        const std::string token = accounts.addToken(call.parts["user"], name);
        if (token.empty()) throw HttpError(409, "there is a token of that name");
        return jsonResponse("{\"name\":" + jsonString(name) + ",\"token\":" + jsonString(token) + '}', 201);
    });
    later("DELETE", "users/{user}/tokens/{token}", Need::kAdmin, [](Call& call, Accounts& accounts) {
        if (!accounts.removeToken(call.parts["user"], call.parts["token"]))
            throw HttpError(404, "there is no such token");
        return noContent();
    });
}

}  // namespace fleifeisa::host
