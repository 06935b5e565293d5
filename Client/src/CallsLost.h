#pragma once

#include <string>
#include <utility>

namespace Client {

/// Thrown while an operation waits: the connection was lost, so nobody knows what became of its
/// calls. Never leaves the library.
struct CallsLost
{};

/// They are lost since the server gave no sign of life for the time that the options allow.
struct CallOverdue : CallsLost
{
    explicit CallOverdue(std::string text)
        : text(std::move(text))
    {}
    std::string text; ///< which call, and how long
};

} // namespace Client
