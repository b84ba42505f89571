// The verb `user`: accounts of the page, beside a running host or without one.
#pragma once

#include <string>
#include <vector>

namespace fleifeisa::host {

struct UserOptions {
    std::string state;  ///< the state directory, "": $STATE_DIRECTORY
    std::string name;
    std::string role;                  ///< "view" or "admin", "": view, or as it was
    std::vector<std::string> cameras;  ///< that the user may see; empty: all, or as it was
    bool all_cameras = false;
};
/// Passwords are asked for at the terminal, or are the first line of standard input.
int userAddCommand(const UserOptions& options);
int userListCommand(const UserOptions& options);
int userRemoveCommand(const UserOptions& options);
int userPasswordCommand(const UserOptions& options);
/// Role and cameras.
int userChangeCommand(const UserOptions& options);
/// Prints a new token for a program.
int userTokenCommand(const UserOptions& options, const std::string& token);

}  // namespace fleifeisa::host
