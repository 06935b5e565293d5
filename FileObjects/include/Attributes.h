#pragma once

#include "Core/DateTime.h"
#include "Folders.h"
#include "Keys.h"

#include <cstdint>

// Permissions and times of files and directories. Any thread. All throw Core::StatusException.
namespace FileObjects {

/// Sets the nine bits that tell who may read, write and execute. Throws Bad_InvalidArgument for
/// other bits, which stay as they are: clients cannot make a file run with the rights of its owner.
void SetPermissions(const Folders& folders, const Key& node, std::uint32_t permissions);

void SetLastModifiedTime(const Folders& folders, const Key& node, const Core::DateTime& time);

/// True if this process may write the file, and clients may.
[[nodiscard]] bool IsWritable(const Folders& folders, const Key& node);

} // namespace FileObjects
