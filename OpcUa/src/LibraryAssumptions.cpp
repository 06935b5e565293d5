#include "OpcUa/LibraryAssumptions.h"

#include <open62541/types_generated.h>

#include <array>
#include <charconv>
#include <cstddef>
#include <optional>
#include <utility>

namespace OpcUa {
namespace {

struct Version
{
    int major = 0;
    int minor = 0;
    int patch = 0;
};

/// Reads the three numbers that a version begins with.
std::optional<Version> Parse(std::string_view text)
{
    std::array<int, 3> numbers{};
    const char* at = text.data();
    const char* const end = at + text.size();
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (i > 0 && (at == end || *at++ != '.'))
            return std::nullopt;
        const auto [next, error] = std::from_chars(at, end, numbers[i]);
        if (error != std::errc{})
            return std::nullopt;
        at = next;
    }
    return Version{numbers[0], numbers[1], numbers[2]};
}

/// A type of the library as this program was compiled with it.
struct KnownType
{
    std::size_t index;
    std::string_view name;
    std::size_t size;
};

/// The first and the last type of the table, and those whose members this program uses.
constexpr std::array knownTypes{
    KnownType{UA_TYPES_BOOLEAN, "Boolean", sizeof(UA_Boolean)},
    KnownType{UA_TYPES_STRING, "String", sizeof(UA_String)},
    KnownType{UA_TYPES_NODEID, "NodeId", sizeof(UA_NodeId)},
    KnownType{UA_TYPES_EXPANDEDNODEID, "ExpandedNodeId", sizeof(UA_ExpandedNodeId)},
    KnownType{UA_TYPES_QUALIFIEDNAME, "QualifiedName", sizeof(UA_QualifiedName)},
    KnownType{UA_TYPES_LOCALIZEDTEXT, "LocalizedText", sizeof(UA_LocalizedText)},
    KnownType{UA_TYPES_EXTENSIONOBJECT, "ExtensionObject", sizeof(UA_ExtensionObject)},
    KnownType{UA_TYPES_VARIANT, "Variant", sizeof(UA_Variant)},
    KnownType{UA_TYPES_ARGUMENT, "Argument", sizeof(UA_Argument)},
    KnownType{UA_TYPES_ENUMVALUETYPE, "EnumValueType", sizeof(UA_EnumValueType)},
    KnownType{UA_TYPES_ENUMDEFINITION, "EnumDefinition", sizeof(UA_EnumDefinition)},
    KnownType{UA_TYPES_STRUCTUREDEFINITION, "StructureDefinition", sizeof(UA_StructureDefinition)},
    KnownType{UA_TYPES_OBJECTATTRIBUTES, "ObjectAttributes", sizeof(UA_ObjectAttributes)},
    KnownType{UA_TYPES_ANONYMOUSIDENTITYTOKEN, "AnonymousIdentityToken",
              sizeof(UA_AnonymousIdentityToken)},
    KnownType{UA_TYPES_USERNAMEIDENTITYTOKEN, "UserNameIdentityToken",
              sizeof(UA_UserNameIdentityToken)},
    KnownType{UA_TYPES_ENDPOINTDESCRIPTION, "EndpointDescription", sizeof(UA_EndpointDescription)},
    KnownType{UA_TYPES_BUILDINFO, "BuildInfo", sizeof(UA_BuildInfo)},
    KnownType{UA_TYPES_CALLREQUEST, "CallRequest", sizeof(UA_CallRequest)},
    KnownType{UA_TYPES_CALLRESPONSE, "CallResponse", sizeof(UA_CallResponse)},
    KnownType{UA_TYPES_CALLMETHODREQUEST, "CallMethodRequest", sizeof(UA_CallMethodRequest)},
    KnownType{UA_TYPES_CALLMETHODRESULT, "CallMethodResult", sizeof(UA_CallMethodResult)},
    KnownType{UA_TYPES_MONITORINGPARAMETERS, "MonitoringParameters",
              sizeof(UA_MonitoringParameters)},
    KnownType{UA_TYPES_EVENTFILTER, "EventFilter", sizeof(UA_EventFilter)},
    KnownType{UA_TYPES_ELEMENTOPERAND, "ElementOperand", sizeof(UA_ElementOperand)},
    KnownType{UA_TYPES_LITERALOPERAND, "LiteralOperand", sizeof(UA_LiteralOperand)},
    KnownType{UA_TYPES_SUBSCRIPTIONDIAGNOSTICSDATATYPE, "SubscriptionDiagnosticsDataType",
              sizeof(UA_SubscriptionDiagnosticsDataType)},
};

std::string loadedVersion; // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

std::string MakeText(const std::string& assumption, const std::string& consequence)
{
    return "open62541 " + (loadedVersion.empty() ? "of an unknown version" : loadedVersion) +
           " does not fit (" + assumption + "): " + consequence +
           "; install a version that fits, see docs/host.md, \"The OPC UA library\"";
}

} // namespace

LibraryException::LibraryException(std::string name, const std::string& consequence)
    : std::runtime_error(MakeText(name, consequence))
    , assumption(std::move(name))
{}

const std::string& GetLibraryVersion() noexcept
{
    return loadedVersion;
}

void NoteLibraryVersion(std::string version) noexcept
{
    loadedVersion = std::move(version);
}

void RequireVersion(std::string_view version)
{
    constexpr int oldestPatch = 18;
    const auto parsed = Parse(version);
    if (!parsed || parsed->major != 1 || parsed->minor != 4 || parsed->patch < oldestPatch)
        throw LibraryException("its version",
                               "1.4.18 or a newer 1.4 is needed, older ones let a client end the "
                               "server");
}

void RequireTypes(const UA_DataType* types)
{
    for (const KnownType& known : knownTypes) {
        const UA_DataType& type = types[known.index];
        if (type.typeName == nullptr || type.typeName != known.name || type.memSize != known.size)
            throw LibraryException("its types",
                                   std::string(known.name) +
                                       " is not described as this program was compiled for it");
    }
}

} // namespace OpcUa
