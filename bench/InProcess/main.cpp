#include "Operations.h"

#include "Support/Memory.h"
#include "Support/TemporaryFolder.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string_view>

// InProcessBench [Google Benchmark's options]
//   measures every operation beside its reference, in rounds and in random order.
// InProcessBench --count FOLDER OPERATION NUMBER
//   does one operation NUMBER times, for tools that count. The caller removes the files that it
//   leaves in the folder.

namespace Bench {

namespace {

constexpr const char* memoryFileSystem = "/dev/shm";

using MakeOperations = Operations (*)(Host& host, const std::filesystem::path& folder);

/// Makes the operations whose names begin with `name`.
struct Group
{
    const char* name;
    MakeOperations make;
};

constexpr Group groups[] = {
    {"exists", MakeExistsOperations},
    {"upload", MakeUploadOperations},
    {"blocks", MakeBlocksOperations},
    {"read", MakeReadOperations},
    {"list", MakeListOperations},
    {"trace",
     [](Host&, const std::filesystem::path& folder) {
         return MakeTraceOperations(folder);
     }},
};

void Measure(benchmark::State& state, const Operation& operation)
{
    const auto batch = static_cast<benchmark::IterationCount>(operation.batch);
    try {
        operation.prepare();
        while (state.KeepRunningBatch(batch)) {
            operation.run(operation.batch);
            state.PauseTiming();
            operation.tidy();
            operation.prepare();
            state.ResumeTiming();
        }
    } catch (const std::exception& exception) {
        state.SkipWithError(exception.what());
    }
    if (operation.bytes != 0)
        state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(operation.bytes));
}

/// Returns the bench's defaults, followed by the caller's options, which take precedence.
std::vector<std::string> MakeArguments(int argc, char** argv)
{
    std::vector<std::string> arguments{"InProcessBench", "--benchmark_repetitions=9",
                                       "--benchmark_enable_random_interleaving=true",
                                       "--benchmark_display_aggregates_only=true"};
    for (int i = 1; i < argc; ++i)
        arguments.emplace_back(argv[i]);
    return arguments;
}

/// Removes the library's suffixes about measuring time from the names.
template <typename Reporter>
class WithPlainNames final : public Reporter
{
public:
    void ReportRuns(const std::vector<benchmark::BenchmarkReporter::Run>& runs) override
    {
        auto renamed = runs;
        for (auto& run : renamed) {
            run.run_name.time_type.clear();
        }
        Reporter::ReportRuns(renamed);
    }
};

bool HasOutputFile(const std::vector<std::string>& arguments)
{
    return std::any_of(arguments.begin(), arguments.end(), [](const std::string& argument) {
        return argument.starts_with("--benchmark_out=");
    });
}

int MeasureAll(std::vector<std::string> texts)
{
    std::vector<char*> arguments(texts.size());
    std::transform(texts.begin(), texts.end(), arguments.begin(),
                   [](std::string& text) { return text.data(); });
    auto count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        return EXIT_FAILURE;

    const Support::TemporaryFolder folder(memoryFileSystem);
    Host host;
    Operations operations;
    for (const auto& group : groups)
        for (auto& operation : group.make(host, folder.MakeFolder(group.name)))
            operations.push_back(std::move(operation));
    for (const auto& operation : operations)
        benchmark::RegisterBenchmark(
            operation.name.c_str(),
            [&operation](benchmark::State& state) { Measure(state, operation); })
            ->UseRealTime()
            ->MeasureProcessCPUTime();
    WithPlainNames<benchmark::ConsoleReporter> table;
    WithPlainNames<benchmark::JSONReporter> file;
    benchmark::RunSpecifiedBenchmarks(&table, HasOutputFile(texts) ? &file : nullptr);
    benchmark::Shutdown();
    return EXIT_SUCCESS;
}

Operation FindOperation(Host& host, const std::filesystem::path& folder, std::string_view name)
{
    for (const auto& group : groups) {
        if (!name.starts_with(group.name))
            continue;
        for (auto& operation : group.make(host, folder))
            if (operation.name == name)
                return std::move(operation);
    }
    throw std::invalid_argument("there is no operation " + std::string(name));
}

int Count(const std::filesystem::path& folder, std::string_view name, std::string_view number)
{
    std::size_t count = 0;
    if (std::from_chars(number.data(), number.data() + number.size(), count).ec != std::errc())
        throw std::invalid_argument("not a number: " + std::string(number));
    Host host;
    const auto operation = FindOperation(host, folder, name);
    operation.prepare();
    for (; count > operation.batch; count -= operation.batch)
        operation.run(operation.batch);
    operation.run(count);
    return EXIT_SUCCESS;
}

} // namespace

} // namespace Bench

int main(int argc, char** argv)
try {
    Support::KeepFreedMemory(); // as talvensor-host does
    if (argc == 5 && std::strcmp(argv[1], "--count") == 0)
        return Bench::Count(argv[2], argv[3], argv[4]);
    return Bench::MeasureAll(Bench::MakeArguments(argc, argv));
} catch (const std::exception& exception) {
    std::cerr << "InProcessBench: " << exception.what() << '\n';
    return EXIT_FAILURE;
}
