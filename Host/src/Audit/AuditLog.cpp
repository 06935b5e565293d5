#include "Audit/AuditLog.h"

#include "Core/Logger.h"
#include "Log/Log.h"
#include "Process/StartThread.h"

#include <fmt/format.h>

#include <exception>
#include <system_error>
#include <utility>

namespace Host {
namespace {

constexpr const char* auditCategory = "Audit";
constexpr std::size_t mostWaiting = 16'000'000; // bytes

/// Past the limit of lines per place: the number of lines is that of the changes.
void AppendToLog(const AuditRecord& record)
{
    auto& logger = Core::Logger::Instance();
    if (!logger.IsEnabledForEntry(Core::LogLevel::Notice, auditCategory))
        return;
    Core::LogEntry entry;
    entry.level = Core::LogLevel::Notice;
    entry.category = auditCategory;
    entry.message = FormatFields(record);
    entry.timestamp = record.time;
    entry.file = __FILE__;
    entry.function = __func__;
    entry.line = __LINE__;
    logger.AppendEntry(std::move(entry));
}

} // namespace

AuditLog::AuditLog(std::shared_ptr<AppendedFile> file, AuditForm form)
    : file(std::move(file))
    , form(form)
    , thread(StartThread("to write the audit log", [this] { Run(); }))
{}

AuditLog::~AuditLog()
{
    {
        const Support::Lock lock(mutex);
        isEnding = true;
    }
    changed.NotifyAll();
    thread.join();
}

void AuditLog::Write(AuditRecord record)
{
    record.time = Core::DateTime::Now();
    const auto size = record.GetSize();
    const Support::Lock lock(mutex);
    if (waitingSize + size > mostWaiting) {
        ++lost;
        return;
    }
    waitingSize += size;
    waiting.push_back(std::move(record));
    if (waiting.size() == 1)
        changed.NotifyAll();
}

void AuditLog::Flush(std::chrono::milliseconds limit)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    Support::Lock lock(mutex);
    while (isWriting || !waiting.empty())
        if (!changed.WaitUntil(lock, end))
            return;
}

void AuditLog::Run()
{
    Support::Lock lock(mutex);
    while (true) {
        while (!isEnding && waiting.empty())
            changed.Wait(lock);
        if (waiting.empty())
            return;
        const auto records = std::exchange(waiting, {});
        const auto size = waitingSize;
        isWriting = true;
        lock.Unlock();
        WriteAll(records);
        lock.Relock();
        isWriting = false;
        changed.NotifyAll();
        waitingSize -= size; // only now: records being written take memory, too
    }
}

void AuditLog::WriteAll(const Records& records)
{
    try {
        for (const auto& record : records)
            AppendToLog(record);
        if (file)
            WriteToFile(records);
        ReportLost();
    } catch (const std::exception& error) { // of memory
        lost += records.size();
        Log(Core::LogLevel::Error, auditCategory,
            fmt::format("Cannot write audit lines: {}", error.what()));
    }
}

void AuditLog::WriteToFile(const Records& records)
{
    missingInFile += lost - std::exchange(seenLost, lost);
    try {
        if (missingInFile > 0)
            file->Append(MakeLineOfLost());
        missingInFile = 0;
        file->Append(MakeLines(records));
    } catch (const std::system_error& error) {
        lost += records.size();
        seenLost += records.size();
        missingInFile += records.size();
        Log(Core::LogLevel::Error, auditCategory, error.what());
    }
}

std::string AuditLog::MakeLines(const Records& records) const
{
    std::string lines;
    for (const auto& record : records)
        lines +=
            (form == AuditForm::Json ? FormatJson(record)
                                     : record.time.ToISO8601String() + " " + FormatFields(record)) +
            '\n';
    return lines;
}

std::string AuditLog::MakeLineOfLost() const
{
    const auto now = Core::DateTime::Now().ToISO8601String();
    return form == AuditForm::Json
               ? fmt::format("{{\"time\":\"{}\",\"lost\":{}}}\n", now, missingInFile)
               : fmt::format("{} lost={}\n", now, missingInFile);
}

void AuditLog::ReportLost()
{
    const auto now = lost.load();
    if (now == reportedLost)
        return;
    Log(Core::LogLevel::Error, auditCategory,
        fmt::format("{} audit lines were lost", now - std::exchange(reportedLost, now)));
}

} // namespace Host
