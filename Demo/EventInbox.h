#pragma once

#include "Support/Mutex.h"

#include <Core/Embedding/Runtime.h>

#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <unordered_map>

namespace Demo {

/// An expected event did not come: the file system does not answer any more.
class NoAnswerException : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

using EventPointer = std::shared_ptr<const Core::Embedding::Event>;

/// Returns a field that the event's own type declares, not one of the base fields.
[[nodiscard]] const Core::Value& GetOwnField(const Core::Embedding::Event& event, const char* name);

/// Prints the events of a file system and keeps them for the thread that makes requests. Events
/// come on the file system's worker thread. Acknowledgements are kept by handle, since one can
/// arrive before the answer with the handle. Other results do not name their requests, but come in
/// their order.
class EventInbox
{
public:
    void Receive(const EventPointer& event);

    /// Waits for the acknowledgement of a handle and returns its result code.
    [[nodiscard]] unsigned int WaitForAcknowledgement(unsigned int handle);
    /// Returns the result code of an acknowledgement that has come already.
    [[nodiscard]] std::optional<unsigned int> TakeAcknowledgement(unsigned int handle);

    /// Waits for the next event of a type and returns it.
    [[nodiscard]] EventPointer WaitForResult(const std::string& type);
    /// Returns the next event of a type, if it has come already.
    [[nodiscard]] EventPointer TakeResult(const std::string& type);

    [[nodiscard]] std::size_t GetCount() const;

private:
    void Keep(const EventPointer& event) REQUIRES(mutex);

    mutable Support::Mutex mutex;
    Support::Condition arrived;
    std::size_t count GUARDED_BY(mutex) = 0;
    std::unordered_map<unsigned int, unsigned int> resultOfHandle GUARDED_BY(mutex);
    std::unordered_map<std::string, std::deque<EventPointer>> resultsOfType GUARDED_BY(mutex);
};

} // namespace Demo
