#pragma once

#include "Client/FileObjects.h"

#include <string>

namespace Cli {

/// Returns the SHA-256 of a local file. Throws OperationFailedException, CancelledException.
[[nodiscard]] Client::Sha256 DigestFile(const std::string& path,
                                        const Client::Cancellation& cancellation);

} // namespace Cli
