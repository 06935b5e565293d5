#pragma once

#include "Core/CoreContext.h"
#include "Core/Embedding/InformationModel.h"
#include "Core/Embedding/Session.h"
#include "Core/Export.h"
#include "Core/Objects.h"
#include "Core/Value.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Core::Embedding {

/// An event as subscribers see it: every base field is filled.
struct Event
{
    std::shared_ptr<IObjectType> type;
    NodeId source;
    /// Laid out by `type->GetEventArguments()`.
    std::vector<Value> fields;

    /// Throws NotFoundException for a field that the type does not have.
    [[nodiscard]] CORE_API const Value& GetField(const QualifiedName& name) const;
};

/// Called on the thread that raises the event, with no lock held; several may run at once when
/// several threads raise events. What it throws is logged.
using EventCallback = std::function<void(const std::shared_ptr<const Event>&)>;

/// Owns a subscription. Ending it waits for a callback that runs on another thread; it may be ended
/// from inside its own callback.
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

/// What a method call came to.
struct [[nodiscard]] CallResult
{
    bool taken = false; ///< false: the behaviour refused it
    std::vector<Value> outputs;
};

/// What an object is to be.
struct NewObject
{
    NodeId type;
    QualifiedName browseName;
    NodeId parent = Objects::ObjectsFolder();
    /// Empty: a random Guid in the host's namespace.
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
/// the host while a behaviour is made, started, stopped, called or notified. Creation, removal,
/// start and stop of one object are serialised among themselves; asking for one of these from
/// inside the making, start or stop of the same object, or while that waits for the calling thread,
/// throws InvalidStateException. So does removal or stop from inside an event callback of the same
/// object, or while such a callback waits for the calling thread, since the behaviour's stop may
/// wait for the thread that raises its events.
///
/// Exceptions of a behaviour that leave an operation are of types of Core or of the standard
/// library, so that they can be kept longer than the module; one of a module's own type is
/// translated, with its error code and texts. Two things still need the module's code: the
/// `std::error_category` of a `std::system_error` and what a `std::nested_exception` carries.
class CORE_API Runtime
{
public:
    Runtime();
    Runtime(const Runtime&) = delete;
    Runtime& operator=(const Runtime&) = delete;
    /// Closes the sessions, waits for the calls in flight, removes the objects, unloads the
    /// modules. From its beginning on no session is opened (InvalidStateException). An object that
    /// cannot be removed is logged and left. REQUIRES: no other thread uses the runtime any more,
    /// but for calls in flight; not called from inside an event callback or a behaviour.
    ~Runtime();

    [[nodiscard]] CoreContext& GetContext() noexcept;

    /// See InformationModel::LoadNodeSet. The types are there for objects created afterwards.
    void LoadInformationModel(const std::filesystem::path& file);
    [[nodiscard]] std::shared_ptr<const InformationModel> GetInformationModel() const;

    /// Loads a module and lets it register its factories; it stays loaded as long as the runtime.
    /// The path is taken as it is, never searched for. Throws ModuleNotLoadableException (the text
    /// is the dynamic linker's), ModuleEntryMissingException, ModuleRefusedException (the entry did
    /// not return 1), ModuleFailedException (it threw; the text is the exception's). A module that
    /// failed after registering factories leaves none behind.
    void LoadModule(const std::filesystem::path& library);

    /// Creates an object; if its type has a behaviour factory, makes and starts its behaviour
    /// before the object can be called. Returns its identifier. Throws NotFoundException (type,
    /// parent or factory not known), AlreadyExistsException (the identifier is taken),
    /// InvalidArgumentException (abstract or event type), or what the behaviour threw; then a
    /// started behaviour has been stopped and nothing is left behind.
    NodeId CreateObject(const NewObject& object);
    NodeId CreateFolder(const QualifiedName& browseName,
                        const NodeId& parent = Objects::ObjectsFolder());

    /// Takes the object out of the address space, then stops its behaviour. Calls in flight keep
    /// the behaviour alive. What the stop throws is logged; the behaviour, which may still be at
    /// work, is then kept to the end of the process. Throws NotFoundException, and
    /// InvalidArgumentException for nodes that were not created with the two operations above or
    /// that still have others below them.
    void RemoveObject(const NodeId& object);

    /// Stop and start the behaviour of an object without removing it; stopping a stopped one and
    /// starting a started one do nothing. Throw NotFoundException, and what the behaviour throws:
    /// after a failed start it has been stopped, after a failed stop it counts as started.
    void StopBehaviour(const NodeId& object);
    void StartBehaviour(const NodeId& object);

    /// Opens a session: its object is in the sessions folder when this returns. Throws
    /// InvalidStateException while the runtime ends.
    [[nodiscard]] std::shared_ptr<Session> OpenSession(const std::string& name);

    /// Calls a method of an object for a session, on the calling thread. The behaviour decides
    /// about unknown names and arguments. Throws SessionClosedException, NotFoundException (no such
    /// object), NotExecutableException (the object takes no calls), or what the behaviour threw.
    CallResult Call(const std::shared_ptr<Session>& session, const NodeId& object,
                    const std::string& method, const std::vector<Value>& inputs);

    /// Hears the events that are raised on one object, in their order. Throws NotFoundException.
    [[nodiscard]] EventSubscription Subscribe(const NodeId& object, EventCallback callback);

    /// The references of a node, both ways. Throws NotFoundException.
    [[nodiscard]] std::vector<ReferenceDescription> Browse(const NodeId& node) const;

private:
    class Implementation;
    std::unique_ptr<Implementation> implementation;
};

} // namespace Core::Embedding
