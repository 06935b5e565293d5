#include "Core/Objects.h"

namespace Core::Objects {

const NodeId& ObjectsFolder()
{
    static const NodeId id(0, 85);
    return id;
}

const NodeId& SessionsFolder()
{
    static const NodeId id(1, 1);
    return id;
}

} // namespace Core::Objects
