#pragma once

#include "Client/Cancellation.h"
#include "Grammar/Completion.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace Cli {

/// Reads lines from a terminal, with editing, history and completion. One thread.
class LineEditor
{
public:
    /// The history file is read now, and written by the destructor, with mode 0600; without one, or
    /// where that fails, there is no more than a history of this run.
    /// `complete` is called on the reading thread and may throw: then nothing is completed.
    LineEditor(std::filesystem::path historyFile,
               std::function<Completion(std::string_view)> complete);
    LineEditor(const LineEditor&) = delete;
    LineEditor& operator=(const LineEditor&) = delete;
    ~LineEditor();

    /// Nothing at the end of the input. Throws CancelledException.
    [[nodiscard]] std::optional<std::string> Read(const std::string& prompt,
                                                  const Client::Cancellation& cancellation);

private:
    class Implementation;
    std::unique_ptr<Implementation> implementation;
};

} // namespace Cli
