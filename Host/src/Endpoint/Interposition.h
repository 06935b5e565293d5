#pragma once

#include <open62541/types.h>
#include <open62541/types_generated.h>

#include <cstdint>

namespace Host {

// The functions of the library that this program defines itself. The library calls its exported
// functions through the dynamic linker, which prefers a program's function to a shared library's of
// the same name. Interposition.cpp defines UA_copy and UA_Variant_setScalarCopy;
// Users/RandomNumbers.cpp defines UA_Guid_random and UA_UInt32_random. LibraryAssumptions.h checks
// that the library's calls arrive here.

/// Called with the parameters of each monitored item that is made or changed, before the library
/// checks them. A status other than good refuses the item.
using AdaptParameters = UA_StatusCode (*)(UA_MonitoringParameters&) noexcept;

/// Returns the definition to serve instead of one that the library has made; null for none.
using FindDefinition = const UA_Variant* (*)(const UA_StructureDefinition&) noexcept;

/// Sets what is called from now on; null: nothing. Any thread.
void Interpose(AdaptParameters adapt) noexcept;
void Interpose(FindDefinition find) noexcept;

/// Returns an identifier that the library cannot copy: it gets `status` instead. A Browse that
/// meets it ends with this status. Its text tells it from every other one, so that nobody can make
/// it. Valid until the next one is made. Loop thread.
[[nodiscard]] UA_NodeId MakeUncopyable(UA_UInt16 namespaceIndex, UA_StatusCode status) noexcept;
/// True for an identifier made so, also for a view of it. Any thread.
[[nodiscard]] bool IsUncopyable(const UA_NodeId& id) noexcept;

/// Returns how often the library has copied the parameters of a monitored item so far. Any thread.
[[nodiscard]] std::uint64_t CountParameterCopies() noexcept;

} // namespace Host
