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

/// The fields of an event type in the order of its value vectors: inherited ones first.
/// Immutable once its type is in an address space.
class CORE_API EventArguments
{
public:
    EventArguments() = default;
    explicit EventArguments(std::vector<QualifiedName> fields);

    /// The position of a field; throws NotFoundException for a name that the type does not have.
    [[nodiscard]] unsigned int GetFieldIndex(const QualifiedName& name) const;
    [[nodiscard]] unsigned int GetFieldsSize() const noexcept;
    [[nodiscard]] const std::vector<QualifiedName>& GetFields() const noexcept { return fields; }

private:
    std::vector<QualifiedName> fields;
};

/// Which notifications an observer asks for: a bit mask. Undefined bits are refused.
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

/// Base of everything that can be registered as an observer.
class CORE_API IEventObserver
{
public:
    virtual ~IEventObserver();
};

/// Hears of references. Called on the thread that caused the change, with no lock of the host held;
/// several notifications may run at once. What it throws is caught and logged by the host.
class CORE_API IReferenceObserver : public virtual IEventObserver
{
public:
    ~IReferenceObserver() override;

    virtual void OnReferenceAdded(const ReferenceData& reference) = 0;
    virtual void OnReferenceRemoved(const ReferenceData& reference) = 0;
};

/// Owns an observer registration; at most one owner ends it. Not thread-safe by itself.
/// After `Reset` no new notification starts; one that runs on another thread may still be on its
/// way out (`Dispatcher::TerminateDispatchOnStop` waits for those).
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
