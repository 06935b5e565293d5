#pragma once

#include "Core/Export.h"
#include "Core/NodeId.h"
#include "Core/QualifiedName.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace Core {

class INode;

/// The fields of an event type in the order of its value vectors: inherited ones first. Immutable
/// once its type is in an address space.
class CORE_API EventArguments
{
public:
    EventArguments() = default;
    explicit EventArguments(std::vector<QualifiedName> fields);

    /// Returns the position of a field. Throws NotFoundException for a name that the type does not
    /// have.
    [[nodiscard]] unsigned int GetFieldIndex(const QualifiedName& name) const;
    [[nodiscard]] unsigned int GetFieldsSize() const noexcept;
    [[nodiscard]] const std::vector<QualifiedName>& GetFields() const noexcept { return fields; }

private:
    std::vector<QualifiedName> fields;
};

/// The notifications that an observer asks for, as a bit mask. The host refuses undefined bits.
namespace EventFilter {
/// References added to or removed from the observed node.
inline constexpr std::uint64_t references = 0x0000000800000000U;
} // namespace EventFilter

/// A reference that was added or removed.
struct ReferenceData
{
    NodeId referenceTypeId;
    std::shared_ptr<INode> source;
    std::shared_ptr<INode> target;
};

/// The base of every observer.
class CORE_API IEventObserver
{
public:
    virtual ~IEventObserver();
};

/// Hears of references. The host calls it on the thread that causes the change, with no lock held;
/// several notifications may run at once. The host logs its exceptions.
class CORE_API IReferenceObserver : public virtual IEventObserver
{
public:
    ~IReferenceObserver() override;

    virtual void OnReferenceAdded(const ReferenceData& reference) = 0;
    virtual void OnReferenceRemoved(const ReferenceData& reference) = 0;
};

/// Owns an observer registration; at most one owner ends it. Not thread-safe. After `Reset` no new
/// notification starts; one on another thread may still be running
/// (`Dispatcher::TerminateDispatchOnStop` waits for those).
class CORE_API EventRegistrationHandler
{
public:
    EventRegistrationHandler() noexcept = default;
    explicit EventRegistrationHandler(std::function<void()> end) noexcept
        : end(std::move(end))
    {}
    EventRegistrationHandler(EventRegistrationHandler&& other) noexcept
        : end(std::exchange(other.end, nullptr))
    {}
    /// Ends the registration held so far.
    EventRegistrationHandler& operator=(EventRegistrationHandler&& other) noexcept
    {
        if (this != &other) {
            Reset();
            end = std::exchange(other.end, nullptr);
        }
        return *this;
    }
    ~EventRegistrationHandler() { Reset(); }

    void Reset() noexcept
    {
        if (auto ending = std::exchange(end, nullptr))
            ending();
    }

private:
    std::function<void()> end; // must not throw
};

} // namespace Core
