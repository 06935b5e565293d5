#pragma once

#include "Core/Embedding/InformationModel.h"
#include "Endpoint/StructureTypes.h"
#include "Endpoint/Ua.h"

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace Host {

/// Checks the inputs of a call against the arguments that its method declares. Immutable; any
/// thread.
class Arguments
{
public:
    Arguments(const Core::Embedding::InformationModel& model, const StructureTypes& types);

    /// Returns the status of a call with these inputs. With Bad_InvalidArgument, `results` has the
    /// status of each input: Bad_TypeMismatch, or Bad_OutOfRange for a number that the declared
    /// type cannot hold and for a text with a NUL, which would end there for the operating system.
    [[nodiscard]] UA_StatusCode
    Check(const std::vector<Core::Embedding::ArgumentDescription>& declared,
          const UA_Variant* inputs, std::size_t count, std::vector<UA_StatusCode>& results) const;

private:
    [[nodiscard]] UA_StatusCode Check(const Core::Embedding::ArgumentDescription& declared,
                                      const UA_Variant& input) const;
    [[nodiscard]] bool IsInRange(const Core::NodeId& dataType, const UA_Variant& input) const;

    const StructureTypes& types;
    /// The smallest value of each enumeration, at most 0.
    std::unordered_map<Core::NodeId, std::int64_t, Core::HashNodeId> enumerations;
};

/// Returns the memory that values take, in bytes: their encoding, and what an array adds to it.
[[nodiscard]] std::size_t Weigh(const UA_Variant* values, std::size_t count);

} // namespace Host
