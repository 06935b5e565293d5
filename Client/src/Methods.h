#pragma once

#include <array>
#include <cstdint>

namespace Client {

/// The methods by their published numbers.
enum class Method : std::uint32_t
{
    Open = 1010,
    Close = 1020,
    UploadFile = 1030,
    OpenWrite = 1040,
    Write = 1050,
    WriteClose = 1060,
    CreateDirectory = 1070,
    Delete = 1080,
    List = 1090,
    Exists = 1100,
    Read = 1110,
    GetDateTime = 1120,
    SetDateTime = 1130,
    GetPosition = 1140,
    SetPosition = 1150,
};

/// The inputs of methods. Each is the member of `Request` of that name.
enum class Input : std::uint8_t
{
    None,
    Path,
    Paths,
    Handle,
    Mode,
    Bytes,
    Time,
    Permissions,
    IsRecursive,
    Length,
    Position,
};

enum class Output : std::uint8_t
{
    None,
    Handle, ///< of a file that the call opens
    Bytes,
    Time,
    Position,
};

/// The events that answer a call, beside its answer.
enum class Events : std::uint8_t
{
    None,
    Exists,
    List,
    Delete,
    CreateDirectory,
};

constexpr std::size_t mostInputs = 4;

/// Everything that the library knows about a method.
struct MethodDescription
{
    Method method{};
    const char* name = nullptr;
    std::array<Input, mostInputs> inputs{}; ///< in the order of the wire, then None
    Output output = Output::None;
    Events events = Events::None;

    [[nodiscard]] bool Opens() const noexcept { return output == Output::Handle; }
};

[[nodiscard]] const MethodDescription& Describe(Method method) noexcept;

} // namespace Client
