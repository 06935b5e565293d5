#pragma once

#include "Core/DateTime.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Host {

/// The result of a call that changes something, or of all calls of one work.
enum class AuditResult
{
    Begun,   ///< work of several calls has begun; another record tells its end
    Taken,   ///< the call was answered without an error and tells nothing more
    Done,    ///< the module has reported success
    Failed,  ///< the module has reported a failure
    Refused, ///< the call was answered with an error
    Ended,   ///< the session ended before the module reported an outcome
};

/// The session that made a call.
struct AuditCaller
{
    std::string user; ///< empty: anonymous
    std::string address;
    std::uint64_t session = 0; ///< counts the sessions of this process from 1 on
};

/// A line of the audit log. Texts are raw.
struct AuditRecord
{
    Core::DateTime time;
    AuditCaller caller;
    std::string method;
    AuditResult result = AuditResult::Taken;
    std::string reason; ///< of a failure
    std::uint64_t calls = 1;
    std::uint64_t bytes = 0; ///< sent by the client in byte strings
    std::vector<std::string> paths;
    std::size_t morePaths = 0; ///< left out of `paths`

    /// Adds a path, shortened or left out if there are too many already.
    void AddPath(const std::string& path);
    /// Returns about the memory that the record takes.
    [[nodiscard]] std::size_t GetSize() const noexcept;
};

/// Returns the fields without the time as NAME=VALUE, texts in single quotes. Bytes that could
/// forge or break a line or a field appear as \xnn: the single quote, the backslash, and those of
/// `Support::unsafeCharacters`.
[[nodiscard]] std::string FormatFields(const AuditRecord& record);

/// Returns the record as an object of JSON, without a line end. Texts escape the backslash and
/// `Support::unsafeCharacters` as above, so that they are valid UTF-8.
[[nodiscard]] std::string FormatJson(const AuditRecord& record);

} // namespace Host
