#include "NodeSetGraph.h"

#include "BaseNodes.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <utility>

namespace Core::Embedding {

namespace {

/// An allowed reference: its type, and the kinds of nodes at its ends.
struct ReferenceRule
{
    NodeId type;
    const char* name;
    NodeClass source;
    NodeClass target;
};

const std::array<ReferenceRule, 12>& GetRules()
{
    using enum NodeClass;
    static const std::array<ReferenceRule, 12> rules{{
        {BaseNodes::hasSubtype, "HasSubtype", ObjectType, ObjectType},
        {BaseNodes::hasSubtype, "HasSubtype", DataType, DataType},
        {BaseNodes::hasProperty, "HasProperty", ObjectType, Variable},
        {BaseNodes::hasProperty, "HasProperty", DataType, Variable},
        {BaseNodes::hasProperty, "HasProperty", Method, Variable},
        {BaseNodes::hasComponent, "HasComponent", ObjectType, Method},
        {BaseNodes::hasEncoding, "HasEncoding", DataType, Object},
        {BaseNodes::generatesEvent, "GeneratesEvent", ObjectType, ObjectType},
        {BaseNodes::hasTypeDefinition, "HasTypeDefinition", Variable, PropertyType},
        {BaseNodes::hasTypeDefinition, "HasTypeDefinition", Object, EncodingType},
        {BaseNodes::hasModellingRule, "HasModellingRule", Method, ModellingRule},
        {BaseNodes::hasModellingRule, "HasModellingRule", Variable, ModellingRule},
    }};
    return rules;
}

/// Returns null for a reference type without rules.
const char* FindName(const NodeId& referenceType)
{
    const auto* const rule = std::ranges::find(GetRules(), referenceType, &ReferenceRule::type);
    return rule == GetRules().end() ? nullptr : rule->name;
}

bool IsAllowed(NodeClass source, const NodeId& referenceType, NodeClass target)
{
    return std::ranges::any_of(GetRules(), [&](const auto& rule) {
        return rule.type == referenceType && rule.source == source && rule.target == target;
    });
}

constexpr std::array<std::pair<std::string_view, NodeClass>, 5> elementClasses{{
    {"UAObjectType", NodeClass::ObjectType},
    {"UADataType", NodeClass::DataType},
    {"UAMethod", NodeClass::Method},
    {"UAVariable", NodeClass::Variable},
    {"UAObject", NodeClass::Object},
}};

constexpr std::array<std::string_view, 5> tableElements{"NamespaceUris", "ServerUris", "Models",
                                                        "Aliases", "Extensions"};

/// Returns the node that a reference extends, which must be one of the document's.
const NodeId& GetChangedEnd(const NodeId& source, const NodeId& type, const NodeId& target)
{
    return type == BaseNodes::hasSubtype ? target : source;
}

} // namespace

NodeSetGraph::NodeSetGraph(const NodeSetDocument& document, const InformationModel& known,
                           const std::unordered_set<int>& ownNamespaces)
    : document(document)
    , known(known)
{
    ReadElements(ownNamespaces);
    ReadReferences();
    CheckOwners();
}

void NodeSetGraph::ReadElements(const std::unordered_set<int>& ownNamespaces)
{
    for (const auto& xml : GetChildren(document.GetRoot()))
        if (std::ranges::find(tableElements, GetLocalName(xml)) == tableElements.end())
            ReadElement(xml, ownNamespaces);
}

void NodeSetGraph::ReadElement(const pugi::xml_node& xml,
                               const std::unordered_set<int>& ownNamespaces)
{
    const auto* const described = std::ranges::find(elementClasses, GetLocalName(xml),
                                                    &std::pair<std::string_view, NodeClass>::first);
    if (described == elementClasses.end())
        document.Fail(xml, fmt::format("a '{}' is not supported: object types, data types and "
                                       "methods can be described, with their properties and "
                                       "encodings",
                                       xml.name()));
    const auto id = document.ParseNodeId(xml, xml.attribute("NodeId").value());
    if (!ownNamespaces.contains(id.GetNamespaceIndex()))
        document.Fail(xml, "the node belongs to none of the models that the file declares");
    if (!elementIndex.emplace(id, elements.size()).second)
        document.Fail(xml, "the node is described twice");
    elements.push_back({id, described->second, xml});
}

void NodeSetGraph::ReadReferences()
{
    for (const auto& element : elements)
        for (const auto& xml : GetChildren(GetChild(element.xml, "References"), "Reference"))
            ReadReference(element, xml);
}

void NodeSetGraph::ReadReference(const NodeElement& element, const pugi::xml_node& xml)
{
    const auto type = document.ParseNodeId(xml, xml.attribute("ReferenceType").value());
    const auto other = document.ParseNodeId(xml, GetText(xml));
    const bool isForward = !xml.attribute("IsForward") || document.ParseFlag(xml, "IsForward");
    const auto& source = isForward ? element.id : other;
    const auto& target = isForward ? other : element.id;
    CheckReference(xml, source, type, target);
    // A reference may stand at either end or at both; it counts once.
    const auto targets = Select(forward, source, type);
    if (std::ranges::find(targets, target) != targets.end())
        return;
    forward[source].push_back({type, target});
    inverse[target].push_back({type, source});
}

void NodeSetGraph::CheckReference(const pugi::xml_node& xml, const NodeId& source,
                                  const NodeId& type, const NodeId& target) const
{
    const char* const name = FindName(type);
    if (name == nullptr)
        document.Fail(xml, fmt::format("references of the type '{}' are not supported",
                                       xml.attribute("ReferenceType").value()));
    const auto sourceClass = GetClass(source);
    const auto targetClass = GetClass(target);
    if (sourceClass == NodeClass::Unknown || targetClass == NodeClass::Unknown)
        document.Fail(xml, fmt::format("the reference {} names '{}', which is not known", name,
                                       GetText(xml)));
    if (!IsAllowed(sourceClass, type, targetClass))
        document.Fail(xml, fmt::format("the reference {} does not fit this node and '{}'", name,
                                       GetText(xml)));
    if (Find(GetChangedEnd(source, type, target)) == nullptr)
        document.Fail(xml, fmt::format("the reference {} would change '{}', which is not "
                                       "described in this file",
                                       name, GetText(xml)));
}

void NodeSetGraph::CheckOwners() const
{
    for (const auto& element : elements) {
        if (element.nodeClass == NodeClass::Method)
            static_cast<void>(GetOnlySource(element, BaseNodes::hasComponent));
        if (element.nodeClass == NodeClass::Variable) {
            static_cast<void>(GetOnlySource(element, BaseNodes::hasProperty));
            RequireOneTarget(element, BaseNodes::hasTypeDefinition);
        }
        if (element.nodeClass == NodeClass::Object) {
            static_cast<void>(GetOnlySource(element, BaseNodes::hasEncoding));
            RequireOneTarget(element, BaseNodes::hasTypeDefinition);
        }
    }
}

const NodeElement* NodeSetGraph::Find(const NodeId& id) const
{
    const auto found = elementIndex.find(id);
    return found == elementIndex.end() ? nullptr : &elements[found->second];
}

NodeClass NodeSetGraph::GetClass(const NodeId& id) const
{
    if (const auto* const element = Find(id))
        return element->nodeClass;
    if (known.IsSubtypeOf(id, BaseTypes::baseObjectType))
        return NodeClass::ObjectType;
    if (known.IsSubtypeOf(id, BaseNodes::baseDataType))
        return NodeClass::DataType;
    if (id == BaseNodes::propertyType)
        return NodeClass::PropertyType;
    if (id == BaseNodes::dataTypeEncodingType)
        return NodeClass::EncodingType;
    if (id == BaseNodes::mandatory || id == BaseNodes::optional)
        return NodeClass::ModellingRule;
    return NodeClass::Unknown;
}

std::vector<const NodeElement*> NodeSetGraph::GetTargets(const NodeId& source,
                                                         const NodeId& referenceType) const
{
    std::vector<const NodeElement*> targets;
    for (const auto& id : Select(forward, source, referenceType))
        if (const auto* const element = Find(id))
            targets.push_back(element);
    std::ranges::sort(targets); // by address within one vector, which is the document's order
    return targets;
}

std::vector<NodeId> NodeSetGraph::GetTargetIds(const NodeId& source,
                                               const NodeId& referenceType) const
{
    return Select(forward, source, referenceType);
}

NodeId NodeSetGraph::GetOnlySource(const NodeElement& target, const NodeId& referenceType) const
{
    const auto sources = Select(inverse, target.id, referenceType);
    if (sources.size() != 1)
        document.Fail(target.xml,
                      fmt::format("the node needs exactly one reference {} to it, it has {}",
                                  FindName(referenceType), sources.size()));
    return sources.front();
}

void NodeSetGraph::RequireOneTarget(const NodeElement& source, const NodeId& referenceType) const
{
    const auto targets = Select(forward, source.id, referenceType);
    if (targets.size() != 1)
        document.Fail(source.xml, fmt::format("the node needs exactly one reference {}, it has {}",
                                              FindName(referenceType), targets.size()));
}

std::vector<NodeId> NodeSetGraph::Select(const Links& links, const NodeId& node,
                                         const NodeId& referenceType)
{
    std::vector<NodeId> others;
    if (const auto found = links.find(node); found != links.end())
        for (const auto& link : found->second)
            if (link.referenceType == referenceType)
                others.push_back(link.other);
    return others;
}

} // namespace Core::Embedding
