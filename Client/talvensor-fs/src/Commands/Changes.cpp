#include "Commands/Changes.h"

namespace Cli {

Changes::Changes(const Workplace& workplace)
    : workplace(workplace)
    , output(workplace)
{}

void Changes::AddDone(const std::string& path, const std::optional<std::string>& target)
{
    Write({.path = path, .target = target, .reason = std::nullopt});
}

void Changes::AddFailed(const std::string& path, const std::string& reason,
                        const std::optional<std::string>& target)
{
    workplace.console.Report(reason);
    status = ExitStatus::Failed;
    Write({.path = path, .target = target, .reason = reason});
}

void Changes::Do(const std::string& path, const std::function<void()>& operation,
                 const std::optional<std::string>& target)
{
    try {
        operation();
    } catch (const Client::OperationFailedException& error) {
        AddFailed(path, error.what(), target);
        return;
    } catch (const Client::CallRefusedException& error) {
        AddFailed(path, error.what(), target);
        return;
    }
    AddDone(path, target);
}

ExitStatus Changes::Conclude()
{
    output.Flush();
    return status;
}

void Changes::Write(const ChangeSummary& summary)
{
    if (!workplace.choice.isJson)
        return;
    output.Write(ToJson(summary, GetReader(output)) + "\n");
    output.Flush(); // it is done, even if the next one ends the command
}

} // namespace Cli
