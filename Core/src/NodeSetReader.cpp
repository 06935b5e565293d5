#include "NodeSetReader.h"

#include "BaseNodes.h"
#include "Core/NamespaceMap.h"
#include "DataTypeReader.h"
#include "ObjectTypeReader.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

namespace Core::Embedding {

namespace {

bool Contains(const std::vector<ModelDescription>& models, const std::string& uri)
{
    return std::ranges::find(models, uri, &ModelDescription::uri) != models.end();
}

} // namespace

NodeSetReader::NodeSetReader(const std::filesystem::path& file, InformationModel& model)
    : model(model)
    , document(file)
{}

void NodeSetReader::Read()
{
    ReadModels();
    document.ReadTables();
    const NodeSetGraph graph(document, model, GetOwnNamespaces());
    const NodeSetContents contents(document, graph, model);
    for (const auto& element : graph.GetElements())
        if (element.nodeClass == NodeClass::ObjectType || element.nodeClass == NodeClass::DataType)
            AddType(contents, element);
    CheckExtensions(graph);
    CheckGeneratedEvents(graph);
    model.models.insert(model.models.end(), ownModels.begin(), ownModels.end());
}

void NodeSetReader::ReadModels()
{
    const auto declarations = GetChildren(GetChild(document.GetRoot(), "Models"), "Model");
    if (declarations.empty())
        document.Fail(document.GetRoot(), "the file declares no model");
    for (const auto& declaration : declarations)
        ownModels.push_back(ReadModel(declaration));
    for (const auto& declaration : declarations)
        CheckRequiredModels(declaration);
}

ModelDescription NodeSetReader::ReadModel(const pugi::xml_node& declaration) const
{
    std::string uri = declaration.attribute("ModelUri").value();
    if (uri.empty())
        document.Fail(declaration, "a model has no URI");
    if (IsKnown(uri))
        document.Fail(declaration, fmt::format("the model '{}' is there already", uri));
    return {std::move(uri), declaration.attribute("Version").value(),
            declaration.attribute("PublicationDate").value()};
}

/// True for a loaded model, and for the base model and the host's own, which need no file.
bool NodeSetReader::IsKnown(const std::string& modelUri) const
{
    return modelUri == NamespaceMap::baseUri || modelUri == NamespaceMap::hostUri ||
           Contains(model.models, modelUri) || Contains(ownModels, modelUri);
}

void NodeSetReader::CheckRequiredModels(const pugi::xml_node& declaration) const
{
    for (const auto& required : GetChildren(declaration, "RequiredModel")) {
        const std::string uri = required.attribute("ModelUri").value();
        if (!IsKnown(uri))
            document.Fail(required,
                          fmt::format("the model requires '{}', which is not loaded", uri));
    }
}

std::unordered_set<int> NodeSetReader::GetOwnNamespaces() const
{
    std::unordered_set<int> namespaces;
    for (const auto& own : ownModels)
        namespaces.insert(NamespaceMap::Register(own.uri));
    return namespaces;
}

void NodeSetReader::AddType(const NodeSetContents& contents, const NodeElement& element)
{
    const bool isObjectType = element.nodeClass == NodeClass::ObjectType;
    if (isObjectType ? model.objectTypeIndex.contains(element.id)
                     : model.dataTypeIndex.contains(element.id))
        return;
    if (!begunTypes.insert(element.id).second)
        document.Fail(element.xml, "the type is its own supertype");
    const auto superType = contents.GetGraph().GetOnlySource(element, BaseNodes::hasSubtype);
    if (const auto* const own = contents.GetGraph().Find(superType))
        AddType(contents, *own);
    if (isObjectType)
        model.Add(ObjectTypeReader(contents).Read(element, superType));
    else
        model.Add(DataTypeReader(contents).Read(element, superType));
}

/// Object types check theirs themselves.
bool NodeSetReader::IsExtensionOf(NodeClass nodeClass, std::string_view name)
{
    if (nodeClass == NodeClass::Variable)
        return name == "Outcome" || name == "Handle";
    return nodeClass == NodeClass::Method && name == "Change";
}

void NodeSetReader::CheckExtensions(const NodeSetGraph& graph) const
{
    for (const auto& element : graph.GetElements()) {
        if (element.nodeClass == NodeClass::ObjectType)
            continue;
        for (const auto& extension : NodeSetContents::GetExtensions(element))
            if (!IsExtensionOf(element.nodeClass, GetLocalName(extension)))
                document.Fail(extension, fmt::format("the extension '{}' is for other nodes",
                                                     extension.name()));
    }
}

void NodeSetReader::CheckGeneratedEvents(const NodeSetGraph& graph) const
{
    for (const auto& element : graph.GetElements())
        for (const auto& generated : graph.GetTargetIds(element.id, BaseNodes::generatesEvent))
            if (!model.IsSubtypeOf(generated, BaseTypes::baseEventType))
                document.Fail(element.xml, fmt::format("the type generates '{}', which is no event "
                                                       "type",
                                                       generated.ToString()));
}

} // namespace Core::Embedding
