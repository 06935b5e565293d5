#pragma once

#include "Client/FileSystem.h"

#include <open62541/types.h>

namespace Client {

/// The time and the permissions that a remote file gets when it is written as a whole.
struct Stamp
{
    UA_DateTime time = 0; ///< 0: none
    UA_Byte permissions = 0;
};

/// Returns the flags on the wire.
[[nodiscard]] UA_Byte MakePermissions(Permissions permissions) noexcept;

/// Returns true for a time that neither writing now nor writing next sets: a file that has it is as
/// it was then.
[[nodiscard]] bool IsPast(FileTime time);

/// Returns a time that no file has by chance, and that writing does not set.
[[nodiscard]] FileTime MakeMarker();

} // namespace Client
