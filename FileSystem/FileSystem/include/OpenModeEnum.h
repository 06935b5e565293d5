#pragma once

namespace FileSystem {

/// How a file is opened; the mode of fopen(3) that each value stands for, always binary. Any other
/// value is treated as 0.
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
