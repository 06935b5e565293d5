#pragma once

#include <string>

namespace Core {

/// A directory of this machine that the host lets its modules serve.
struct Folder
{
    std::string name; ///< no two folders of a host have the same
    std::string path; ///< absolute
    bool isReadOnly = false;
};

} // namespace Core
