#include "Endpoint/Interposition.h"

#include <dlfcn.h>

#include <atomic>

namespace Host {
namespace {

std::atomic<AdaptParameters> adaptParameters{nullptr};
std::atomic<FindDefinition> findDefinition{nullptr};
std::atomic<std::uint64_t> parameterCopies{0};

/// The status instead of a copy. Identifiers that cannot be copied have its bytes for their text.
UA_StatusCode statusOfUncopyable = UA_STATUSCODE_GOOD;

/// Returns the library's function behind one of this program.
template <typename Function>
Function FindBehind(const char* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

UA_StatusCode AdaptCopied(const void* from)
{
    ++parameterCopies;
    const AdaptParameters adapt = adaptParameters;
    if (adapt == nullptr)
        return UA_STATUSCODE_GOOD;
    // The library checks the copy for a new item, and the original for a changed one. Both come
    // from a decoded request, or from this program, and may be changed.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast)
    return adapt(*static_cast<UA_MonitoringParameters*>(const_cast<void*>(from)));
}

} // namespace

void Interpose(AdaptParameters adapt) noexcept
{
    adaptParameters = adapt;
}

void Interpose(FindDefinition find) noexcept
{
    findDefinition = find;
}

UA_NodeId MakeUncopyable(UA_UInt16 namespaceIndex, UA_StatusCode status) noexcept
{
    statusOfUncopyable = status;
    UA_NodeId id{namespaceIndex, UA_NODEIDTYPE_STRING, {}};
    id.identifier.string = {sizeof(statusOfUncopyable),
                            reinterpret_cast<UA_Byte*>(&statusOfUncopyable)};
    return id;
}

bool IsUncopyable(const UA_NodeId& id) noexcept
{
    return id.identifierType == UA_NODEIDTYPE_STRING &&
           id.identifier.string.data == reinterpret_cast<UA_Byte*>(&statusOfUncopyable);
}

std::uint64_t CountParameterCopies() noexcept
{
    return parameterCopies;
}

} // namespace Host

/// Stands in for the library's function. Any thread.
extern "C" UA_StatusCode UA_copy(const void* from, void* to, const UA_DataType* type)
{
    using Function = UA_StatusCode (*)(const void*, void*, const UA_DataType*);
    static const auto copy = Host::FindBehind<Function>("UA_copy");
    if (type == &UA_TYPES[UA_TYPES_MONITORINGPARAMETERS]) {
        const UA_StatusCode status = Host::AdaptCopied(from);
        if (status != UA_STATUSCODE_GOOD) {
            UA_init(to, type); // the library clears it
            return status;
        }
    }
    if (type == &UA_TYPES[UA_TYPES_EXPANDEDNODEID] &&
        Host::IsUncopyable(static_cast<const UA_ExpandedNodeId*>(from)->nodeId)) {
        UA_init(to, type);
        return Host::statusOfUncopyable;
    }
    return copy(from, to, type);
}

/// Stands in for the library's function. Any thread.
extern "C" UA_StatusCode UA_Variant_setScalarCopy(UA_Variant* variant, const void* value,
                                                  const UA_DataType* type)
{
    using Function = UA_StatusCode (*)(UA_Variant*, const void*, const UA_DataType*);
    static const auto copy = Host::FindBehind<Function>("UA_Variant_setScalarCopy");
    const Host::FindDefinition find = Host::findDefinition;
    if (type == &UA_TYPES[UA_TYPES_STRUCTUREDEFINITION] && find != nullptr) {
        const auto& made = *static_cast<const UA_StructureDefinition*>(value);
        if (const UA_Variant* definition = find(made))
            return UA_Variant_copy(definition, variant);
    }
    return copy(variant, value, type);
}
