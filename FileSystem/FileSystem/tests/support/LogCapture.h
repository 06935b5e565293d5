#pragma once

#include "Core/Embedding/LogControl.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace FileSystemTests {

/// Keeps a module's log entries as long as it lives, and sets the module's level meanwhile.
class LogCapture
{
public:
    explicit LogCapture(Core::LogLevel level = Core::LogLevel::Warning,
                        std::string module = "FileSystem")
        : module(std::move(module))
    {
        Core::Embedding::LogControl::SetLevel(this->module, level);
        Core::Embedding::LogControl::AddSink(sink);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    ~LogCapture()
    {
        Core::Embedding::LogControl::RemoveSink(sink);
        Core::Embedding::LogControl::ResetCategoryLevels();
    }

    [[nodiscard]] std::vector<Core::LogEntry> GetEntries() const
    {
        auto entries = sink->GetEntries();
        std::erase_if(entries, [this](const auto& entry) { return entry.category != module; });
        return entries;
    }

    void Clear() { sink->Clear(); }

private:
    const std::string module;
    std::shared_ptr<Core::Embedding::CapturingLogSink> sink =
        std::make_shared<Core::Embedding::CapturingLogSink>();
};

} // namespace FileSystemTests
