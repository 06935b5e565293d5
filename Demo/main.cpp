// Mirrors a directory tree through the methods of a file system in an embedded host, and compares.

#include "FileSystemClient.h"
#include "Interruption.h"
#include "Mirror.h"
#include "Report.h"
#include "SampleTree.h"
#include "SourceTree.h"
#include "Text.h"

#include <Core/Embedding/LogControl.h>
#include <Core/Embedding/Runtime.h>
#include <Core/NamespaceMap.h>
#include <Support/TemporaryFolder.h>

#include <cstddef>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <tuple>

namespace {

namespace fs = std::filesystem;

enum ExitStatus
{
    Same = 0,
    Different = 1,
    NotRun = 2,
    Interrupted = 130,
};

struct Arguments
{
    fs::path module;
    fs::path model;
    std::optional<fs::path> directory; ///< to mirror; empty: a sample tree
};

constexpr const char* usage = "usage: talvensor-demo MODULE MODEL [DIR]\n"
                              "  MODULE  libTalvensor.FileSystem.so\n"
                              "  MODEL   Talvensor.FileSystem.NodeSet2.xml\n"
                              "  DIR     the directory to mirror; default: a sample tree\n";

std::optional<Arguments> ReadArguments(std::span<char*> arguments)
{
    if (arguments.size() < 3 || arguments.size() > 4)
        return std::nullopt;
    Arguments result{arguments[1], arguments[2], std::nullopt};
    if (arguments.size() == 4)
        result.directory = arguments[3];
    return result;
}

Core::NodeId CreateFileSystem(Core::Embedding::Runtime& runtime, const Arguments& arguments)
{
    runtime.LoadInformationModel(arguments.model);
    runtime.LoadModule(arguments.module);
    const auto index = Core::NamespaceMap::GetNamespaceIndex("urn:Talvensor:FileSystem");
    return runtime.CreateObject({.type = {index, 1}, .browseName = {index, "FileSystem"}});
}

fs::path ChooseSource(const Arguments& arguments, const fs::path& workspace)
{
    if (arguments.directory) {
        // Throws the reason if the path cannot be read as a directory.
        std::ignore = fs::directory_iterator(*arguments.directory);
        return fs::absolute(*arguments.directory);
    }
    auto source = workspace / "source";
    Demo::MakeSampleTree(source);
    return source;
}

fs::path GetTarget(const Support::TemporaryFolder& workspace)
{
    return workspace.GetPath() / "mirror";
}

void RunMirror(Demo::Mirror& mirror)
{
    Demo::PrintLine("The source, listed directory by directory:");
    mirror.ListSource();
    Demo::PrintLine("Directories created:");
    mirror.CreateDirectories();
    Demo::PrintLine("Files copied:");
    mirror.CopyFiles();
    mirror.SetDirectoryTimes();
    Demo::PrintLine("The mirror, listed recursively:");
    mirror.ListMirror();
    Demo::PrintLine("Files read back and compared:");
    mirror.CompareFiles();
    Demo::PrintLine("Existence asked:");
    mirror.AskExistence();
    Demo::PrintLine("Half of it deleted:");
    mirror.DeleteHalf();
}

void RequireAllMethods(const Demo::FileSystemClient& fileSystem, Demo::Report& report)
{
    if (fileSystem.GetCallCounts().size() != Demo::methodCount)
        report.Fail("not all methods were called");
}

void PrintSummary(const Demo::FileSystemClient& fileSystem, const Demo::Report& report)
{
    std::string calls;
    std::size_t callCount = 0;
    for (const auto& [method, count] : fileSystem.GetCallCounts()) {
        calls += (calls.empty() ? "" : ", ") + method + ' ' + std::to_string(count);
        callCount += count;
    }
    Demo::PrintLine("Summary:");
    Demo::PrintLine("  directories  " + std::to_string(report.directories));
    Demo::PrintLine("  files        " + std::to_string(report.files));
    Demo::PrintLine("  bytes        " + std::to_string(report.bytes));
    Demo::PrintLine("  deleted      " + std::to_string(report.deleted));
    Demo::PrintLine("  skipped      " + std::to_string(report.skipped));
    Demo::PrintLine("  calls        " + std::to_string(callCount) + " (" + calls + ')');
    Demo::PrintLine("  events       " + std::to_string(fileSystem.GetEventCount()));
    Demo::PrintLine("  failures     " + std::to_string(report.failures));
}

ExitStatus Demonstrate(const Arguments& arguments, const Support::TemporaryFolder& workspace)
{
    Core::Embedding::Runtime runtime;
    const auto object = CreateFileSystem(runtime, arguments);
    const auto root = ChooseSource(arguments, workspace.GetPath());
    const auto target = GetTarget(workspace);
    Demo::PrintLine("Mirroring " + Demo::Quote(root) + " into " + Demo::Quote(target));

    Demo::Report report;
    const auto source = Demo::ReadSourceTree(root, workspace.GetPath(), report);
    Demo::FileSystemClient fileSystem(runtime, object);
    Demo::Mirror mirror(fileSystem, source, target, report);
    RunMirror(mirror);
    if (!arguments.directory)
        RequireAllMethods(fileSystem, report);
    PrintSummary(fileSystem, report);
    return report.failures == 0 ? Same : Different;
}

ExitStatus Run(const Arguments& arguments)
{
    Core::Embedding::LogControl::AddSink(Core::Embedding::MakeConsoleLogSink());
    Demo::CatchSignals();
    Support::TemporaryFolder workspace;
    const auto keep = [&] {
        workspace.Keep();
        Demo::PrintLine("kept: " + Demo::Quote(workspace.GetPath()));
    };
    try {
        const auto status = Demonstrate(arguments, workspace);
        if (status != Same)
            keep();
        return status;
    } catch (const Demo::InterruptedException&) {
        throw;
    } catch (const std::exception&) {
        if (fs::exists(GetTarget(workspace)))
            keep();
        throw;
    }
}

} // namespace

int main(int argc, char** argv)
{
    try {
        const auto arguments = ReadArguments({argv, static_cast<std::size_t>(argc)});
        if (!arguments) {
            std::fputs(usage, stderr);
            return NotRun;
        }
        const auto status = Run(*arguments);
        if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
            return NotRun;
        return status;
    } catch (const Demo::InterruptedException&) {
        return Interrupted;
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "talvensor-demo: %s\n", Demo::Escape(exception.what()).c_str());
        return NotRun;
    }
}
