#pragma once

#include <string>

namespace Fuzz {

/// A user of the host.
struct User
{
    std::string name;
    std::string password;
};

} // namespace Fuzz
