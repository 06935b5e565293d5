#pragma once

#include "Core/Embedding/InformationModel.h"

namespace Core::Embedding {

/// Returns the description of a node of namespace 0, with its common part filled in.
template <typename Description>
Description MakeBase(unsigned int id, const char* name)
{
    Description description;
    description.id = NodeId(0, id);
    description.browseName = QualifiedName(0, name);
    description.displayName = name;
    return description;
}

} // namespace Core::Embedding
