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

/// Counts arrivals on one thread, for another one that waits for a number of them.
class Arrivals
{
public:
    /// Announces `count` further arrivals.
    void Expect(std::size_t count);
    void Add();
    /// Returns when at most `mayBeMissing` of the announced arrivals are missing. Throws after ten
    /// minutes. One thread at a time.
    void Wait(std::size_t mayBeMissing = 0);

private:
    std::mutex mutex;
    std::condition_variable enough;
    std::size_t missing = 0; // guarded by mutex
    std::size_t allowed = 0; // guarded by mutex: how many may be missing for who waits
};

/// An embedded host with the module, one file system, and a session that calls its methods.
class Host
{
public:
    Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
    ~Host();

    /// Throws if the call is refused.
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

/// Returns the content of a file in which no two blocks are the same.
[[nodiscard]] Bytes MakeContent(std::size_t size);

} // namespace Bench
