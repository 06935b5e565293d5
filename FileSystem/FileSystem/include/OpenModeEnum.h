#pragma once

namespace FileSystem {

/// The modes in which a file is opened, each with its mode of fopen(3), always binary. Any other
/// value counts as 0.
enum class OpenModeEnum : unsigned int
{
    CreateWrite = 0,     ///< "wb": create or truncate
    Read = 1,            ///< "rb": must exist
    Append = 2,          ///< "ab": create if missing
    CreateReadWrite = 3, ///< "w+b": create or truncate
    ReadWrite = 4,       ///< "r+b": must exist
    ReadAppend = 5,      ///< "a+b": create if missing
};

} // namespace FileSystem
