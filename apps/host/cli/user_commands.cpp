#include "cli/user_commands.h"

#include <sysexits.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>

#include "cli/commands.h"
#include "cli/store_commands.h"
#include "common/log.h"
#include "sources/source.h"
#include "web/accounts.h"

namespace fleifeisa::host {
namespace {

/// What is typed does not show.
class Hidden {
 public:
    Hidden() : terminal_(::isatty(STDIN_FILENO) != 0 && ::tcgetattr(STDIN_FILENO, &before_) == 0) {
        if (!terminal_) return;
        termios hidden = before_;
        hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
    }
    ~Hidden() {
        if (terminal_) ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
    }
    Hidden(const Hidden&) = delete;
    Hidden& operator=(const Hidden&) = delete;
    bool terminal() const { return terminal_; }

 private:
    termios before_{};
    const bool terminal_;
};

std::string readPassword() {
    const Hidden hidden;
    const auto ask = [&hidden](const char* what) {
        std::string line;
        if (hidden.terminal()) std::fprintf(stderr, "%s: ", what);
        std::getline(std::cin, line);
        if (hidden.terminal()) std::fputc('\n', stderr);
        return line;
    };
    std::string password = ask("Password");
    if (hidden.terminal() && ask("Once more") != password) throw SourceError(EX_DATAERR, "the two differ");
    if (const std::string fault = passwordFault(password); !fault.empty()) throw SourceError(EX_DATAERR, fault);
    return password;
}

std::string directoryOf(const UserOptions& options) {
    const std::string directory = options.state.empty() ? stateDirectory() : options.state;
    if (directory.empty())
        throw SourceError(EX_USAGE, "which state directory? (--state DIRECTORY, or $STATE_DIRECTORY)");
    std::filesystem::create_directories(directory);
    return directory;
}

void applyOptions(const UserOptions& options, Account& account) {
    if (!options.role.empty()) account.role = *roleOf(options.role);
    if (options.all_cameras) account.cameras.reset();
    if (options.cameras.empty()) return;
    account.cameras.emplace();
    for (const std::string& camera : options.cameras) {
        if (!isCameraName(camera)) throw SourceError(EX_USAGE, "'" + camera + "' is no name of a camera");
        account.cameras->insert(camera);
    }
}

Account existing(Accounts& accounts, const std::string& name) {
    auto account = accounts.find(name);
    if (!account) throw SourceError(EX_NOUSER, "there is no user '" + name + "'");
    return *account;
}

int with(const UserOptions& options, const std::function<void(Accounts&)>& act) {
    return statusOf([&] {
        try {
            Accounts accounts(directoryOf(options));
            act(accounts);
        } catch (const StoreError& error) {
            throw SourceError(EX_CANTCREAT, error.what());
        }
        return 0;
    });
}

}  // namespace

int userAddCommand(const UserOptions& options) {
    return with(options, [&](Accounts& accounts) {
        if (const std::string fault = userNameFault(options.name); !fault.empty()) throw SourceError(EX_USAGE, fault);
        if (accounts.find(options.name))
            throw SourceError(EX_DATAERR, "there is a user '" + options.name + "' already");
        Account account;
        account.name = options.name;
        applyOptions(options, account);
        if (!accounts.any() && account.role != Role::kAdmin)
            throw SourceError(EX_DATAERR, "the first user must be an administrator: --role admin");
        account.hash = passwordHash(readPassword());
        accounts.add(account);
    });
}

int userListCommand(const UserOptions& options) {
    return with(options, [](Accounts& accounts) {
        for (const Account& account : accounts.list()) {
            std::string cameras = account.cameras ? "" : "all cameras";
            if (account.cameras)
                for (const std::string& camera : *account.cameras) cameras += (cameras.empty() ? "" : ",") + camera;
            std::printf("%-20s %-6s %s\n", account.name.c_str(), nameOf(account.role), cameras.c_str());
        }
    });
}

int userRemoveCommand(const UserOptions& options) {
    return with(options, [&](Accounts& accounts) {
        existing(accounts, options.name);
        // The last one may go: the page is then open again, or not served at all where it is not on this machine alone.
        if (!accounts.anotherAdmin(options.name) && accounts.list().size() > 1)
            throw SourceError(EX_DATAERR, "nobody else is administrator");
        accounts.remove(options.name);
    });
}

int userPasswordCommand(const UserOptions& options) {
    return with(options, [&](Accounts& accounts) {
        Account account = existing(accounts, options.name);
        account.hash = passwordHash(readPassword());
        accounts.setPassword(account, "");
    });
}

int userChangeCommand(const UserOptions& options) {
    return with(options, [&](Accounts& accounts) {
        Account account = existing(accounts, options.name);
        applyOptions(options, account);
        if (account.role != Role::kAdmin && !accounts.anotherAdmin(account.name))
            throw SourceError(EX_DATAERR, "nobody else is administrator");
        accounts.change(account);
    });
}

int userTokenCommand(const UserOptions& options, const std::string& token) {
    return with(options, [&](Accounts& accounts) {
        existing(accounts, options.name);
        if (const std::string fault = userNameFault(token); !fault.empty())
            throw SourceError(EX_USAGE, "'" + token + "' is no name of a token");
        const std::string value = accounts.addToken(options.name, token);
        if (value.empty()) throw SourceError(EX_DATAERR, "there is a token '" + token + "' already");
        std::puts(value.c_str());
    });
}

}  // namespace fleifeisa::host
