#pragma once

#include "AddressSpace.h"
#include "Core/Embedding/InformationModel.h"

#include <cstddef>
#include <vector>

namespace Core {

/// The numbers of types of a model that have nodes already.
struct ModelExtent
{
    std::size_t objectTypes = 0;
    std::size_t dataTypes = 0;
};

[[nodiscard]] ModelExtent GetExtent(const Embedding::InformationModel& model);

/// Nodes with the references between them and to existing nodes.
struct NodesToAdd
{
    AddressSpace::Nodes nodes;
    std::vector<Reference> references;
};

/// Makes the nodes of the types of a model that come after `known`, and of their methods.
[[nodiscard]] NodesToAdd MakeModelNodes(const Embedding::InformationModel& model,
                                        const ModelExtent& known,
                                        const NodeEnvironment& environment);

} // namespace Core
