#include "Users/Users.h"

#include "Core/Exception.h"
#include "Support/PrivateFiles.h"
#include "Support/SystemError.h"

#include <algorithm>
#include <array>
#include <crypt.h>
#include <cstring>
#include <memory>
#include <sstream>

namespace Host {

namespace {

constexpr const char* yescrypt = "$y$";
constexpr std::size_t maximumName = 64;
constexpr std::size_t maximumPassword = CRYPT_MAX_PASSPHRASE_SIZE - 1;

struct EraseCryptData
{
    void operator()(crypt_data* data) const noexcept
    {
        explicit_bzero(data, sizeof(*data));
        delete data;
    }
};

/// `setting` is a salt with its parameters, or a hash that was made with them. Throws
/// std::system_error.
std::string Hash(const std::string& password, const std::string& setting)
{
    const std::unique_ptr<crypt_data, EraseCryptData> data(new crypt_data{});
    const char* const hash = crypt_r(password.c_str(), setting.c_str(), data.get());
    if (hash == nullptr || *hash == '*')
        Support::ThrowSystemError("cannot hash a password");
    return hash;
}

std::string MakeSetting()
{
    std::array<char, CRYPT_GENSALT_OUTPUT_SIZE> setting{};
    if (crypt_gensalt_rn(yescrypt, 0, nullptr, 0, setting.data(),
                         static_cast<int>(setting.size())) == nullptr)
        Support::ThrowSystemError("cannot make a salt for a password");
    return setting.data();
}

/// Compares in a time that does not depend on where the texts differ.
bool AreEqual(const std::string& left, const std::string& right)
{
    if (left.size() != right.size())
        return false;
    unsigned int difference = 0;
    for (std::size_t index = 0; index < left.size(); ++index)
        difference |= static_cast<unsigned char>(left[index]) ^
                      static_cast<unsigned int>(static_cast<unsigned char>(right[index]));
    return difference == 0;
}

/// Returns false for a password that crypt(3) would shorten or refuse.
bool IsUsable(const std::string& password)
{
    return !password.empty() && password.size() <= maximumPassword &&
           password.find('\0') == std::string::npos;
}

bool IsEntry(const std::string& line)
{
    return !line.empty() && line.front() != '#';
}

std::string GetName(const std::string& line)
{
    return line.substr(0, line.find(':'));
}

} // namespace

std::string Users::Read(const std::filesystem::path& file)
{
    return Support::ReadPrivateFile(file, Support::GroupMayRead::Yes);
}

Users::Users(const std::filesystem::path& file)
    : Users(Read(file), file)
{
    if (hashes.empty())
        throw Core::InvalidArgumentException("'" + file.string() +
                                             "' has no users: add one with talvensor-host passwd");
}

Users::Users(const std::string& content, const std::filesystem::path& file)
{
    std::istringstream lines(content);
    std::size_t number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        if (IsEntry(line))
            ReadLine(line, "'" + file.string() + "', line " + std::to_string(number) + ": ");
    }
    decoy = Hash(MakeSetting(), hashes.empty() ? MakeSetting() : hashes.begin()->second);
}

void Users::ReadLine(const std::string& line, const std::string& place)
{
    const auto colon = line.find(':');
    if (colon == std::string::npos)
        throw Core::InvalidArgumentException(place + "no colon between name and hash");
    const auto name = line.substr(0, colon);
    try {
        CheckUserName(name);
    } catch (const Core::InvalidArgumentException& error) {
        throw Core::InvalidArgumentException(place + error.GetMessage());
    }
    const auto hash = line.substr(colon + 1);
    if (!hash.starts_with(yescrypt) || crypt_checksalt(hash.c_str()) != CRYPT_SALT_OK)
        throw Core::InvalidArgumentException(place + "the hash of '" + name +
                                             "' is not one that talvensor-host passwd writes");
    if (!hashes.emplace(name, hash).second)
        throw Core::InvalidArgumentException(place + "'" + name + "' is listed twice");
}

bool Users::Verify(const std::string& name, const std::string& password) const
{
    const auto found = hashes.find(name);
    const bool isKnown = found != hashes.end();
    const auto& expected = isKnown ? found->second : decoy;
    const bool isUsable = IsUsable(password);
    const bool isRight = AreEqual(Hash(isUsable ? password : std::string(), expected), expected);
    return isRight && isUsable && isKnown;
}

bool Users::AgreeOn(const std::string& name, const Users& other) const
{
    const auto mine = hashes.find(name);
    const auto others = other.hashes.find(name);
    return mine != hashes.end() && others != other.hashes.end() && mine->second == others->second;
}

void SetPassword(const std::filesystem::path& file, const std::string& user,
                 const std::string& password)
{
    CheckUserName(user);
    if (!IsUsable(password))
        throw Core::InvalidArgumentException(
            "a password has 1 to " + std::to_string(maximumPassword) + " bytes, none of them zero");
    // Replaces the file that a link leads to, not the link.
    const auto target = std::filesystem::weakly_canonical(file);
    const auto entry = user + ":" + Hash(password, MakeSetting()) + "\n";
    std::istringstream lines(std::filesystem::exists(target)
                                 ? Support::ReadPrivateFile(target, Support::GroupMayRead::Yes)
                                 : "");
    std::string content;
    bool isReplaced = false;
    for (std::string line; std::getline(lines, line);) {
        const bool isTheUser = IsEntry(line) && GetName(line) == user;
        content += isTheUser ? entry : line + "\n";
        isReplaced = isReplaced || isTheUser;
    }
    if (!isReplaced)
        content += entry;
    Support::WritePrivateFile(target, content);
}

void CheckUserName(std::string_view name)
{
    const auto refuse = [name](const std::string& reason) {
        throw Core::InvalidArgumentException("the user name '" + std::string(name) + "' " + reason);
    };
    if (name.empty() || name.size() > maximumName)
        refuse("does not have 1 to " + std::to_string(maximumName) + " bytes");
    if (name.find(':') != std::string_view::npos)
        refuse("holds a colon, which ends the name in the user file");
    if (std::any_of(name.begin(), name.end(),
                    [](unsigned char byte) { return byte < ' ' || byte == 0x7F; }))
        refuse("holds a control character");
    if (name.front() == '#')
        refuse("starts with a #, which makes a comment in the user file");
    if (name.front() == ' ' || name.back() == ' ')
        refuse("starts or ends with a blank");
}

} // namespace Host
