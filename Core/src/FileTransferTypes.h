#pragma once

#include "Core/Embedding/InformationModel.h"

#include <vector>

namespace Core::Embedding {

/// Returns the object types of OPC 10000-20, 4.2 to 4.4, with their methods, as namespace 0 has
/// them: FileType, FileDirectoryType, TemporaryFileTransferType.
[[nodiscard]] std::vector<ObjectTypeDescription> MakeFileTransferTypes();

} // namespace Core::Embedding
