#include "NodeSetContents.h"

#include <fmt/format.h>
#include <string_view>

namespace Core::Embedding {

namespace {

constexpr std::string_view extensionNamespace = "urn:Talvensor:Core:Model";

} // namespace

NodeSetContents::NodeSetContents(const NodeSetDocument& document, const NodeSetGraph& graph,
                                 const InformationModel& model)
    : document(document)
    , graph(graph)
    , model(model)
{}

void NodeSetContents::FillIn(const NodeElement& element, NodeDescription& description) const
{
    description.id = element.id;
    description.browseName =
        document.ParseQualifiedName(element.xml, element.xml.attribute("BrowseName").value());
    description.displayName = GetText(GetChild(element.xml, "DisplayName"));
    if (description.displayName.empty())
        description.displayName = description.browseName.GetName();
    description.description = GetText(GetChild(element.xml, "Description"));
}

bool NodeSetContents::IsNamed(const NodeElement& element, const char* name) const
{
    return document.ParseQualifiedName(element.xml, element.xml.attribute("BrowseName").value()) ==
           QualifiedName(0, name);
}

NodeId NodeSetContents::ReadDataTypeId(const pugi::xml_node& where, const std::string& text) const
{
    auto id = document.ParseNodeId(where, text);
    if (graph.GetClass(id) != NodeClass::DataType)
        document.Fail(where, fmt::format("the data type '{}' is not known", text));
    return id;
}

int NodeSetContents::ReadValueRank(const pugi::xml_node& where, const std::string& text) const
{
    if (text.empty())
        return -1;
    const int rank = document.ParseNumber<int>(where, text, "the value rank");
    if (rank != -1 && rank < 1)
        document.Fail(where, fmt::format("the value rank {} is not supported: it can be -1 or the "
                                         "number of dimensions",
                                         rank));
    return rank;
}

pugi::xml_node NodeSetContents::GetValue(const NodeElement& property, const char* name) const
{
    auto content = GetChild(GetChild(property.xml, "Value"), name);
    if (!content)
        document.Fail(property.xml, fmt::format("the value is no '{}'", name));
    return content;
}

std::vector<pugi::xml_node> NodeSetContents::GetStructures(const NodeElement& property,
                                                           const NodeId& dataType,
                                                           const NodeId& xmlEncoding,
                                                           const char* name) const
{
    std::vector<pugi::xml_node> structures;
    for (const auto& object : GetChildren(GetValue(property, "ListOfExtensionObject"))) {
        const auto typeText = GetText(GetChild(GetChild(object, "TypeId"), "Identifier"));
        const auto type = document.ParseNodeId(object, typeText);
        const auto structure = GetChild(GetChild(object, "Body"), name);
        if ((type != dataType && type != xmlEncoding) || !structure)
            document.Fail(object, fmt::format("an element of the value is no '{}' but of type '{}'",
                                              name, typeText));
        structures.push_back(structure);
    }
    return structures;
}

std::vector<pugi::xml_node> NodeSetContents::GetExtensions(const NodeElement& element)
{
    std::vector<pugi::xml_node> own;
    for (const auto& extension : GetChildren(GetChild(element.xml, "Extensions"), "Extension"))
        for (const auto& content : GetChildren(extension))
            if (GetXmlNamespace(content) == extensionNamespace)
                own.push_back(content);
    return own;
}

} // namespace Core::Embedding
