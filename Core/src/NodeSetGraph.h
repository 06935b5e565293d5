#pragma once

#include "Core/Embedding/InformationModel.h"
#include "Core/NodeId.h"
#include "NodeSetDocument.h"

#include <pugixml.hpp>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace Core::Embedding {

/// The kinds of nodes that the rules for references tell apart.
enum class NodeClass
{
    Unknown,
    ObjectType,
    DataType,
    Method,
    Variable,
    Object,
    PropertyType,
    EncodingType,
    ModellingRule,
};

/// A node that the document describes.
struct NodeElement
{
    NodeId id;
    NodeClass nodeClass = NodeClass::Unknown;
    pugi::xml_node xml;
};

/// The nodes of a document and the references between them and to the types known before.
/// Pointers to nodes are valid as long as the graph lives.
class NodeSetGraph
{
public:
    /// Reads the nodes and their references. Throws InvalidModelException for a node or a reference
    /// that is not allowed, such as a node outside of the given namespaces. The document and the
    /// model outlive the graph.
    NodeSetGraph(const NodeSetDocument& document, const InformationModel& known,
                 const std::unordered_set<int>& ownNamespaces);

    /// Returns the nodes in the order of the document.
    [[nodiscard]] const std::vector<NodeElement>& GetElements() const { return elements; }

    /// Returns null for a node that the document does not describe.
    [[nodiscard]] const NodeElement* Find(const NodeId& id) const;

    [[nodiscard]] NodeClass GetClass(const NodeId& id) const;

    /// Returns the document's nodes to which a node refers, in the order of the document.
    [[nodiscard]] std::vector<const NodeElement*> GetTargets(const NodeId& source,
                                                             const NodeId& referenceType) const;

    /// Returns all identifiers to which a node refers, in the order of the references.
    [[nodiscard]] std::vector<NodeId> GetTargetIds(const NodeId& source,
                                                   const NodeId& referenceType) const;

    /// Return the one node that refers to a node, or to which a node refers. Fail unless there is
    /// exactly one.
    [[nodiscard]] NodeId GetOnlySource(const NodeElement& target,
                                       const NodeId& referenceType) const;
    void RequireOneTarget(const NodeElement& source, const NodeId& referenceType) const;

private:
    struct Link
    {
        NodeId referenceType;
        NodeId other;
    };
    using Links = std::unordered_map<NodeId, std::vector<Link>, HashNodeId>;

    void ReadElements(const std::unordered_set<int>& ownNamespaces);
    void ReadElement(const pugi::xml_node& xml, const std::unordered_set<int>& ownNamespaces);
    void ReadReferences();
    void ReadReference(const NodeElement& element, const pugi::xml_node& xml);
    void CheckReference(const pugi::xml_node& xml, const NodeId& source, const NodeId& type,
                        const NodeId& target) const;
    void CheckOwners() const;
    [[nodiscard]] static std::vector<NodeId> Select(const Links& links, const NodeId& node,
                                                    const NodeId& referenceType);

    const NodeSetDocument& document;
    const InformationModel& known;
    std::vector<NodeElement> elements;
    std::unordered_map<NodeId, std::size_t, HashNodeId> elementIndex;
    Links forward;
    Links inverse;
};

} // namespace Core::Embedding
