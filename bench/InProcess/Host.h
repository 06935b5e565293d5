#pragma once

#include "Core/Embedding/Runtime.h"

#include <condition_variable>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Bench {

using Bytes = std::vector<unsigned char>;
using Values = std::vector<Core::Value>;

/// Counts what has been handed over on one thread, for another that waits for a number of it.
class Arrivals
{
public:
    /// So many more will come.
    void Expect(std::size_t count);
    void Add();
    /// Back when all that was expected has come, but for so many. Throws when it does not come.
    /// One thread at a time.
    void Wait(std::size_t mayBeMissing = 0);

private:
    std::mutex mutex;
    std::condition_variable enough;
    std::size_t missing = 0; // guarded by mutex
    std::size_t allowed = 0; // guarded by mutex: how many may be missing for who waits
};

/// An embedded host with the module loaded, one file system, and a session that calls its methods.
class Host
{
public:
    Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
    ~Host();

    /// Throws when the call is refused.
    Values Call(const std::string& method, const Values& inputs);

    /// Counts the events of the file system.
    [[nodiscard]] Arrivals& GetEvents() noexcept { return events; }

private:
    Arrivals events;
    Core::Embedding::Runtime runtime;
    Core::NodeId files;
    std::shared_ptr<Core::Embedding::Session> session;
    Core::Embedding::EventSubscription subscription;
};

/// The contents of a file in which no block is like the next.
[[nodiscard]] Bytes MakeContent(std::size_t size);

} // namespace Bench
