#pragma once

#include "Core/Embedding/InformationModel.h"
#include "NodeSetDocument.h"
#include "NodeSetGraph.h"

#include <pugixml.hpp>
#include <string>
#include <vector>

namespace Core::Embedding {

/// The shared part of the readers of types: the document, its nodes, the types known so far, and
/// the pieces that several kinds of types have in common. Fails as NodeSetDocument::Fail does.
class NodeSetContents
{
public:
    /// All three outlive this object; the model may grow meanwhile.
    NodeSetContents(const NodeSetDocument& document, const NodeSetGraph& graph,
                    const InformationModel& model);

    [[nodiscard]] const NodeSetDocument& GetDocument() const { return document; }
    [[nodiscard]] const NodeSetGraph& GetGraph() const { return graph; }
    [[nodiscard]] const InformationModel& GetModel() const { return model; }

    /// Returns a description with the common part of all nodes filled in.
    template <typename Description>
    [[nodiscard]] Description Describe(const NodeElement& element) const
    {
        Description description;
        FillIn(element, description);
        return description;
    }

    /// True for a node with this browse name in namespace 0.
    [[nodiscard]] bool IsNamed(const NodeElement& element, const char* name) const;

    /// Returns the identifier of a data type that the model or the document describes.
    [[nodiscard]] NodeId ReadDataTypeId(const pugi::xml_node& where, const std::string& text) const;

    /// Returns -1 for a scalar or an empty text, otherwise the number of dimensions.
    [[nodiscard]] int ReadValueRank(const pugi::xml_node& where, const std::string& text) const;

    /// Returns the element with the contents of a property's value, such as a list.
    [[nodiscard]] pugi::xml_node GetValue(const NodeElement& property, const char* name) const;

    /// Returns the structures in a property's value, all of one type.
    [[nodiscard]] std::vector<pugi::xml_node> GetStructures(const NodeElement& property,
                                                            const NodeId& dataType,
                                                            const NodeId& xmlEncoding,
                                                            const char* name) const;

    /// Returns the extensions of a node that are meant for this host.
    [[nodiscard]] static std::vector<pugi::xml_node> GetExtensions(const NodeElement& element);

private:
    void FillIn(const NodeElement& element, NodeDescription& description) const;

    const NodeSetDocument& document;
    const NodeSetGraph& graph;
    const InformationModel& model;
};

} // namespace Core::Embedding
