#include "Operations.h"
#include "Support/SystemError.h"

#include "Allocations.h"
#include "Core/DateTime.h"
#include "Diagnostics.h"

#include <stdexcept>
#include <sys/stat.h>

namespace Bench {

namespace {

constexpr std::size_t batch = 10'000;

/// Does as little as a task can.
void Work(const std::string& path)
{
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0)
        Support::ThrowSystemError(path);
}

/// Writes a trace line as tasks do when they begin; no log level shows it.
void Trace(const std::string& path, const Core::DateTime& time)
{
    FileSystem::Log({Core::LogLevel::Trace, FileSystem::LogCode::general, __FILE__, "DoWork", 1},
                    [&](std::ostream& text) {
                        text << "Task, file path = " << path
                             << ", set date/time = " << time.ToISO8601String();
                    });
}

} // namespace

Operations MakeTraceOperations(const std::filesystem::path& folder)
{
    const auto path = folder.string();
    Operation trace{.name = "trace-off", .batch = batch, .run = {}};
    trace.prepare = [path] {
        Trace(path, {});
    }; // the first line makes the logger
    trace.run = [path, time = Core::DateTime::Now()](std::size_t count) {
        const std::size_t before = CountAllocations();
        for (std::size_t i = 0; i < count; ++i) {
            Trace(path, time);
            Work(path);
        }
        if (CountAllocations() != before)
            throw std::runtime_error("a disabled trace line allocates");
    };

    Operation reference{.name = "trace-off/reference", .batch = batch, .run = {}};
    reference.run = [path](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i)
            Work(path);
    };
    return {trace, reference};
}

} // namespace Bench
