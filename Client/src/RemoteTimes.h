#pragma once

#include "Caller.h"

#include <optional>
#include <span>
#include <vector>

namespace Client {

/// Asks for the times of entries, which have a member `remote`, all at once. None where there is
/// nothing or no time. Throws what Caller's waiting throws.
template <typename Entry>
[[nodiscard]] std::vector<std::optional<FileTime>> AskTimes(Caller& caller,
                                                            std::span<Entry> entries)
{
    std::vector<CallPointer> calls;
    for (const auto& entry : entries)
        calls.push_back(caller.GetDateTime(entry.remote));
    std::vector<std::optional<FileTime>> times;
    for (const auto& call : calls) {
        caller.AwaitAnswer(call);
        times.push_back(GetFileTime(*call));
    }
    return times;
}

} // namespace Client
