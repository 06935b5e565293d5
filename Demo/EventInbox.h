#pragma once

#include <Core/Embedding/Runtime.h>

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <unordered_map>

namespace Demo {

/// An event that has to come did not: nothing more can be learned from this file system.
class NoAnswerException : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

using EventPointer = std::shared_ptr<const Core::Embedding::Event>;

/// A field that the event's own type declares (not one of the base fields).
[[nodiscard]] const Core::Value& GetOwnField(const Core::Embedding::Event& event, const char* name);

/// Prints the events of a file system as they come and keeps them until somebody asks. Events come
/// on the file system's worker thread, requests are made by one other thread. An acknowledgement
/// is kept by its handle, since it can overtake the answer that carries the handle; the other
/// results say nothing about their requests but come in the order of these.
class EventInbox
{
public:
    void Receive(const EventPointer& event);

    /// Waits for the acknowledgement of a handle and gives its result code.
    [[nodiscard]] unsigned int WaitForAcknowledgement(unsigned int handle);
    /// The result code of an acknowledgement that has come already.
    [[nodiscard]] std::optional<unsigned int> TakeAcknowledgement(unsigned int handle);

    /// Waits for the next event of a type.
    [[nodiscard]] EventPointer WaitForResult(const std::string& type);
    /// The next event of a type, if it has come already.
    [[nodiscard]] EventPointer TakeResult(const std::string& type);

    [[nodiscard]] std::size_t GetCount() const;

private:
    void Keep(const EventPointer& event); // REQUIRES: mutex is held

    mutable std::mutex mutex;
    std::condition_variable arrived;
    std::size_t count = 0;                                                   // guarded by mutex
    std::unordered_map<unsigned int, unsigned int> resultOfHandle;           // guarded by mutex
    std::unordered_map<std::string, std::deque<EventPointer>> resultsOfType; // guarded by mutex
};

} // namespace Demo
