#include "Endpoint/ProvidedNodes.h"

#include "Core/Exception.h"
#include "Endpoint/Interposition.h"
#include "Endpoint/NodeKeys.h"
#include "Log/Log.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

namespace Host {
namespace {

using Core::ProvidedNode;

/// The library deletes a node after it has released it, and reads it once more then. This is more
/// than it ever handles at a time.
constexpr std::size_t mostRetired = 64;

/// A key has no more parts.
constexpr std::size_t mostLevels = 4'096;

/// Each sample of a monitored value is a look-up, for which the host waits.
constexpr double samplingInterval = 250; // ms

constexpr UA_UInt32 browsedAttributes = UA_NODEATTRIBUTESMASK_NODECLASS |
                                        UA_NODEATTRIBUTESMASK_BROWSENAME |
                                        UA_NODEATTRIBUTESMASK_DISPLAYNAME;

bool Asks(const NodeRequest& request, UA_Byte referenceType)
{
    return UA_ReferenceTypeSet_contains(&request.references, referenceType);
}

bool AsksInverse(const NodeRequest& request)
{
    return request.directions == UA_BROWSEDIRECTION_INVERSE ||
           request.directions == UA_BROWSEDIRECTION_BOTH;
}

bool AsksForward(const NodeRequest& request)
{
    return request.directions == UA_BROWSEDIRECTION_FORWARD ||
           request.directions == UA_BROWSEDIRECTION_BOTH;
}

/// True for the object of a call, whose references the library asks for and does not use. It has
/// asked for the method before; nothing else asks whether it can be executed.
bool IsOfCall(const NodeRequest& request)
{
    return request.attributes == UA_NODEATTRIBUTESMASK_NODECLASS &&
           request.attributesBefore ==
               (UA_NODEATTRIBUTESMASK_NODECLASS | UA_NODEATTRIBUTESMASK_EXECUTABLE) &&
           request.directions == UA_BROWSEDIRECTION_BOTH;
}

/// True if the library goes on from the node, by Browse or TranslateBrowsePaths.
bool IsOfBrowse(const NodeRequest& request)
{
    return (request.attributes & ~browsedAttributes) == 0 && AsksForward(request) &&
           !IsOfCall(request);
}

/// True if the library wants to change the node, which it does in its place.
bool IsWhole(const NodeRequest& request)
{
    return request.attributes == UA_NODEATTRIBUTESMASK_ALL;
}

std::string MakeId(const UA_NodeId& id)
{
    return std::to_string(id.namespaceIndex) + ':' +
           std::string(OpcUa::BytesOf(id.identifier.string));
}

UA_UInt32 HashOf(const UA_QualifiedName& name)
{
    return UA_QualifiedName_hash(&name);
}

UA_StatusCode ToStatus(UA_StatusCode status)
{
    return status == UA_STATUSCODE_BADNOTFOUND ? UA_STATUSCODE_BADNODEIDUNKNOWN : status;
}

} // namespace

/// A type, as the nodes of it refer to it.
struct ProvidedNodes::Type
{
    Ua<UA_NodeId> id;
    std::vector<Ua<UA_NodeId>> methodIds;
    std::vector<UA_ReferenceTarget> methods; // point to the identifiers
};

/// A node that its provider describes.
struct ProvidedNodes::Found
{
    const NodeSource& source;
    const UA_NodeId& id;
    std::string key;
    ProvidedNode description;
};

/// A node that the library has and will release.
struct ProvidedNodes::Lent
{
    std::unique_ptr<MadeNode> node;
    const UA_Node* innerNode = nullptr; ///< whose references it shows, too
};

/// A node that the library has for changing it. It lives on while monitored items hang on it.
struct ProvidedNodes::Kept
{
    std::unique_ptr<MadeNode> node;
    std::size_t users = 0;
};

/// One look-up of a value or of a node. It owns what it uses, since it may go on after it was given
/// up.
class ProvidedNodes::Reading
{
public:
    Reading(std::shared_ptr<Core::INodeProvider> provider, std::string key)
        : provider(std::move(provider))
        , key(std::move(key))
    {}

    void ReadValue()
    {
        Try([this] { value = provider->Read(key); });
    }

    void FindNode()
    {
        Try([this] { exists = provider->Exists(key); });
    }

    UA_StatusCode status = UA_STATUSCODE_GOOD;
    Core::Value value;
    bool exists = false;

private:
    template <typename Operation>
    void Try(Operation&& operation)
    {
        try {
            operation();
        } catch (const Core::StatusException& exception) {
            status = ToStatus(exception.GetStatus());
        } catch (const std::exception& exception) {
            status = UA_STATUSCODE_BADINTERNALERROR;
            Log(Core::LogLevel::Error, "Host",
                fmt::format("Cannot look up {}: {}", key, exception.what()));
        }
    }

    const std::shared_ptr<Core::INodeProvider> provider;
    const std::string key;
};

ProvidedNodes::ProvidedNodes(const UA_Nodestore& inner,
                             const Core::Embedding::InformationModel& model,
                             const Namespaces& namespaces, const Values& values)
    : inner(inner)
    , model(model)
    , namespaces(namespaces)
    , values(values)
    , listings(lookUps, namespaces)
{}

ProvidedNodes::~ProvidedNodes() = default;

void ProvidedNodes::Add(const Core::NodeId& object, const Core::NodeId& type,
                        std::shared_ptr<Core::INodeProvider> provider)
{
    auto source = std::make_unique<NodeSource>();
    source->number = sources.size();
    source->object = object;
    source->uaObject = namespaces.ToUa(object);
    source->namespaceIndex = type.GetNamespaceIndex();
    source->uaNamespace = namespaces.ToUa(type.GetNamespaceIndex());
    source->provider = std::move(provider);
    const UA_Node* node =
        inner.getNode(inner.context, &*source->uaObject, UA_NODEATTRIBUTESMASK_BROWSENAME,
                      UA_REFERENCETYPESET_NONE, UA_BROWSEDIRECTION_INVALID);
    if (node != nullptr) {
        source->browseNameHash = HashOf(node->head.browseName);
        inner.releaseNode(inner.context, node);
    }
    for (const auto& other : sources)
        if (other->uaNamespace == source->uaNamespace)
            throw Core::AlreadyExistsException(
                fmt::format("{} and {} provide nodes in the same namespace",
                            other->object.ToString(), object.ToString()));
    sources.push_back(std::move(source));
}

bool ProvidedNodes::Concerns(const UA_NodeId& id) const
{
    return FindSource(id) != nullptr || FindByObject(id) != nullptr;
}

const NodeSource* ProvidedNodes::FindSource(const UA_NodeId& id) const
{
    if (id.identifierType != UA_NODEIDTYPE_STRING)
        return nullptr;
    for (const auto& source : sources)
        if (source->uaNamespace == id.namespaceIndex)
            return source.get();
    return nullptr;
}

const NodeSource* ProvidedNodes::FindByObject(const UA_NodeId& id) const
{
    for (const auto& source : sources)
        if (UA_NodeId_equal(&*source->uaObject, &id))
            return source.get();
    return nullptr;
}

std::optional<ProvidedNodes::Found> ProvidedNodes::Find(const UA_NodeId& id) const
{
    const NodeSource* source = FindSource(id);
    if (source == nullptr || FindByObject(id) != nullptr)
        return std::nullopt;
    auto key = ToKey(id);
    if (!key)
        return std::nullopt;
    auto description = source->provider->Describe(*key);
    if (!description)
        return std::nullopt;
    return Found{*source, id, std::move(*key), std::move(*description)};
}

std::optional<Core::NodeId> ProvidedNodes::FindType(const UA_NodeId& id) const
{
    const auto found = Find(id);
    if (!found || found->description.kind != ProvidedNode::Kind::Object)
        return std::nullopt;
    return found->description.type;
}

std::optional<ProvidedNodes::Name> ProvidedNodes::FindName(const Core::NodeId& id) const
{
    const auto* const text = id.GetText();
    const auto source = std::find_if(sources.begin(), sources.end(), [&id](const auto& each) {
        return each->namespaceIndex == id.GetNamespaceIndex();
    });
    if (text == nullptr || source == sources.end())
        return std::nullopt;
    Name name{{}, (*source)->object};
    std::string key = *text;
    for (std::size_t level = 0; !key.empty() && level < mostLevels; ++level) {
        const auto description = (*source)->provider->Describe(key);
        if (!description)
            return std::nullopt;
        const auto& own = description->browseName.GetName();
        name.path = name.path.empty() ? own : own + "/" + name.path;
        key = description->parent;
    }
    return name;
}

const ProvidedNodes::Type& ProvidedNodes::GetType(const Core::NodeId& id) const
{
    auto& type = types[id];
    if (type != nullptr)
        return *type;
    auto made = std::make_unique<Type>();
    made->id = namespaces.ToUa(id);
    const auto methods = model.GetMethods(id);
    made->methodIds.reserve(methods.size());
    for (const auto& method : methods) {
        made->methodIds.push_back(namespaces.ToUa(method.id));
        made->methods.push_back({UA_NodePointer_fromNodeId(&*made->methodIds.back()),
                                 HashOf(namespaces.ToUaView(method.browseName))});
    }
    type = std::move(made);
    return *type;
}

const UA_Node* ProvidedNodes::GetInner(const UA_NodeId& id, const NodeRequest& request) const
{
    return inner.getNode(inner.context, &id, request.attributes, request.references,
                         request.directions);
}

const UA_Node* ProvidedNodes::Get(const UA_NodeId& id, const NodeRequest& request)
{
    if (const NodeSource* source = FindByObject(id))
        return IsOfBrowse(request) ? GetRoot(*source, request) : GetInner(id, request);
    const auto found = Find(id);
    if (!found)
        return GetInner(id, request); // the host's own nodes have texts, too
    if (IsWhole(request))
        return GetWhole(*found);
    const bool isObject = found->description.kind == ProvidedNode::Kind::Object;
    if (isObject && IsOfBrowse(request) && Asks(request, UA_REFERENCETYPEINDEX_ORGANIZES))
        return Browse(*found, request);
    // A call finds out by itself whether its object exists, and the source of a value, too.
    const bool mayExist =
        IsOfCall(request) || (!isObject && request.attributes == valueAttributes) || Exists(*found);
    return mayExist ? Lend(Make(*found, request)) : nullptr;
}

const UA_Node* ProvidedNodes::GetTarget(UA_NodePointer pointer, const UA_NodeId& id,
                                        const NodeRequest& request)
{
    if (IsUncopyable(id))
        return LendFailingTarget(id);
    if (browsed != nullptr && !browsed->IsThere(pointer))
        return nullptr;
    const auto found = Find(id);
    if (!found)
        return GetInner(id, request);
    // Whoever refers to it says that it exists.
    return IsWhole(request) ? GetWhole(*found) : Lend(Make(*found, request));
}

/// Returns true also if the provider does not answer: what the library asks for comes from the key
/// alone.
bool ProvidedNodes::Exists(const Found& found)
{
    const auto reading = std::make_shared<Reading>(found.source.provider, found.key);
    const bool isAnswered =
        lookUps.Run({found.source.number, found.description.lane},
                    [reading](const LookUps::Sign& /*sign*/) { reading->FindNode(); });
    return !isAnswered || reading->status != UA_STATUSCODE_GOOD || reading->exists;
}

/// A node without all of its entries would be worse than none: a client that browses page by page
/// would take it for the end.
const UA_Node* ProvidedNodes::Browse(const Found& found, const NodeRequest& request)
{
    auto [status, entries] = listings.Get(found.source, found.key, found.description.lane);
    if (status == UA_STATUSCODE_BADNODEIDUNKNOWN)
        return nullptr;
    auto node = Make(found, request);
    if (status == UA_STATUSCODE_GOOD)
        node->ShareEntries(std::move(entries));
    else
        node->Fail(found.source.uaNamespace, status);
    return Lend(std::move(node));
}

/// Returns the node behind the references of one that cannot be browsed. It is of every class, so
/// that the library passes over it for no client.
const UA_Node* ProvidedNodes::LendFailingTarget(const UA_NodeId& id)
{
    constexpr auto everyClass = static_cast<UA_NodeClass>(0xFF);
    auto node = TakeRetired();
    node->Begin(everyClass, id, 0, {}, this);
    return Lend(std::move(node));
}

/// Returns the object of a provider as it is in the inner store, with its provided nodes.
const UA_Node* ProvidedNodes::GetRoot(const NodeSource& source, const NodeRequest& request)
{
    EntryListings::Answer answer;
    if (Asks(request, UA_REFERENCETYPEINDEX_ORGANIZES))
        answer = listings.Get(source, {}, 0);
    const UA_Node* real = GetInner(*source.uaObject, request);
    if (real == nullptr)
        return nullptr;
    auto node = TakeRetired();
    const UA_NodeHead& head = real->head;
    node->Begin(head.nodeClass, head.nodeId, head.browseName.namespaceIndex,
                std::string(OpcUa::BytesOf(head.browseName.name)), this);
    for (std::size_t i = 0; i < head.referencesSize; ++i) {
        std::vector<UA_ReferenceTarget> targets;
        const auto collect = [](void* context, UA_ReferenceTarget* target) -> void* {
            static_cast<std::vector<UA_ReferenceTarget>*>(context)->push_back(*target);
            return nullptr;
        };
        UA_NodeReferenceKind_iterate(&head.references[i], collect, &targets);
        node->AddReferences(head.references[i].referenceTypeIndex, head.references[i].isInverse,
                            targets);
    }
    AddMembers(*node, source, {});
    if (answer.status == UA_STATUSCODE_GOOD)
        node->ShareEntries(std::move(answer.entries));
    else
        node->Fail(source.uaNamespace, answer.status);
    return Lend(std::move(node), real);
}

const UA_Node* ProvidedNodes::GetWhole(const Found& found)
{
    const std::string id = MakeId(found.id);
    const auto known = kept.find(id);
    if (known != kept.end()) {
        ++known->second.users;
        return &known->second.node->Get();
    }
    if (!Exists(found))
        return nullptr;
    auto node = Make(found, {.directions = UA_BROWSEDIRECTION_BOTH});
    node->Finish();
    const UA_Node* whole = &node->Get();
    kept.emplace(id, Kept{std::move(node), 1});
    return whole;
}

std::unique_ptr<MadeNode> ProvidedNodes::Make(const Found& found, const NodeRequest& request)
{
    const ProvidedNode& description = found.description;
    const bool isObject = description.kind == ProvidedNode::Kind::Object;
    auto node = TakeRetired();
    node->Begin(isObject ? UA_NODECLASS_OBJECT : UA_NODECLASS_VARIABLE, found.id,
                namespaces.ToUa(description.browseName.GetNamespaceIndex()),
                EscapeToUtf8(description.browseName.GetName()), this);
    static constexpr UA_NodeId propertyType{0, UA_NODEIDTYPE_NUMERIC, {UA_NS0ID_PROPERTYTYPE}};
    // Asked for or not: the library looks for it in nodes that it has for other reasons.
    node->AddReference(UA_REFERENCETYPEINDEX_HASTYPEDEFINITION, false,
                       isObject ? *GetType(description.type).id : propertyType);
    if (!isObject)
        SetVariable(node->Get().variableNode, description);
    if (AsksInverse(request))
        AddParent(*node, found);
    if (isObject && IsOfBrowse(request)) {
        node->AddReferences(UA_REFERENCETYPEINDEX_HASCOMPONENT, false,
                            GetType(description.type).methods);
        AddMembers(*node, found.source, found.key);
    }
    return node;
}

void ProvidedNodes::SetVariable(UA_VariableNode& node, const ProvidedNode& description) const
{
    // Data types have numbers: there is nothing to free.
    node.dataType = namespaces.ToUa(description.type).Release();
    node.valueRank = UA_VALUERANK_SCALAR;
    node.accessLevel = UA_ACCESSLEVELMASK_READ;
    node.minimumSamplingInterval = samplingInterval;
    node.valueSource = UA_VALUESOURCE_DATASOURCE;
    node.value.dataSource.read = ReadValue;
    node.isDynamic = true;
}

void ProvidedNodes::AddParent(MadeNode& node, const Found& found) const
{
    const std::string& parent = found.description.parent;
    UA_Byte type = UA_REFERENCETYPEINDEX_HASPROPERTY;
    if (found.description.kind == ProvidedNode::Kind::Object) {
        const auto members = found.source.provider->GetMembers(parent);
        const bool isMember = std::find(members.begin(), members.end(), found.key) != members.end();
        type = isMember ? UA_REFERENCETYPEINDEX_HASCOMPONENT : UA_REFERENCETYPEINDEX_ORGANIZES;
    }
    if (parent.empty()) {
        node.AddReference(type, true, *found.source.uaObject, found.source.browseNameHash);
        return;
    }
    auto id = ToIdentifier(parent);
    const auto description = found.source.provider->Describe(parent);
    if (id && description)
        node.AddReference(type, true, node.HoldText(found.source.uaNamespace, std::move(*id)),
                          GetNameHash(description->browseName));
}

UA_UInt32 ProvidedNodes::GetNameHash(const Core::QualifiedName& name) const
{
    const std::string text = EscapeToUtf8(name.GetName());
    return HashOf({namespaces.ToUa(name.GetNamespaceIndex()), ViewOf(text)});
}

void ProvidedNodes::AddMembers(MadeNode& node, const NodeSource& source,
                               const std::string& key) const
{
    for (const std::string& member : source.provider->GetMembers(key)) {
        auto id = ToIdentifier(member);
        const auto description = source.provider->Describe(member);
        if (!id || !description)
            continue;
        const bool isObject = description->kind == ProvidedNode::Kind::Object;
        node.AddReference(isObject ? UA_REFERENCETYPEINDEX_HASCOMPONENT
                                   : UA_REFERENCETYPEINDEX_HASPROPERTY,
                          false, node.HoldText(source.uaNamespace, std::move(*id)),
                          GetNameHash(description->browseName));
    }
}

std::unique_ptr<MadeNode> ProvidedNodes::TakeRetired()
{
    if (retired.size() < mostRetired)
        return std::make_unique<MadeNode>();
    auto node = std::move(retired.front());
    retired.pop_front();
    return node;
}

const UA_Node* ProvidedNodes::Lend(std::unique_ptr<MadeNode> node, const UA_Node* innerNode)
{
    node->Finish();
    if (node->GetEntries() != nullptr)
        browsed = node->GetEntries();
    const UA_Node* made = &node->Get();
    lent.emplace(made, Lent{std::move(node), innerNode});
    return made;
}

bool ProvidedNodes::Release(const UA_Node* node)
{
    if (node == nullptr || node->head.context != this)
        return false;
    const auto found = lent.find(node);
    if (found != lent.end()) {
        auto [made, innerNode] = std::move(found->second);
        lent.erase(found);
        Retire(std::move(made));
        if (innerNode != nullptr)
            inner.releaseNode(inner.context, innerNode);
        return true;
    }
    const auto whole = kept.find(MakeId(node->head.nodeId));
    if (whole == kept.end())
        return true;
    --whole->second.users;
    if (whole->second.users > 0 || node->head.monitoredItems != nullptr)
        return true;
    auto made = std::move(whole->second.node);
    kept.erase(whole);
    Retire(std::move(made));
    return true;
}

void ProvidedNodes::Retire(std::unique_ptr<MadeNode> node)
{
    if (browsed != nullptr && browsed == node->GetEntries())
        browsed = nullptr;
    node->DropReferences();
    try {
        retired.push_back(nullptr);
    } catch (const std::bad_alloc&) {
        static_cast<void>(node.release()); // lost: the library may read it once more
        throw;
    }
    retired.back() = std::move(node);
}

UA_StatusCode ProvidedNodes::ReadValue(UA_Server* /*server*/, const UA_NodeId* /*sessionId*/,
                                       void* /*sessionContext*/, const UA_NodeId* id, void* context,
                                       UA_Boolean /*withTime*/, const UA_NumericRange* range,
                                       UA_DataValue* value) noexcept
{
    try {
        return static_cast<ProvidedNodes*>(context)->Read(*id, range, *value);
    } catch (const std::exception& exception) {
        Log(Core::LogLevel::Error, "Host",
            fmt::format("Cannot read the value of a provided node: {}", exception.what()));
        return UA_STATUSCODE_BADINTERNALERROR;
    }
}

UA_StatusCode ProvidedNodes::Read(const UA_NodeId& id, const UA_NumericRange* range,
                                  UA_DataValue& value)
{
    const auto found = Find(id);
    if (!found)
        return UA_STATUSCODE_BADNODEIDUNKNOWN;
    const auto reading = std::make_shared<Reading>(found->source.provider, found->key);
    if (!lookUps.Run({found->source.number, found->description.lane},
                     [reading](const LookUps::Sign& /*sign*/) { reading->ReadValue(); }))
        return UA_STATUSCODE_BADRESOURCEUNAVAILABLE;
    if (reading->status != UA_STATUSCODE_GOOD)
        return reading->status;
    auto converted = values.ToUa(reading->value, found->description.type);
    if (range != nullptr) {
        const UA_StatusCode status = UA_Variant_copyRange(&*converted, &value.value, *range);
        value.hasValue = status == UA_STATUSCODE_GOOD;
        return status;
    }
    value.value = converted.Release();
    value.hasValue = true;
    return UA_STATUSCODE_GOOD;
}

} // namespace Host
