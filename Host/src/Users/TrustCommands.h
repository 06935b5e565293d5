#pragma once

#include <filesystem>
#include <string>

namespace Host {

// The commands for certificates. They return what to print, and throw what
// RejectedCertificates throws.

/// Describes the certificates of refused clients in a PKI folder, the latest first.
[[nodiscard]] std::string ListRejected(const std::filesystem::path& pkiFolder);

/// Describes the host's own certificate in a PKI folder. Throws std::system_error, and
/// Support::UnsafeFileException, if it cannot be read.
[[nodiscard]] std::string DescribeOwnCertificate(const std::filesystem::path& pkiFolder);

/// Moves the certificate whose fingerprint begins so from the refused ones to the trusted ones.
/// Throws Support::UnsafeFileException, too, if others may change a folder.
[[nodiscard]] std::string TrustRejected(const std::filesystem::path& pkiFolder,
                                        const std::string& fingerprint);

} // namespace Host
