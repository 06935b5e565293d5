#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <unordered_map>

namespace Host {

/// The users that may log in. Their file has one "name:hash" per line, the hash as crypt(3) writes
/// it (yescrypt). Lines that are empty or start with "#" are ignored.
class Users
{
public:
    /// Throws std::system_error if the file cannot be read, Support::UnsafeFileException if others
    /// than its owner and group may read it, and InvalidArgumentException, with the line, if it has
    /// no users or a line is wrong.
    explicit Users(const std::filesystem::path& file);

    /// The same for the content of such a file, which has been read already. It may have no users:
    /// nobody can log in then.
    Users(const std::string& content, const std::filesystem::path& file);

    /// Returns the content of a user file, for the constructor. Throws std::system_error and
    /// Support::UnsafeFileException as above.
    [[nodiscard]] static std::string Read(const std::filesystem::path& file);

    /// Returns true if the user exists and the password is right. Takes as long for an unknown user
    /// as for a known one: tens of milliseconds and 16 MB, by design. Any thread may call it.
    /// Throws std::system_error if the hash cannot be computed.
    [[nodiscard]] bool Verify(const std::string& name, const std::string& password) const;

    [[nodiscard]] bool Contains(const std::string& name) const { return hashes.contains(name); }

    /// Returns true if a user exists in both and has the same password.
    [[nodiscard]] bool AgreeOn(const std::string& name, const Users& other) const;

    [[nodiscard]] std::size_t GetSize() const noexcept { return hashes.size(); }

private:
    void ReadLine(const std::string& line, const std::string& place);

    // Constant after the constructor:
    std::unordered_map<std::string, std::string> hashes;
    std::string decoy; // a hash that no password has, for unknown users
};

/// Sets a user's password in a user file, and creates the file if it does not exist. Other lines
/// stay as they are. Readers see the old file or the new one, which has mode 0600. Throws
/// InvalidArgumentException for a wrong name or password, and what Support::ReadPrivateFile and
/// Support::WritePrivateFile throw.
void SetPassword(const std::filesystem::path& file, const std::string& user,
                 const std::string& password);

/// Throws InvalidArgumentException unless the name has 1 to 64 bytes, no colon and no control
/// characters, does not start with "#", and does not start or end with a blank.
void CheckUserName(std::string_view name);

} // namespace Host
