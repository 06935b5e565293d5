#pragma once

namespace Host {

/// The form of the lines in an audit file.
enum class AuditForm
{
    Text,
    Json,
};

} // namespace Host
