#include "Methods.h"

namespace Client {

namespace {

constexpr std::array methods{
    MethodDescription{Method::Open, "Open", {Input::Path, Input::Mode}, Output::Handle},
    MethodDescription{Method::Close, "Close", {Input::Handle}},
    MethodDescription{Method::UploadFile,
                      "UploadFile",
                      {Input::Path, Input::Bytes, Input::Time, Input::Permissions},
                      Output::Handle},
    MethodDescription{Method::OpenWrite, "OpenWrite", {Input::Path, Input::Bytes}, Output::Handle},
    MethodDescription{Method::Write, "Write", {Input::Handle, Input::Bytes}},
    MethodDescription{Method::WriteClose,
                      "WriteClose",
                      {Input::Handle, Input::Bytes, Input::Time, Input::Permissions}},
    MethodDescription{Method::CreateDirectory,
                      "CreateDirectory",
                      {Input::Path},
                      Output::None,
                      Events::CreateDirectory},
    MethodDescription{Method::Delete, "Delete", {Input::Paths}, Output::None, Events::Delete},
    MethodDescription{
        Method::List, "List", {Input::Path, Input::IsRecursive}, Output::None, Events::List},
    MethodDescription{Method::Exists, "Exists", {Input::Path}, Output::None, Events::Exists},
    MethodDescription{Method::Read, "Read", {Input::Handle, Input::Length}, Output::Bytes},
    MethodDescription{Method::GetDateTime, "GetDateTime", {Input::Path}, Output::Time},
    MethodDescription{Method::SetDateTime, "SetDateTime", {Input::Path, Input::Time}},
    MethodDescription{Method::GetPosition, "GetPosition", {Input::Handle}, Output::Position},
    MethodDescription{Method::SetPosition, "SetPosition", {Input::Handle, Input::Position}},
};

/// The numbers follow each other in steps, so that the place in the table follows from them.
constexpr std::uint32_t numberStep = 10;

constexpr std::size_t FindPlace(Method method)
{
    return (static_cast<std::uint32_t>(method) - static_cast<std::uint32_t>(Method::Open)) /
           numberStep;
}

constexpr bool IsInPlace()
{
    for (std::size_t i = 0; i < methods.size(); ++i)
        if (FindPlace(methods.at(i).method) != i)
            return false;
    return true;
}
static_assert(IsInPlace());

} // namespace

const MethodDescription& Describe(Method method) noexcept
{
    return methods[FindPlace(method)];
}

} // namespace Client
