#pragma once

#include "Core/Dispatcher.h"
#include "CoreLog.h"
#include "Support/Mutex.h"
#include "WaitGraph.h"

#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Core {

class BehaviourStop;
class ObjectNode;

/// The identity of a recipient of notifications.
class RecipientBase
{
public:
    RecipientBase(unsigned int affinityId, std::string origin)
        : affinityId(affinityId)
        , origin(std::move(origin))
    {}

    const unsigned int affinityId;
    const std::string origin; ///< the name of the session on whose behalf it listens, for logs
};

/// A recipient of notifications, until it is ended.
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
    std::shared_ptr<Target> target; // guarded by the mutex of the wait graph; null once ended
};

/// The recipients of one source of notifications. Snapshots are immutable: notifying needs no lock
/// and no copy.
template <typename Target>
class RecipientList
{
public:
    using Entry = std::shared_ptr<Recipient<Target>>;
    using Snapshot = std::shared_ptr<const std::vector<Entry>>;

    /// Returns null when there are no recipients.
    [[nodiscard]] Snapshot Get() const EXCLUDES(mutex)
    {
        const Support::Lock lock(mutex);
        return entries;
    }

    void Add(Entry entry) EXCLUDES(mutex)
    {
        const Support::Lock lock(mutex);
        auto changed = Copy();
        changed->push_back(std::move(entry));
        entries = std::move(changed);
    }

    void Remove(const Entry& entry) EXCLUDES(mutex)
    {
        Snapshot replaced; // released after the lock
        const Support::Lock lock(mutex);
        auto changed = Copy();
        std::erase(*changed, entry);
        replaced = std::exchange(entries, changed->empty() ? nullptr : std::move(changed));
    }

private:
    [[nodiscard]] std::shared_ptr<std::vector<Entry>> Copy() const REQUIRES(mutex)
    {
        return entries ? std::make_shared<std::vector<Entry>>(*entries)
                       : std::make_shared<std::vector<Entry>>();
    }

    mutable Support::Mutex mutex;
    Snapshot entries GUARDED_BY(mutex);
};

/// Runs notifications, and knows which are running.
class DispatcherImplementation final : public Dispatcher,
                                       public std::enable_shared_from_this<DispatcherImplementation>
{
public:
    [[nodiscard]] DispatchGuard TerminateDispatchOnStop(unsigned int affinityId) override;

    /// Calls `notification` with the target, unless the recipient has been ended or its affinity is
    /// silenced at this moment. Logs its exceptions. `source` is the object that raises the event;
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
        // Released before the end is known: a thread that waits for it may unload the target's
        // code next.
        target.reset();
        End(notified);
    }

    /// Notifies every recipient of the list.
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

    /// Ends a recipient: no new notification of it starts once this has returned. The caller
    /// releases the returned target, with no lock held.
    template <typename Target>
    [[nodiscard]] std::shared_ptr<Target> End(Recipient<Target>& recipient) EXCLUDES(waits.mutex)
    {
        const Support::Lock lock(waits.mutex);
        return std::exchange(recipient.target, nullptr);
    }

    /// Waits for the recipient's notifications on other threads, except those that wait for this
    /// one.
    void AwaitNotifications(const RecipientBase& recipient);

    /// The graph also serves other waits in which foreign code runs.
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
        EXCLUDES(waits.mutex)
    {
        const Support::Lock lock(waits.mutex);
        if (!recipient.target || IsSilenced(recipient.affinityId))
            return nullptr;
        Enter(started);
        return recipient.target;
    }

    void Enter(const Running& started) REQUIRES(waits.mutex);

    void End(const Running& ended) noexcept EXCLUDES(waits.mutex);
    [[nodiscard]] bool IsSilenced(unsigned int affinityId) const REQUIRES(waits.mutex);
    void Silence(unsigned int affinityId) EXCLUDES(waits.mutex);
    void Unsilence(unsigned int affinityId) noexcept EXCLUDES(waits.mutex);

    /// Waits for the notifications that satisfy the predicate.
    template <typename Predicate>
    void AwaitRunning(const Predicate& predicate) EXCLUDES(waits.mutex);

    WaitGraph waits;
    std::vector<const Running*> running GUARDED_BY(waits.mutex);
    std::vector<BehaviourStop*> stops GUARDED_BY(waits.mutex);
    std::unordered_map<unsigned int, int> silenced GUARDED_BY(waits.mutex);
};

/// The stop of an object's behaviour, for its time. The behaviour may wait for the threads that
/// deliver the object's events, such as a worker that it joins.
class BehaviourStop
{
public:
    /// Throws InvalidStateException naming `purpose` when the calling thread delivers an event of
    /// the object, or a thread that waits for the calling one does. Does nothing for a null object:
    /// an object without a behaviour runs no foreign code.
    BehaviourStop(DispatcherImplementation& dispatcher, const ObjectNode* object,
                  const std::string& purpose);
    BehaviourStop(const BehaviourStop&) = delete;
    BehaviourStop& operator=(const BehaviourStop&) = delete;
    ~BehaviourStop();

private:
    friend class DispatcherImplementation;

    DispatcherImplementation& dispatcher;
    const ObjectNode* object;
    WaitGraph::Waiter waiter; // guarded by the mutex of the wait graph
};

} // namespace Core
