// Accounts and password hashing.
#include "region/UserDirectory.h"

#include "logging/Log.h"

#include <condition_variable>
#include <fcntl.h>
#include <mutex>
#include <sodium.h>
#include <stdexcept>
#include <unistd.h>

namespace kiv
{

namespace
{

void initializeSodium()
{
    if (sodium_init() < 0)
        throw std::runtime_error("libsodium cannot be initialised");
}

std::string digestOf(std::string_view user, std::string_view password, std::string_view hash)
{
    std::string input = std::string(user) + '\0' + std::string(password) + '\0' + std::string(hash);
    unsigned char digest[crypto_generichash_BYTES];
    crypto_generichash(digest, sizeof digest, reinterpret_cast<const unsigned char*>(input.data()),
                       input.size(), nullptr, 0);
    sodium_memzero(input.data(), input.size());
    return std::string(reinterpret_cast<char*>(digest), sizeof digest);
}

// Every argon2id verification holds 64 MiB for tens of milliseconds; checks from many
// threads at once (logins, or modules that check passwords while rendering) would multiply
// that. At most two run at a time in a process; the others wait their turn.
class VerificationGate
{
public:
    class Turn
    {
    public:
        explicit Turn(VerificationGate& gate) : myGate(gate)
        {
            std::unique_lock<std::mutex> lock(myGate.myMutex);
            myGate.myFree.wait(lock, [this] { return myGate.myRunning < kMaxRunning; });
            ++myGate.myRunning;
        }
        ~Turn()
        {
            {
                std::lock_guard<std::mutex> lock(myGate.myMutex);
                --myGate.myRunning;
            }
            myGate.myFree.notify_one();
        }
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

    private:
        VerificationGate& myGate;
    };

private:
    static constexpr int kMaxRunning = 2;
    std::mutex myMutex;
    std::condition_variable myFree;
    int myRunning = 0;
};

VerificationGate ourVerificationGate;

// Verified instead when the user name is unknown, so that a failed login costs the same
// time whether or not the name exists: timing must not tell which accounts there are.
const std::string& unknownUserHash()
{
    static const std::string hash = hashPassword("kiv-server: no such user");
    return hash;
}

} // namespace

std::string hashPassword(std::string_view password)
{
    initializeSodium();
    char hash[crypto_pwhash_STRBYTES];
    if (crypto_pwhash_str(hash, password.data(), password.size(), crypto_pwhash_OPSLIMIT_INTERACTIVE,
                          crypto_pwhash_MEMLIMIT_INTERACTIVE) != 0)
        throw std::runtime_error("not enough memory to hash the password");
    return hash;
}

bool verifyPassword(std::string_view hash, std::string_view password)
{
    initializeSodium();
    std::string terminated(hash);
    VerificationGate::Turn turn(ourVerificationGate);
    return crypto_pwhash_str_verify(terminated.c_str(), password.data(), password.size()) == 0;
}

UserDirectory::UserDirectory(const RegionConfig& region) : myAccounts(region.users)
{
    std::error_code error;
    if (!region.usersFile.empty() && std::filesystem::exists(region.usersFile, error))
    {
        try
        {
            for (auto& account : readUsersFile(region.usersFile))
                myAccounts.push_back(std::move(account));
        }
        catch (const ConfigError& problem)
        {
            writeServerLog(LogKind::Error, {region.name, "", ""}, problem.what());
        }
    }
}

bool UserDirectory::isRemembered(std::string_view user, std::string_view password)
{
    for (const auto& account : myAccounts)
    {
        if (account.name != user)
            continue;
        std::string digest = digestOf(user, password, account.passwordHash);
        std::lock_guard<std::mutex> lock(myMutex);
        return myVerified.count(digest) > 0;
    }
    return false;
}

bool UserDirectory::verify(std::string_view user, std::string_view password)
{
    if (isRemembered(user, password))
        return true;
    for (const auto& account : myAccounts)
    {
        if (account.name != user)
            continue;
        if (!verifyPassword(account.passwordHash, password))
            return false;
        std::lock_guard<std::mutex> lock(myMutex);
        myVerified.insert(digestOf(user, password, account.passwordHash));
        return true;
    }
    verifyPassword(unknownUserHash(), password);
    return false;
}

std::string findPasswordProblem(std::string_view password)
{
    size_t characters = 0;
    for (char c : password)
        characters += (static_cast<unsigned char>(c) & 0xC0) != 0x80 ? 1 : 0;
    if (characters < kMinimumPasswordCharacters)
        return "the password has " + std::to_string(characters) + " characters; it needs at least " +
               std::to_string(kMinimumPasswordCharacters);
    return {};
}

std::string createInitialAccount(const std::filesystem::path& usersFile)
{
    std::error_code error;
    if (std::filesystem::exists(usersFile, error))
        return {};
    initializeSodium();
    static const char alphabet[] = "abcdefghijkmnpqrstuvwxyzABCDEFGHJKLMNPQRSTUVWXYZ23456789";
    std::string password;
    for (int i = 0; i < 16; ++i)
        password += alphabet[randombytes_uniform(sizeof alphabet - 1)];
    std::string text = "# Accounts for the protected paths and the administration page.\n"
                       "# Add more with: name = \"<hash from kiv-server passwd>\"\n"
                       "admin = \"" +
                       hashPassword(password) + "\"\n";
    std::filesystem::create_directories(usersFile.parent_path(), error);
    int descriptor = ::open(usersFile.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (descriptor < 0)
        return {};
    bool complete = ::write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ::close(descriptor);
    if (!complete)
    {
        std::filesystem::remove(usersFile, error);
        return {};
    }
    return password;
}

} // namespace kiv
