#pragma once

#include "Core/CoreContext.h"
#include "Core/Embedding/InformationModel.h"
#include "Core/Embedding/Session.h"
#include "Core/Export.h"
#include "Core/Folder.h"
#include "Core/NodeProvider.h"
#include "Core/Objects.h"
#include "Core/Value.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Core::Embedding {

/// An event as subscribers see it, with every base field filled in.
struct Event
{
    std::shared_ptr<IObjectType> type;
    NodeId source;
    /// In the order of `type->GetEventArguments()`.
    std::vector<Value> fields;

    /// Throws NotFoundException for a field that the type does not have.
    [[nodiscard]] CORE_API const Value& GetField(const QualifiedName& name) const;
};

/// Called on the thread that raises the event, with no lock held; several calls may run at once
/// when several threads raise events. The host logs its exceptions.
using EventCallback = std::function<void(const std::shared_ptr<const Event>&)>;

/// Owns a subscription. Ending it waits for a callback that runs on another thread; a callback may
/// end its own subscription.
class CORE_API EventSubscription
{
public:
    EventSubscription() noexcept = default;
    explicit EventSubscription(std::function<void()> end) noexcept;
    EventSubscription(EventSubscription&& other) noexcept;
    EventSubscription& operator=(EventSubscription&& other) noexcept;
    ~EventSubscription();

    void Reset() noexcept;

private:
    std::function<void()> end;
};

/// The result of a method call.
struct [[nodiscard]] CallResult
{
    bool taken = false; ///< false: the behaviour refused it
    std::vector<Value> outputs;
};

/// The description of an object to create.
struct NewObject
{
    NodeId type;
    QualifiedName browseName;
    NodeId parent = Objects::ObjectsFolder();
    /// Empty stands for a random Guid in the host's namespace.
    NodeId id = {};
};

/// A reference, seen from one of its ends.
struct ReferenceDescription
{
    NodeId referenceTypeId;
    bool isForward = true;
    std::shared_ptr<INode> other;
};

/// A whole host inside this process: address space, modules, sessions, events.
///
/// All operations may be called from any thread, unless they say otherwise; none holds a lock of
/// the host while it makes, starts, stops, calls or notifies a behaviour. Creation, removal, start
/// and stop of one object run one after another. Each of them throws InvalidStateException when it
/// is called from inside the making, start or stop of the same object, or while that waits for the
/// calling thread. Removal and stop also throw it when they are called from inside an event
/// callback of the same object, or while such a callback waits for the calling thread, since the
/// behaviour's stop may wait for the thread that raises its events.
///
/// The exceptions of a behaviour that leave an operation have types of Core or of the standard
/// library, so that callers can keep them longer than the module. An exception of a module's own
/// type is translated, with its error code and texts. Two things still need the module's code: the
/// `std::error_category` of a `std::system_error` and the exception in a `std::nested_exception`.
class CORE_API Runtime
{
public:
    Runtime();
    Runtime(const Runtime&) = delete;
    Runtime& operator=(const Runtime&) = delete;
    /// Closes the sessions, waits for the calls in flight, removes the objects, unloads the
    /// modules. Refuses new sessions from its beginning on (InvalidStateException). Logs and leaves
    /// an object that it cannot remove. REQUIRES: other threads have no business with the runtime
    /// but calls in flight; the caller is no event callback and no behaviour.
    ~Runtime();

    [[nodiscard]] CoreContext& GetContext() noexcept;

    /// Loads a file as InformationModel::LoadNodeSet does, for objects created afterwards.
    void LoadInformationModel(const std::filesystem::path& file);
    [[nodiscard]] std::shared_ptr<const InformationModel> GetInformationModel() const;

    /// Loads a module and lets it register its factories; it stays loaded as long as the runtime
    /// lives. Takes the path as it is, without a search. Throws ModuleNotLoadableException (with
    /// the text of the dynamic linker), ModuleEntryMissingException, ModuleRefusedException (the
    /// entry did not return 1), ModuleFailedException (the entry threw; with the text of that
    /// exception). A module that fails after it has registered factories leaves none behind.
    void LoadModule(const std::filesystem::path& library);

    /// Sets the directories that modules may serve. REQUIRES: there are no objects yet, and no
    /// other thread uses the runtime.
    void SetFolders(std::vector<Folder> folders);

    /// Creates an object and returns its identifier. If its type has a behaviour factory, makes and
    /// starts the behaviour before the object can be called. Throws NotFoundException (type, parent
    /// or factory not known), AlreadyExistsException (the identifier is taken),
    /// InvalidArgumentException (abstract or event type), or the exception of the behaviour; then a
    /// started behaviour has been stopped and nothing is left behind.
    NodeId CreateObject(const NewObject& object);
    NodeId CreateFolder(const QualifiedName& browseName,
                        const NodeId& parent = Objects::ObjectsFolder());

    /// Takes the object out of the address space, then stops its behaviour. Calls in flight keep
    /// the behaviour alive. Logs an exception of the stop; the behaviour, which may still be at
    /// work, then lives to the end of the process. Throws NotFoundException, and
    /// InvalidArgumentException for a node that the two operations above did not create or that
    /// still has others below it.
    void RemoveObject(const NodeId& object);

    /// Stop and start the behaviour of an object without removing it. Do nothing for a behaviour
    /// that is stopped or started already. Throw NotFoundException, and the exception of the
    /// behaviour: after a failed start it has been stopped, after a failed stop it counts as
    /// started.
    void StopBehaviour(const NodeId& object);
    void StartBehaviour(const NodeId& object);

    /// Opens a session; its object is in the sessions folder when this returns. Throws
    /// InvalidStateException while the runtime ends.
    [[nodiscard]] std::shared_ptr<Session> OpenSession(const std::string& name);

    /// Returns the behaviour of an object if it provides nodes; otherwise null. The pointer holds
    /// the behaviour and its module, and must not outlive the runtime. The exceptions of its
    /// operations may be of the module's own types. Throws NotFoundException.
    [[nodiscard]] std::shared_ptr<INodeProvider> GetProvider(const NodeId& object);

    /// Calls a method of an object for a session, on the calling thread. The object may be one that
    /// a behaviour provides: then its identifier is a text in the namespace of that behaviour's
    /// type, and the behaviour decides whether it exists. The behaviour decides about unknown names
    /// and arguments. Throws SessionClosedException, NotFoundException (no such
    /// object), NotExecutableException (the object takes no calls), or the exception of the
    /// behaviour.
    CallResult Call(const std::shared_ptr<Session>& session, const NodeId& object,
                    const std::string& method, const std::vector<Value>& inputs);

    /// Calls `callback` for each event raised on one object, in order. Throws NotFoundException.
    [[nodiscard]] EventSubscription Subscribe(const NodeId& object, EventCallback callback);

    /// Returns the references of a node, in both directions. Throws NotFoundException.
    [[nodiscard]] std::vector<ReferenceDescription> Browse(const NodeId& node) const;

private:
    class Implementation;
    std::unique_ptr<Implementation> implementation;
};

} // namespace Core::Embedding
