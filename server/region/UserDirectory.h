// The accounts that may log in to a region's protected paths and administration page, with
// argon2id password hashes (libsodium). Successful checks are remembered for the life of
// the process, since each argon2id verification deliberately costs tens of milliseconds.
#pragma once

#include "config/ServerConfig.h"

#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace kiv
{

class UserDirectory
{
public:
    explicit UserDirectory(const RegionConfig& region);

    bool verify(std::string_view user, std::string_view password);
    // Whether verify() accepted this user and password before: no hashing, so cheap enough
    // for the thread that serves the connections.
    bool isRemembered(std::string_view user, std::string_view password);
    bool hasUsers() const { return !myAccounts.empty(); }

private:
    std::vector<UserAccount> myAccounts;
    std::mutex myMutex;
    std::set<std::string> myVerified; // digests of accepted (user, password, hash) triples
};

// `kiv-server passwd` refuses shorter passwords: the accounts guard the editor and the
// administration page, and a login can be tried from anywhere (throttled, but per worker).
constexpr size_t kMinimumPasswordCharacters = 12;
// Why the password is too weak to hash; empty when it is long enough. Characters are counted
// as UTF-8 code points.
std::string findPasswordProblem(std::string_view password);

// An argon2id hash for the password (libsodium's interactive limits).
std::string hashPassword(std::string_view password);
bool verifyPassword(std::string_view hash, std::string_view password);

// Creates usersFile with one account "admin" and a random password when it does not
// exist; returns the password, or an empty string when the file was already there.
std::string createInitialAccount(const std::filesystem::path& usersFile);

} // namespace kiv
