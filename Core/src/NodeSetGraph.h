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

/// What a node is, as far as the rules for references tell nodes apart.
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
    /// Reads the nodes, which must be of the given namespaces, and their references. Throws
    /// InvalidModelException when a node or a reference is not allowed. The document and the model
    /// must outlive the graph.
    NodeSetGraph(const NodeSetDocument& document, const InformationModel& known,
                 const std::unordered_set<int>& ownNamespaces);

    /// In the order of the document.
    [[nodiscard]] const std::vector<NodeElement>& GetElements() const { return elements; }

    /// Null for a node that the document does not describe.
    [[nodiscard]] const NodeElement* Find(const NodeId& id) const;

    [[nodiscard]] NodeClass GetClass(const NodeId& id) const;

    /// The document's nodes that a node refers to, in the order of the document.
    [[nodiscard]] std::vector<const NodeElement*> GetTargets(const NodeId& source,
                                                             const NodeId& referenceType) const;

    /// All identifiers that a node refers to, in the order of the references.
    [[nodiscard]] std::vector<NodeId> GetTargetIds(const NodeId& source,
                                                   const NodeId& referenceType) const;

    /// The one node that refers to a node, or that a node refers to. Fail unless there is exactly
    /// one.
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
