#pragma once

#include "AddressSpace.h"
#include "Core/Embedding/InformationModel.h"

#include <cstddef>
#include <vector>

namespace Core {

/// How many types of a model have nodes already.
struct ModelExtent
{
    std::size_t objectTypes = 0;
    std::size_t dataTypes = 0;
};

[[nodiscard]] ModelExtent GetExtent(const Embedding::InformationModel& model);

/// Nodes with the references between them and to nodes that are there.
struct NodesToAdd
{
    AddressSpace::Nodes nodes;
    std::vector<Reference> references;
};

/// The nodes of the types of a model that come after `known`, and of their methods.
[[nodiscard]] NodesToAdd MakeModelNodes(const Embedding::InformationModel& model,
                                        const ModelExtent& known,
                                        const NodeEnvironment& environment);

} // namespace Core
