#pragma once

#include "OpcUa/Text.h"
#include "OpcUa/Ua.h"
#include "OpcUa/UaException.h"

namespace Host {

using OpcUa::BytesOf;
using OpcUa::EscapeToUtf8;
using OpcUa::LocalizedViewOf;
using OpcUa::RequireGood;
using OpcUa::Ua;
using OpcUa::UaException;
using OpcUa::UnescapeFromUtf8;
using OpcUa::ViewOf;

} // namespace Host
