#pragma once

#include "Caller.h"
#include "DownloadPlan.h"
#include "ResumableTransfer.h"

#include <cstdint>

namespace Client {

/// Returns from where on the part can be carried on: what an earlier transfer kept of the file if
/// neither has changed since. The part holds nothing else afterwards. Throws FileFailed, and what
/// Caller's waiting throws but CallsLost.
[[nodiscard]] std::uint64_t FindDownloadStart(Caller& caller, const DownloadFile& job,
                                              PartFile& part, ResumableTransfer& resumable);

} // namespace Client
