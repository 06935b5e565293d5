#pragma once

#include "Core/Dispatcher.h"
#include "CoreLog.h"
#include "WaitGraph.h"

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Core {

class BehaviourStop;
class ObjectNode;

/// Identity of something that is notified.
class RecipientBase
{
public:
    RecipientBase(unsigned int affinityId, std::string origin)
        : affinityId(affinityId)
        , origin(std::move(origin))
    {}

    const unsigned int affinityId;
    const std::string origin; ///< on whose behalf it listens, for logs
};

/// Something that is notified until it is ended.
template <typename Target>
class Recipient final : public RecipientBase
{
public:
    Recipient(std::shared_ptr<Target> target, unsigned int affinityId, std::string origin)
        : RecipientBase(affinityId, std::move(origin))
        , target(std::move(target))
    {}

private:
    friend class DispatcherImplementation;
    std::shared_ptr<Target> target; // guarded by the lock of the wait graph; null once ended
};

/// Who listens to one thing. Snapshots are immutable: notifying needs no lock and no copy.
template <typename Target>
class RecipientList
{
public:
    using Entry = std::shared_ptr<Recipient<Target>>;
    using Snapshot = std::shared_ptr<const std::vector<Entry>>;

    /// Null when nobody listens.
    [[nodiscard]] Snapshot Get() const
    {
        const std::scoped_lock lock(mutex);
        return entries;
    }

    void Add(Entry entry)
    {
        const std::scoped_lock lock(mutex);
        auto changed = Copy();
        changed->push_back(std::move(entry));
        entries = std::move(changed);
    }

    void Remove(const Entry& entry)
    {
        Snapshot replaced; // released after the lock
        const std::scoped_lock lock(mutex);
        auto changed = Copy();
        std::erase(*changed, entry);
        replaced = std::exchange(entries, changed->empty() ? nullptr : std::move(changed));
    }

private:
    [[nodiscard]] std::shared_ptr<std::vector<Entry>> Copy() const
    {
        return entries ? std::make_shared<std::vector<Entry>>(*entries)
                       : std::make_shared<std::vector<Entry>>();
    }

    mutable std::mutex mutex;
    Snapshot entries; // guarded by mutex
};

/// Runs notifications, and knows which are running.
class DispatcherImplementation final : public Dispatcher,
                                       public std::enable_shared_from_this<DispatcherImplementation>
{
public:
    [[nodiscard]] DispatchGuard TerminateDispatchOnStop(unsigned int affinityId) override;

    /// Calls `notification` with the target, unless the recipient has been ended or its affinity is
    /// silenced at this moment. What it throws is logged. `source`: the object whose event it is;
    /// null for other notifications.
    template <typename Target, typename Notification>
    void Notify(Recipient<Target>& recipient, const Notification& notification,
                const ObjectNode* source = nullptr)
    {
        Running notified{{}, &recipient, source};
        auto target = Begin(recipient, notified);
        if (!target)
            return;
        try {
            notification(*target);
        } catch (...) {
            LogCurrentException("A notification failed", recipient.origin);
        }
        // Before the end is known: who waits for it may go on to unload the target's code.
        target.reset();
        End(notified);
    }

    /// Notifies everyone in the list.
    template <typename Target, typename Notification>
    void NotifyAll(const RecipientList<Target>& list, const Notification& notification,
                   const ObjectNode* source = nullptr)
    {
        const auto recipients = list.Get();
        if (!recipients)
            return;
        for (const auto& recipient : *recipients)
            Notify(*recipient, notification, source);
    }

    /// No new notification starts once this has returned. The caller lets go of what is returned.
    template <typename Target>
    [[nodiscard]] std::shared_ptr<Target> End(Recipient<Target>& recipient)
    {
        const auto lock = waits.Acquire();
        return std::exchange(recipient.target, nullptr);
    }

    /// Waits for the recipient's notifications on other threads, apart from those that wait for
    /// this one.
    void AwaitNotifications(const RecipientBase& recipient);

    /// Also of use for other waits in which foreign code runs.
    [[nodiscard]] WaitGraph& GetWaitGraph() noexcept { return waits; }

private:
    friend class BehaviourStop;

    struct Running : Activity
    {
        const RecipientBase* recipient = nullptr;
        const ObjectNode* source = nullptr; ///< of the event; null for other notifications
    };

    template <typename Target>
    std::shared_ptr<Target> Begin(const Recipient<Target>& recipient, Running& started)
    {
        const auto lock = waits.Acquire();
        if (!recipient.target || IsSilenced(recipient.affinityId))
            return nullptr;
        Enter(started);
        return recipient.target;
    }

    void Enter(const Running& started);

    void End(const Running& ended) noexcept;
    [[nodiscard]] bool IsSilenced(unsigned int affinityId) const;
    void Silence(unsigned int affinityId);
    void Unsilence(unsigned int affinityId) noexcept;

    /// Waits for the notifications that satisfy the predicate.
    template <typename Predicate>
    void AwaitRunning(const Predicate& predicate);

    WaitGraph waits;
    std::vector<const Running*> running;            // guarded by the lock of waits
    std::vector<BehaviourStop*> stops;              // guarded by the lock of waits
    std::unordered_map<unsigned int, int> silenced; // guarded by the lock of waits
};

/// The stop of an object's behaviour, while it lives: the behaviour may wait for the threads that
/// deliver the object's events, as for a worker that it joins.
class BehaviourStop
{
public:
    /// Throws InvalidStateException naming `purpose` if the calling thread delivers an event of the
    /// object, or a thread does that waits for the calling one. Does nothing for a null object: one
    /// without a behaviour, where no foreign code runs.
    BehaviourStop(DispatcherImplementation& dispatcher, const ObjectNode* object,
                  const std::string& purpose);
    BehaviourStop(const BehaviourStop&) = delete;
    BehaviourStop& operator=(const BehaviourStop&) = delete;
    ~BehaviourStop();

private:
    friend class DispatcherImplementation;

    DispatcherImplementation& dispatcher;
    const ObjectNode* object;
    WaitGraph::Waiter waiter; // guarded by the lock of the wait graph
};

} // namespace Core
