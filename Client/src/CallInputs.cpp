#include "CallInputs.h"

#include <OpcUa/Ua.h>

#include <open62541/types_generated.h>

namespace Client {

CallInputs::CallInputs(const Request& request)
    : path(OpcUa::ViewOf(request.path))
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): encoding only reads it
    , bytes{request.bytes.size(), const_cast<UA_Byte*>(request.bytes.data())}
{
    for (const Input input : Describe(request.method).inputs)
        Add(request, input);
}

void CallInputs::Add(const Request& request, Input input)
{
    switch (input) {
    case Input::None:
        return;
    case Input::Path:
        return Add(&path, UA_TYPES_STRING);
    case Input::Paths:
        for (const auto& each : request.paths)
            paths.push_back(OpcUa::ViewOf(each));
        UA_Variant_setArray(&inputs.at(count++), paths.data(), paths.size(),
                            &UA_TYPES[UA_TYPES_STRING]);
        return;
    case Input::Handle:
        return Add(&request.handle, UA_TYPES_UINT32);
    case Input::Mode:
        return Add(&request.mode, UA_TYPES_INT32);
    case Input::Bytes:
        return Add(&bytes, UA_TYPES_BYTESTRING);
    case Input::Time:
        return Add(&request.time, UA_TYPES_DATETIME);
    case Input::Permissions:
        return Add(&request.permissions, UA_TYPES_BYTE);
    case Input::IsRecursive:
        return Add(&request.isRecursive, UA_TYPES_BOOLEAN);
    case Input::Length:
        return Add(&request.length, UA_TYPES_UINT32);
    case Input::Position:
        return Add(&request.position, UA_TYPES_UINT64);
    }
}

void CallInputs::Add(const void* data, std::size_t type)
{
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): encoding only reads it
    UA_Variant_setScalar(&inputs.at(count++), const_cast<void*>(data), &UA_TYPES[type]);
}

} // namespace Client
