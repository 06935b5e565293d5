#pragma once

#include "Call.h"

#include <open62541/types.h>

#include <array>
#include <cstddef>
#include <span>
#include <vector>

namespace Client {

/// The inputs of a request as the OPC UA library takes them. They refer to the request, which must
/// outlive this and stay unchanged.
class CallInputs
{
public:
    explicit CallInputs(const Request& request);
    CallInputs(const CallInputs&) = delete;
    CallInputs& operator=(const CallInputs&) = delete;

    [[nodiscard]] std::span<UA_Variant> Get() noexcept { return std::span(inputs).first(count); }

private:
    void Add(const Request& request, Input input);
    void Add(const void* data, std::size_t type);

    UA_String path;
    UA_ByteString bytes;
    std::vector<UA_String> paths;
    std::array<UA_Variant, mostInputs> inputs{};
    std::size_t count = 0;
};

} // namespace Client
