#pragma once

#include "OpcUa/Descriptor.h"

namespace Client {

using OpcUa::Descriptor;

} // namespace Client
