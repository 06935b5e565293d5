#pragma once

#include "Diagnostics.h"

#include <cstdint>

namespace FileSystem {

/// The source that log entries and condition checks of the behaviour name. Operators filter by it:
/// it stays the same in whichever source a statement stands.
extern const char behaviourSource[];

/// Throws std::logic_error naming the condition and its published line, unless it holds.
inline void CheckCondition(bool holds, const char* condition, std::int32_t line)
{
    CheckCondition(holds, condition, behaviourSource, line);
}

} // namespace FileSystem
