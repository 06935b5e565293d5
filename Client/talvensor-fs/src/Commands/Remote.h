#pragma once

#include "Client/Connection.h"
#include "Client/FileSystem.h"

#include <optional>
#include <string>

namespace Cli {

/// The server, and where on it one is. One thread.
class Remote
{
public:
    /// The connection must outlive it.
    explicit Remote(Client::Connection& connection);

    [[nodiscard]] Client::Connection& GetConnection() const noexcept { return connection; }

    /// A file system of one's own, made when it is needed first. Throws as its constructor.
    [[nodiscard]] Client::FileSystem& GetFiles();

    /// The path as the server has to be told it. Throws InvalidArgumentException for an empty one.
    [[nodiscard]] std::string Resolve(const std::string& path) const;

    /// Empty: the server's working directory.
    [[nodiscard]] const std::string& GetFolder() const noexcept { return folder; }
    void SetFolder(std::string path) { folder = std::move(path); }

private:
    Client::Connection& connection;
    std::optional<Client::FileSystem> files;
    std::string folder;
};

/// The name below the folder.
[[nodiscard]] std::string JoinPath(const std::string& folder, const std::string& name);

/// The last name of a path, whatever slashes are behind it. Empty for one that ends in "." or ".."
/// or is "/": those stand for what is in them.
[[nodiscard]] std::string GetBaseName(const std::string& path);

} // namespace Cli
