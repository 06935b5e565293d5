#pragma once

#include "Core/NodeId.h"

#include <cstdio>
#include <string>

namespace FileSystem {

/// The record of a file handle. It owns nothing: closing the stream is always a step of its own.
struct FileInfo
{
    FILE* file = nullptr; ///< null from registration until the file is open
    Core::NodeId session; ///< the session object that registered the handle
    std::string path;     ///< as the client sent it, byte for byte
};

} // namespace FileSystem
