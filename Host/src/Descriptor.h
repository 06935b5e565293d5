#pragma once

#include "OpcUa/Descriptor.h"

namespace Host {

using OpcUa::Descriptor;

} // namespace Host
