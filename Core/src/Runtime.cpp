#include "Core/Embedding/Runtime.h"

#include "Core/Exception.h"
#include "CoreLog.h"
#include "HostContext.h"
#include "ModelNodes.h"
#include "ModuleBoundary.h"
#include "ModuleLoader.h"
#include "ObjectTable.h"
#include "Support/Mutex.h"

#include <optional>
#include <unordered_map>
#include <utility>

namespace Core::Embedding {

const Value& Event::GetField(const QualifiedName& name) const
{
    return fields.at(type->GetEventArguments().GetFieldIndex(name));
}

EventSubscription::EventSubscription(std::function<void()> end) noexcept
    : end(std::move(end))
{}

EventSubscription::EventSubscription(EventSubscription&& other) noexcept
    : end(std::exchange(other.end, nullptr))
{}

EventSubscription& EventSubscription::operator=(EventSubscription&& other) noexcept
{
    if (this != &other) {
        Reset();
        end = std::exchange(other.end, nullptr);
    }
    return *this;
}

EventSubscription::~EventSubscription()
{
    Reset();
}

void EventSubscription::Reset() noexcept
{
    if (const auto ending = std::exchange(end, nullptr))
        ending();
}

class Runtime::Implementation
{
public:
    Implementation();
    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;
    ~Implementation();

    [[nodiscard]] HostContext& GetHost() noexcept { return *host; }
    [[nodiscard]] AddressSpace& GetAddressSpace() noexcept { return host->GetAddressSpace(); }

    void LoadInformationModel(const std::filesystem::path& file);
    [[nodiscard]] std::shared_ptr<const InformationModel> GetInformationModel() const;
    void LoadModule(const std::filesystem::path& file);

    NodeId CreateObject(const NewObject& object);
    [[nodiscard]] std::shared_ptr<INodeProvider> GetProvider(const NodeId& id);
    void RemoveObject(const NodeId& id);
    void StopBehaviour(const NodeId& id);
    void StartBehaviour(const NodeId& id);

    CallResult Call(const std::shared_ptr<Session>& session, const NodeId& object,
                    const std::string& method, const std::vector<Value>& inputs);
    [[nodiscard]] EventSubscription Subscribe(const NodeId& object, EventCallback callback);

private:
    /// Makes the destructor run when the public constructor, which delegates to this one, throws.
    explicit Implementation(std::shared_ptr<const InformationModel> model);

    void AddRootFolders();
    [[nodiscard]] std::shared_ptr<ObjectNode> RequireObject(const NodeId& id);
    [[nodiscard]] bool IsOwnObject(const NodeId& id);
    [[nodiscard]] bool IsOwnNode(const NodeId& id);
    [[nodiscard]] std::shared_ptr<ObjectNode> RequireParent(const NodeId& id);
    [[nodiscard]] std::optional<RegisteredFactory> FindFactory(const InformationModel& types,
                                                               const NodeId& type);
    void CheckCreatable(const InformationModel& types, const NewObject& object);
    [[nodiscard]] std::optional<AddressSpace::Changes> TryCreate(const NewObject& object,
                                                                 const NodeId& id);
    [[nodiscard]] AddressSpace::Changes Create(BehaviourSlot& slot, const NewObject& object,
                                               const NodeId& id);
    [[nodiscard]] AddressSpace::Changes
    Publish(BehaviourSlot& slot, const std::shared_ptr<ObjectNode>& node, const NewObject& object);
    void Discard(BehaviourSlot& slot, const NodeId& id);
    void EnterProvider(const BehaviourSlot& slot, const NewObject& object, const NodeId& id);
    void ForgetProvider(const NodeId& id);

    /// The object of a call, and the behaviour that takes it.
    struct Callee
    {
        std::shared_ptr<const HeldBehaviour> held;
        std::shared_ptr<ObjectNode> node;
    };
    [[nodiscard]] Callee FindCallee(const NodeId& object);
    [[nodiscard]] Callee FindProvided(const NodeId& object);
    [[nodiscard]] std::shared_ptr<const HeldBehaviour> RequireExecutable(const NodeId& object);

    template <typename Operation>
    void Change(const NodeId& id, const char* purpose, const Operation& operation);
    void RemoveAllObjects();
    [[nodiscard]] bool TryRemove(const NodeId& id);

    const std::shared_ptr<HostContext> host;
    ObjectTable objects;

    Support::Mutex loading; // held while an information model is loaded; taken before `mutex`

    mutable Support::Mutex mutex;
    std::shared_ptr<const InformationModel> model GUARDED_BY(mutex); // replaced as a whole
    std::vector<std::shared_ptr<const Module>> modules GUARDED_BY(mutex);
    /// The objects whose behaviours provide nodes, by the namespace of their keys.
    std::unordered_map<int, NodeId> providers GUARDED_BY(mutex);
};

Runtime::Implementation::Implementation(std::shared_ptr<const InformationModel> model)
    : host(std::make_shared<HostContext>())
    , model(std::move(model))
{}

Runtime::Implementation::Implementation()
    : Implementation(std::make_shared<const InformationModel>())
{
    const auto base = MakeModelNodes(*model, {}, host->GetEnvironment());
    static_cast<void>(GetAddressSpace().Add(base.nodes, base.references));
    AddRootFolders();
}

void Runtime::Implementation::AddRootFolders()
{
    const auto makeFolder = [this](const NodeId& id, const QualifiedName& name) {
        return std::make_shared<ObjectNode>(NodeIdentity{id, name}, host->GetEnvironment(),
                                            ObjectRole::Root, true);
    };
    const auto& root = Objects::ObjectsFolder();
    const auto& sessions = Objects::SessionsFolder();
    static_cast<void>(
        GetAddressSpace().Add({makeFolder(root, QualifiedName(0, "Objects")),
                               makeFolder(sessions, QualifiedName(1, "Sessions"))},
                              {{References::hasTypeDefinition, root, BaseTypes::folderType},
                               {References::hasTypeDefinition, sessions, BaseTypes::folderType},
                               {References::organizes, root, sessions}}));
}

// The order matters: calls end first, then the objects, then the observers and subscribers; the
// code of the modules is released last.
Runtime::Implementation::~Implementation()
{
    try {
        host->GetSessionRegistry().CloseAll();
        RemoveAllObjects();
        auto nodes = GetAddressSpace().Clear();
        for (const auto& node : nodes)
            node->EndNotifications();
        nodes.clear();
        static_cast<void>(host->GetFactories().Clear());
        HeldBehaviour::ReleaseLeftovers();
    } catch (...) {
        LogCurrentException("The runtime did not end in order");
    }
}

/// Works in passes, since an object is removed before the one above it. Ends with a pass that
/// removes nothing, so that no object can keep the runtime from ending.
void Runtime::Implementation::RemoveAllObjects()
{
    bool isRemoving = true;
    while (isRemoving) {
        isRemoving = false;
        for (const auto& id : objects.GetIds())
            isRemoving = TryRemove(id) || isRemoving;
    }
}

/// Returns false for an object that has others below it, or that cannot be removed; logs the
/// latter.
bool Runtime::Implementation::TryRemove(const NodeId& id)
{
    try {
        if (GetAddressSpace().HasOthersBelow(id))
            return false;
        RemoveObject(id);
        return true;
    } catch (const NotFoundException&) {
        return true; // removed by the stop of another object
    } catch (...) {
        LogCurrentException("Cannot remove object " + id.ToString());
        return false;
    }
}

void Runtime::Implementation::LoadInformationModel(const std::filesystem::path& file)
{
    AddressSpace::Changes changes;
    {
        const Support::Lock lock(loading);
        const auto known = GetInformationModel();
        auto extended = std::make_shared<InformationModel>(*known);
        extended->LoadNodeSet(file);
        const auto added = MakeModelNodes(*extended, GetExtent(*known), host->GetEnvironment());
        changes = GetAddressSpace().Add(added.nodes, added.references);
        const Support::Lock publication(mutex);
        model = std::move(extended);
    }
    AddressSpace::NotifyAdded(changes);
}

std::shared_ptr<const InformationModel> Runtime::Implementation::GetInformationModel() const
{
    const Support::Lock lock(mutex);
    return model;
}

void Runtime::Implementation::LoadModule(const std::filesystem::path& file)
{
    auto module = Module::Load(file, host, host->GetFactories());
    const Support::Lock lock(mutex);
    modules.push_back(std::move(module));
}

std::shared_ptr<ObjectNode> Runtime::Implementation::RequireObject(const NodeId& id)
{
    auto object = std::dynamic_pointer_cast<ObjectNode>(GetAddressSpace().Find(id));
    if (!object)
        throw NotFoundException("There is no object " + id.ToString());
    return object;
}

std::shared_ptr<ObjectNode> Runtime::Implementation::RequireParent(const NodeId& id)
{
    auto parent = RequireObject(id);
    if (parent->GetRole() == ObjectRole::Session || id == Objects::SessionsFolder())
        throw InvalidArgumentException("Objects cannot be created below " + id.ToString() +
                                       ": it is kept for the sessions");
    return parent;
}

std::optional<RegisteredFactory> Runtime::Implementation::FindFactory(const InformationModel& types,
                                                                      const NodeId& type)
{
    const auto identifier = types.GetBehaviourFactory(type);
    if (!identifier)
        return std::nullopt;
    return host->GetFactories().Get(*identifier);
}

void Runtime::Implementation::CheckCreatable(const InformationModel& types, const NewObject& object)
{
    const auto& type = types.GetObjectType(object.type);
    if (type.isAbstract || types.IsSubtypeOf(object.type, BaseTypes::baseEventType))
        throw InvalidArgumentException("Type " + object.type.ToString() + " (" + type.displayName +
                                       ") has no objects: it is " +
                                       (type.isAbstract ? "abstract" : "an event type"));
    static_cast<void>(RequireParent(object.parent));
}

NodeId Runtime::Implementation::CreateObject(const NewObject& object)
{
    NodeId id = object.id.IsEmpty() ? NodeId(1, Guid::Random()) : object.id;
    std::optional<AddressSpace::Changes> changes;
    while (!changes)
        changes = TryCreate(object, id);
    AddressSpace::NotifyAdded(*changes);
    return id;
}

/// Returns nothing when another removal or failed creation of the same object ended first.
std::optional<AddressSpace::Changes> Runtime::Implementation::TryCreate(const NewObject& object,
                                                                        const NodeId& id)
{
    const auto slot = objects.FindOrAdd(id);
    const Turn turn(host->GetWaitGraph(), slot->GetTurnstile(), "Creating object " + id.ToString());
    if (slot->GetStage() == BehaviourSlot::Stage::Gone)
        return std::nullopt;
    if (slot->GetStage() == BehaviourSlot::Stage::Live)
        throw AlreadyExistsException("There is already an object " + id.ToString());
    try {
        return Create(*slot, object, id);
    } catch (...) {
        Discard(*slot, id);
        throw;
    }
}

AddressSpace::Changes Runtime::Implementation::Create(BehaviourSlot& slot, const NewObject& object,
                                                      const NodeId& id)
{
    const auto types = GetInformationModel();
    CheckCreatable(*types, object);
    if (GetAddressSpace().Find(id))
        throw AlreadyExistsException("There is already a node " + id.ToString());
    const auto factory = FindFactory(*types, object.type);
    const auto node = std::make_shared<ObjectNode>(
        NodeIdentity{id, object.browseName}, host->GetEnvironment(), ObjectRole::Created,
        types->IsSubtypeOf(object.type, BaseTypes::folderType));
    if (factory)
        AtModuleBoundary([&] { slot.Fill(*factory, node); });
    EnterProvider(slot, object, id);
    return Publish(slot, node, object);
}

void Runtime::Implementation::EnterProvider(const BehaviourSlot& slot, const NewObject& object,
                                            const NodeId& id)
{
    if (!slot.ProvidesNodes())
        return;
    const Support::Lock lock(mutex);
    const auto [entry, isNew] = providers.emplace(object.type.GetNamespaceIndex(), id);
    if (!isNew)
        throw AlreadyExistsException("Object " + entry->second.ToString() +
                                     " provides the nodes of its namespace already");
}

void Runtime::Implementation::ForgetProvider(const NodeId& id)
{
    const Support::Lock lock(mutex);
    std::erase_if(providers, [&id](const auto& entry) { return entry.second == id; });
}

AddressSpace::Changes Runtime::Implementation::Publish(BehaviourSlot& slot,
                                                       const std::shared_ptr<ObjectNode>& node,
                                                       const NewObject& object)
{
    const auto& id = node->GetNodeId();
    const auto parent = RequireParent(object.parent); // it may have been removed in between
    slot.Publish();
    auto changes = GetAddressSpace().Add(
        {node},
        {{parent->IsFolder() ? References::organizes : References::hasComponent, object.parent, id},
         {References::hasTypeDefinition, id, object.type}});
    slot.SetStage(BehaviourSlot::Stage::Live);
    return changes;
}

void Runtime::Implementation::Discard(BehaviourSlot& slot, const NodeId& id)
{
    ForgetProvider(id);
    slot.Clear();
    slot.SetStage(BehaviourSlot::Stage::Gone);
    objects.Erase(id);
}

/// Runs an operation on a created object once it is the calling thread's turn.
template <typename Operation>
void Runtime::Implementation::Change(const NodeId& id, const char* purpose,
                                     const Operation& operation)
{
    const auto slot = objects.Find(id);
    if (!slot)
        throw NotFoundException(std::string(purpose) + " " + id.ToString() +
                                " is not possible: no such object has been created");
    const Turn turn(host->GetWaitGraph(), slot->GetTurnstile(),
                    std::string(purpose) + " " + id.ToString());
    if (slot->GetStage() != BehaviourSlot::Stage::Live)
        throw NotFoundException(std::string(purpose) + " " + id.ToString() +
                                " is not possible: the object is not there any more");
    operation(*slot);
}

void Runtime::Implementation::RemoveObject(const NodeId& id)
{
    if (IsOwnNode(id))
        throw InvalidArgumentException("Node " + id.ToString() +
                                       " cannot be removed: it was not created as an object");
    AddressSpace::Removal removal;
    Change(id, "Removing object", [&](BehaviourSlot& slot) {
        const BehaviourStop stop(host->GetDispatcherImplementation(), slot.GetNode(),
                                 "Removing object " + id.ToString());
        removal = GetAddressSpace().Remove(id);
        Discard(slot, id);
    });
    AddressSpace::NotifyRemoved(removal.changes);
    removal.node->EndNotifications();
}

void Runtime::Implementation::StopBehaviour(const NodeId& id)
{
    Change(id, "Stopping object", [&](BehaviourSlot& slot) {
        const BehaviourStop stop(host->GetDispatcherImplementation(), slot.GetNode(),
                                 "Stopping object " + id.ToString());
        AtModuleBoundary([&slot] { slot.Stop(); });
    });
}

void Runtime::Implementation::StartBehaviour(const NodeId& id)
{
    Change(id, "Starting object",
           [](BehaviourSlot& slot) { AtModuleBoundary([&slot] { slot.Start(); }); });
}

std::shared_ptr<const HeldBehaviour>
Runtime::Implementation::RequireExecutable(const NodeId& object)
{
    const auto slot = objects.Find(object);
    auto published = slot ? slot->Get() : BehaviourSlot::Published();
    if (!published.isThere && !IsOwnObject(object))
        throw NotFoundException("There is no object " + object.ToString());
    if (!published.held || published.held->GetExecutable() == nullptr)
        throw NotExecutableException("Object " + object.ToString() + " takes no calls");
    return std::move(published.held);
}

/// True for the root folders and the sessions' objects.
bool Runtime::Implementation::IsOwnObject(const NodeId& id)
{
    const auto object = std::dynamic_pointer_cast<ObjectNode>(GetAddressSpace().Find(id));
    return object && object->GetRole() != ObjectRole::Created;
}

/// True for the runtime's own nodes: the types, the root folders, the sessions' objects.
bool Runtime::Implementation::IsOwnNode(const NodeId& id)
{
    const auto node = GetAddressSpace().Find(id);
    const auto* object = dynamic_cast<const ObjectNode*>(node.get());
    return node && (object == nullptr || object->GetRole() != ObjectRole::Created);
}

CallResult Runtime::Implementation::Call(const std::shared_ptr<Session>& session,
                                         const NodeId& object, const std::string& method,
                                         const std::vector<Value>& inputs)
{
    // The order matters: the end of the last call may announce the session's end, so it comes after
    // the behaviour is released and the thread has left the session.
    const SessionCall call(host->GetSessionRegistry().Require(session));
    const SessionScope scope(session);
    const auto callee = FindCallee(object);
    CallResult result;
    AtModuleBoundary([&] {
        result.taken = callee.held->GetExecutable()->OnExecuteMethod(callee.node, method, inputs,
                                                                     result.outputs);
    });
    return result;
}

Runtime::Implementation::Callee Runtime::Implementation::FindCallee(const NodeId& object)
{
    if (object.GetText() != nullptr && !objects.Find(object))
        if (auto provided = FindProvided(object); provided.held)
            return provided;
    auto held = RequireExecutable(object);
    auto node = held->GetNode();
    return {std::move(held), std::move(node)};
}

/// Returns nothing for an identifier in a namespace without a provider.
Runtime::Implementation::Callee Runtime::Implementation::FindProvided(const NodeId& object)
{
    NodeId provider;
    {
        const Support::Lock lock(mutex);
        const auto found = providers.find(object.GetNamespaceIndex());
        if (found == providers.end())
            return {};
        provider = found->second;
    }
    auto held = RequireExecutable(provider);
    std::optional<ProvidedNode> description;
    AtModuleBoundary([&] { description = held->GetProvider()->Describe(*object.GetText()); });
    if (!description || description->kind != ProvidedNode::Kind::Object)
        throw NotFoundException("There is no object " + object.ToString());
    auto node =
        std::make_shared<ObjectNode>(NodeIdentity{object, std::move(description->browseName)},
                                     host->GetEnvironment(), ObjectRole::Provided, false);
    return {std::move(held), std::move(node)};
}

std::shared_ptr<INodeProvider> Runtime::Implementation::GetProvider(const NodeId& id)
{
    const auto slot = objects.Find(id);
    auto published = slot ? slot->Get() : BehaviourSlot::Published();
    if (!published.isThere)
        throw NotFoundException("There is no object " + id.ToString());
    if (!published.held)
        return nullptr;
    auto* const provider = published.held->GetProvider();
    return provider == nullptr
               ? nullptr
               : std::shared_ptr<INodeProvider>(std::move(published.held), provider);
}

EventSubscription Runtime::Implementation::Subscribe(const NodeId& object, EventCallback callback)
{
    if (!callback)
        throw InvalidArgumentException("Cannot subscribe to object " + object.ToString() +
                                       ": there is no callback");
    return RequireObject(object)->Subscribe(std::move(callback));
}

Runtime::Runtime()
    : implementation(std::make_unique<Implementation>())
{}

Runtime::~Runtime() = default;

CoreContext& Runtime::GetContext() noexcept
{
    return implementation->GetHost();
}

void Runtime::LoadInformationModel(const std::filesystem::path& file)
{
    implementation->LoadInformationModel(file);
}

std::shared_ptr<const InformationModel> Runtime::GetInformationModel() const
{
    return implementation->GetInformationModel();
}

void Runtime::LoadModule(const std::filesystem::path& library)
{
    implementation->LoadModule(library);
}

void Runtime::SetFolders(std::vector<Folder> folders)
{
    implementation->GetHost().SetFolders(std::move(folders));
}

std::shared_ptr<INodeProvider> Runtime::GetProvider(const NodeId& object)
{
    return implementation->GetProvider(object);
}

NodeId Runtime::CreateObject(const NewObject& object)
{
    return implementation->CreateObject(object);
}

NodeId Runtime::CreateFolder(const QualifiedName& browseName, const NodeId& parent)
{
    return CreateObject({BaseTypes::folderType, browseName, parent, {}});
}

void Runtime::RemoveObject(const NodeId& object)
{
    implementation->RemoveObject(object);
}

void Runtime::StopBehaviour(const NodeId& object)
{
    implementation->StopBehaviour(object);
}

void Runtime::StartBehaviour(const NodeId& object)
{
    implementation->StartBehaviour(object);
}

std::shared_ptr<Session> Runtime::OpenSession(const std::string& name)
{
    return implementation->GetHost().GetSessionRegistry().Open(
        name, implementation->GetHost().GetEnvironment());
}

CallResult Runtime::Call(const std::shared_ptr<Session>& session, const NodeId& object,
                         const std::string& method, const std::vector<Value>& inputs)
{
    return implementation->Call(session, object, method, inputs);
}

EventSubscription Runtime::Subscribe(const NodeId& object, EventCallback callback)
{
    return implementation->Subscribe(object, std::move(callback));
}

std::vector<ReferenceDescription> Runtime::Browse(const NodeId& node) const
{
    return implementation->GetAddressSpace().Browse(node);
}

} // namespace Core::Embedding
