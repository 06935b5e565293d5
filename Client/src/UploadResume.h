#pragma once

#include "Caller.h"
#include "ResumableTransfer.h"

#include <cstdint>
#include <string>

namespace Client {

/// Returns from where on a remote file can be carried on: its size, if what is there is what an
/// earlier transfer wrote of the local file, which has not changed since; otherwise 0. Tells the
/// transfer of the bytes before that. Throws what waiting throws, and FileFailed.
[[nodiscard]] std::uint64_t FindUploadStart(Caller& caller, const std::string& remote, int file,
                                            const std::string& local, ResumableTransfer& transfer);

} // namespace Client
