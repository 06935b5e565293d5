#include "ObjectCall.h"

#include "ServerFacts.h"

#include <OpcUa/Text.h>

#include <new>
#include <utility>

namespace Client {

namespace {

/// The one object that has these methods, by its number in the standard's namespace.
constexpr UA_UInt32 fileSystemObject = 16314;

const char* GetName(ObjectMethod method) noexcept
{
    switch (method) {
    case ObjectMethod::GetStates:
        return "GetStates";
    case ObjectMethod::ListPath:
        return "ListPath";
    case ObjectMethod::MovePaths:
        return "MovePaths";
    case ObjectMethod::CopyPath:
        return "CopyPath";
    case ObjectMethod::GetPathSpace:
        return "GetPathSpace";
    case ObjectMethod::GetPathChecksum:
        return "GetPathChecksum";
    case ObjectMethod::SetPathPermissions:
        return "SetPathPermissions";
    }
    return "";
}

/// Returns the server's words for a refusal: it has no other place for them than the diagnostic
/// information of an input.
std::string FindReason(const UA_CallMethodResult& result)
{
    for (std::size_t i = 0; i < result.inputArgumentDiagnosticInfosSize; ++i)
        if (const auto& information = result.inputArgumentDiagnosticInfos[i];
            information.hasAdditionalInfo)
            return ToBytes(information.additionalInfo);
    return {};
}

void Require(UA_StatusCode status)
{
    if (status != UA_STATUSCODE_GOOD)
        throw std::bad_alloc();
}

} // namespace

std::string ToBytes(const UA_String& text)
{
    return OpcUa::UnescapeFromUtf8(OpcUa::BytesOf(text));
}

ObjectCall::ObjectCall(ObjectMethod method, std::string path, std::shared_ptr<Waiter> waiter)
    : method(method)
    , path(std::move(path))
    , waiter(std::move(waiter))
{}

UA_Variant& ObjectCall::AddInput()
{
    return *inputs.emplace_back();
}

void ObjectCall::AddScalar(const void* value, std::size_t type)
{
    Require(UA_Variant_setScalarCopy(&AddInput(), value, &UA_TYPES[type]));
}

void ObjectCall::AddPath(const std::string& given)
{
    const std::string escaped = OpcUa::EscapeToUtf8(given);
    const UA_String view = OpcUa::ViewOf(escaped);
    AddScalar(&view, UA_TYPES_STRING);
}

void ObjectCall::AddPaths(std::span<const std::string> paths)
{
    std::vector<std::string> escaped;
    std::vector<UA_String> views;
    escaped.reserve(paths.size()); // the views stay valid
    for (const auto& each : paths)
        views.push_back(OpcUa::ViewOf(escaped.emplace_back(OpcUa::EscapeToUtf8(each))));
    Require(UA_Variant_setArrayCopy(&AddInput(), views.data(), views.size(),
                                    &UA_TYPES[UA_TYPES_STRING]));
}

void ObjectCall::Add(bool value)
{
    AddScalar(&value, UA_TYPES_BOOLEAN);
}

void ObjectCall::Add(std::uint32_t value)
{
    AddScalar(&value, UA_TYPES_UINT32);
}

void ObjectCall::Add(std::uint64_t value)
{
    AddScalar(&value, UA_TYPES_UINT64);
}

void ObjectCall::Add(std::span<const std::uint32_t> values)
{
    Require(UA_Variant_setArrayCopy(&AddInput(), values.data(), values.size(),
                                    &UA_TYPES[UA_TYPES_UINT32]));
}

bool ObjectCall::Send(const Namespaces& namespaces, const Encode& encode)
{
    static_assert(sizeof(OpcUa::Ua<UA_Variant>) == sizeof(UA_Variant));
    UA_CallMethodRequest request{};
    request.objectId = UA_NODEID_NUMERIC(0, fileSystemObject);
    request.methodId = UA_NODEID_NUMERIC(namespaces.objects, static_cast<UA_UInt32>(method));
    request.inputArguments = reinterpret_cast<UA_Variant*>(inputs.data());
    request.inputArgumentsSize = inputs.size();
    encode(request);
    return true;
}

void ObjectCall::TakeAnswer(UA_StatusCode given, UA_CallMethodResult* result)
{
    status = given;
    if (result != nullptr && status != UA_STATUSCODE_GOOD)
        reason = FindReason(*result);
    for (std::size_t i = 0; result != nullptr && i < result->outputArgumentsSize; ++i)
        outputs.emplace_back(std::exchange(result->outputArguments[i], UA_Variant{}));
    isAnswered = true;
    waiter->Notify();
}

void ObjectCall::Lose(bool isLate) noexcept
{
    isOverdue = isLate;
    isLost = true;
    isAnswered = true;
    waiter->Notify();
}

std::string ObjectCall::Describe() const
{
    return std::string(GetName(method)) + " of '" + path + "'";
}

bool ObjectCall::MayTakeLong() const noexcept
{
    return method == ObjectMethod::MovePaths || method == ObjectMethod::CopyPath ||
           method == ObjectMethod::GetPathChecksum;
}

const UA_Variant& ObjectCall::Get(std::size_t index, std::size_t type, bool isArray) const
{
    if (index < outputs.size()) {
        const UA_Variant& output = *outputs[index];
        if (isArray ? UA_Variant_hasArrayType(&output, &UA_TYPES[type])
                    : UA_Variant_hasScalarType(&output, &UA_TYPES[type]))
            return output;
    }
    throw CallRefusedException("the server gave an unexpected answer to " + Describe(),
                               UA_STATUSCODE_BADUNEXPECTEDERROR);
}

} // namespace Client
