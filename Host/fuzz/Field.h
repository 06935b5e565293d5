#pragma once

#include "Figures.h"
#include "Journal.h"
#include "Mutator.h"
#include "Pool.h"
#include "Random.h"
#include "Requests.h"
#include "User.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace Fuzz {

/// The data that all hostile clients of a run share.
struct Field
{
    Field(std::uint64_t seed, std::string hostUrl, std::uint16_t hostPort,
          std::optional<User> hostUser, std::uint16_t fileMethods)
        : url(std::move(hostUrl))
        , port(hostPort)
        , user(std::move(hostUser))
        , random(seed)
        , mutator(random, pool)
        , requests(random, pool, mutator, fileMethods)
    {}
    Field(const Field&) = delete;
    Field& operator=(const Field&) = delete;

    const std::string url;
    const std::uint16_t port;
    const std::optional<User> user; ///< none: anybody may log in
    Random random;
    Pool pool;
    Mutator mutator;
    Requests requests;
    Figures figures;
    Journal journal;
};

/// Learns names for later requests from an answer: numbers, nodes, continuation points. Counts its
/// status.
void Learn(Field& field, Value& response);

} // namespace Fuzz
