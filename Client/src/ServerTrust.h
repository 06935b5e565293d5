#pragma once

#include "Client/Connection.h"

#include <string>
#include <vector>

namespace Client {

/// Returns "host:port" of a URL, under which a server's certificate is remembered. Throws
/// InvalidArgumentException.
[[nodiscard]] std::string ParseServer(const std::string& url);

/// Asks the caller about the server's certificate (DER), and remembers it when it is accepted.
/// Throws RefusedException when it is not, ClientException when the state folder cannot be used.
void RequireTrust(const ConnectionOptions& options, const std::string& server,
                  const std::vector<unsigned char>& certificate, const std::string& fingerprint);

/// Throws RefusedException when the server's certificate was accepted before: then the server
/// encrypts, and somebody on the way could hide that.
void RequireUnknown(const ConnectionOptions& options, const std::string& server);

} // namespace Client
