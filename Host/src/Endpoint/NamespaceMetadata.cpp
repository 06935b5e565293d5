#include "Endpoint/NamespaceMetadata.h"

#include "Core/NamespaceMap.h"
#include "Endpoint/ServerFacts.h"
#include "Endpoint/Ua.h"

#include <array>
#include <ctime>
#include <string>

namespace Host {
namespace {

using Core::Embedding::ModelDescription;

/// Adds the object of one model, with identifiers made of the model's URI.
class MetadataObject
{
public:
    MetadataObject(UA_Server& server, const Namespaces& namespaces, const ModelDescription& model)
        : server(server)
        , base("Namespaces/" + model.uri)
        , ownNamespace(namespaces.ToUa(Core::NamespaceMap::Register(hostUri)))
    {
        UA_ObjectAttributes attributes = UA_ObjectAttributes_default;
        attributes.displayName = LocalizedViewOf(model.uri);
        const UA_UInt16 index = namespaces.ToUa(Core::NamespaceMap::Register(model.uri));
        RequireGood(UA_Server_addNode_begin(
                        &server, UA_NODECLASS_OBJECT, IdOf(base),
                        UA_NODEID_NUMERIC(0, UA_NS0ID_SERVER_NAMESPACES),
                        UA_NODEID_NUMERIC(0, UA_NS0ID_HASCOMPONENT), {index, ViewOf(model.uri)},
                        UA_NODEID_NUMERIC(0, UA_NS0ID_NAMESPACEMETADATATYPE), &attributes,
                        &UA_TYPES[UA_TYPES_OBJECTATTRIBUTES], nullptr, nullptr),
                    "adding the metadata of " + model.uri);
    }

    void Add(const char* name, const void* value, UA_UInt32 typeIndex)
    {
        UA_Variant variant;
        UA_Variant_init(&variant);
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the server copies it
        UA_Variant_setScalar(&variant, const_cast<void*>(value), &UA_TYPES[typeIndex]);
        Add(name, variant, UA_TYPES[typeIndex].typeId, UA_VALUERANK_SCALAR);
    }

    void Add(const char* name, const UA_Variant& value, const UA_NodeId& dataType, UA_Int32 rank)
    {
        const std::string id = base + "/" + name;
        UA_VariableAttributes attributes = UA_VariableAttributes_default;
        attributes.displayName = LocalizedViewOf(name);
        attributes.dataType = dataType;
        attributes.valueRank = rank;
        attributes.accessLevel = UA_ACCESSLEVELMASK_READ;
        attributes.value = value;
        UA_UInt32 anyLength = 0;
        if (rank == UA_VALUERANK_ONE_DIMENSION) {
            attributes.arrayDimensionsSize = 1;
            attributes.arrayDimensions = &anyLength;
        }
        RequireGood(UA_Server_addVariableNode(
                        &server, IdOf(id), IdOf(base), UA_NODEID_NUMERIC(0, UA_NS0ID_HASPROPERTY),
                        {0, ViewOf(name)}, UA_NODEID_NUMERIC(0, UA_NS0ID_PROPERTYTYPE), attributes,
                        nullptr, nullptr),
                    "adding " + id);
    }

    void Finish() { RequireGood(UA_Server_addNode_finish(&server, IdOf(base)), "adding " + base); }

private:
    /// Returns a view of the text.
    [[nodiscard]] UA_NodeId IdOf(const std::string& text) const
    {
        UA_NodeId id{ownNamespace, UA_NODEIDTYPE_STRING, {}};
        id.identifier.string = ViewOf(text);
        return id;
    }

    UA_Server& server;
    const std::string base;
    const UA_UInt16 ownNamespace;
};

/// Returns an empty time for a text that is none.
UA_DateTime ParseDate(const std::string& text)
{
    std::tm parsed{};
    if (strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &parsed) == nullptr)
        return 0;
    return UA_DateTime_fromUnixTime(timegm(&parsed));
}

/// Describes a model all of whose nodes are in every host, under their numbers.
void Describe(MetadataObject& object, const ModelDescription& model)
{
    const UA_String uri = ViewOf(model.uri);
    const UA_String version = ViewOf(model.version);
    const UA_DateTime date = ParseDate(model.publicationDate);
    const UA_Boolean isSubset = false;
    object.Add("NamespaceUri", &uri, UA_TYPES_STRING);
    object.Add("NamespaceVersion", &version, UA_TYPES_STRING);
    object.Add("NamespacePublicationDate", &date, UA_TYPES_DATETIME);
    object.Add("IsNamespaceSubset", &isSubset, UA_TYPES_BOOLEAN);
    std::array<UA_Int32, 1> numeric{UA_IDTYPE_NUMERIC};
    UA_Variant types;
    UA_Variant_setArray(&types, numeric.data(), numeric.size(), &UA_TYPES[UA_TYPES_INT32]);
    object.Add("StaticNodeIdTypes", types, UA_TYPES[UA_TYPES_IDTYPE].typeId,
               UA_VALUERANK_ONE_DIMENSION);
    UA_Variant ranges;
    UA_Variant_setArray(&ranges, nullptr, 0, &UA_TYPES[UA_TYPES_STRING]);
    object.Add("StaticNumericNodeIdRange", ranges, UA_NODEID_NUMERIC(0, UA_NS0ID_NUMERICRANGE),
               UA_VALUERANK_ONE_DIMENSION);
    const UA_String noPattern = ViewOf("");
    object.Add("StaticStringNodeIdPattern", &noPattern, UA_TYPES_STRING);
}

} // namespace

void AddNamespaceMetadata(UA_Server& server, const Core::Embedding::InformationModel& model,
                          const Namespaces& namespaces)
{
    for (const auto& each : model.GetModels()) {
        MetadataObject object(server, namespaces, each);
        Describe(object, each);
        object.Finish();
    }
}

} // namespace Host
