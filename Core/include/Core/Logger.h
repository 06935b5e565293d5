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

    /// True if the logger would keep an entry of that level and category: ask before building one.
    /// Costs no allocation, and no lock for a level that is off for every category.
    [[nodiscard]] bool IsEnabledForEntry(LogLevel level, const char* category) const;

    /// Hands the entry to every sink before it returns; drops an entry that is not enabled. A sink
    /// that throws loses the entry; the other sinks get it, and the exception does not pass.
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
