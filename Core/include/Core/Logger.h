#pragma once

#include "Core/Export.h"
#include "Core/LogEntry.h"

#include <memory>

namespace Core {

namespace Embedding {
class LogControl;
}

/// The process-wide logger. All operations may be called from any thread. Levels and sinks are
/// switched through `Core/Embedding/LogControl.h`.
class CORE_API Logger
{
public:
    [[nodiscard]] static Logger& Instance();

    /// True if an entry of that level and category would be kept: ask before building one. Costs no
    /// allocation, and no lock where the level is off for every category.
    [[nodiscard]] bool IsEnabledForEntry(LogLevel level, const char* category) const;

    /// Hands the entry to every sink, before it returns; an entry that is not enabled is dropped.
    /// A sink that throws loses the entry; the others get it, and the caller does not notice.
    void AppendEntry(LogEntry entry);

    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

private:
    friend class Embedding::LogControl;
    struct State;

    Logger();
    ~Logger();

    std::unique_ptr<State> state;
};

} // namespace Core
