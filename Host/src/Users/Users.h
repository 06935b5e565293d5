#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <unordered_map>

namespace Host {

/// Who may log in: a file with one "name:hash" per line, the hash as crypt(3) writes it (yescrypt).
/// Lines that are empty or start with "#" count for nothing.
class Users
{
public:
    /// Throws SystemException when the file cannot be read, InvalidArgumentException naming the
    /// line when it cannot be used, or when others than its owner and group may read it.
    explicit Users(const std::filesystem::path& file);

    /// Takes about as long for an unknown user as for a known one: tens of milliseconds and 16 MB,
    /// by design. Any thread. Throws SystemException when the hash cannot be computed.
    [[nodiscard]] bool Verify(const std::string& name, const std::string& password) const;

    [[nodiscard]] std::size_t GetSize() const noexcept { return hashes.size(); }

private:
    void ReadLine(const std::string& line, const std::string& place);

    // Constant once made:
    std::unordered_map<std::string, std::string> hashes;
    std::string decoy; // the hash of nobody's password
};

/// Sets a user's password in a user file, which is made if it is not there; other lines stay as
/// they are. The file is replaced at once, with mode 0600. Throws InvalidArgumentException for a
/// name or a password that cannot be used, SystemException.
void SetPassword(const std::filesystem::path& file, const std::string& user,
                 const std::string& password);

/// Throws InvalidArgumentException for what cannot be a user's name: 1 to 64 bytes without a colon
/// and control characters, not starting with "#", and without blanks around it.
void CheckUserName(std::string_view name);

} // namespace Host
