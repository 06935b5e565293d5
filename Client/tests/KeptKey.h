#pragma once

#include <filesystem>
#include <string>

namespace ClientTest {

/// The key and the certificate of a host or a client. Making them takes longer than most tests, so
/// those that are made in one process are kept for later ones: the n-th host takes what the n-th
/// host of an earlier process made. Those of one process stay different.
class KeptKey
{
public:
    /// The next key for a role: "host" or "client".
    explicit KeptKey(const std::string& role);

    /// Puts it into a folder of keys, if one was kept and the folder has none.
    void GiveTo(const std::filesystem::path& keys) const;
    /// Keeps the one of a folder of keys, if it has one and none was kept.
    void TakeFrom(const std::filesystem::path& keys) const;

private:
    std::filesystem::path kept;
};

} // namespace ClientTest
