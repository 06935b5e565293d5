#include "Core/Logger.h"
#include "AllocationCount.h"

#include "Core/Embedding/LogControl.h"
#include "Core/Exception.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace Core {
namespace {

using Embedding::CapturingLogSink;
using Embedding::FormatLogLine;
using Embedding::LogControl;
using Embedding::LogSink;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

constexpr std::chrono::seconds hangingLimit(60);

LogEntry MakeEntry(LogLevel level, std::string category, std::string message)
{
    LogEntry entry;
    entry.level = level;
    entry.category = std::move(category);
    entry.message = std::move(message);
    return entry;
}

LogEntry MakeFullEntry()
{
    auto entry = MakeEntry(LogLevel::Warning, "FileSystem", "Cannot close file handle");
    entry.code = 66071;
    entry.timestamp = DateTime::FromUnixEpochTime(1'795'249'800);
    entry.file = "FileSystem/src/Some.cpp";
    entry.function = "OnStop";
    entry.line = 62;
    return entry;
}

/// The process has one logger: each test gets it in its first state and leaves it so.
class TheLogger : public testing::Test
{
public:
    TheLogger() { LogControl::AddSink(sink); }

    ~TheLogger() override
    {
        LogControl::RemoveSink(sink);
        LogControl::ResetCategoryLevels();
        LogControl::SetLevel(LogLevel::Warning);
    }

    TheLogger(const TheLogger&) = delete;
    TheLogger& operator=(const TheLogger&) = delete;

protected:
    [[nodiscard]] static bool IsEnabled(LogLevel level, const char* category = "Any")
    {
        return Logger::Instance().IsEnabledForEntry(level, category);
    }

    static void Append(LogLevel level, const std::string& message,
                       const std::string& category = "Any")
    {
        Logger::Instance().AppendEntry(MakeEntry(level, category, message));
    }

    [[nodiscard]] std::vector<std::string> GetMessages() const
    {
        std::vector<std::string> messages;
        for (const auto& entry : sink->GetEntries())
            messages.push_back(entry.message);
        return messages;
    }

    const std::shared_ptr<CapturingLogSink> sink = std::make_shared<CapturingLogSink>();
};

TEST_F(TheLogger, IsAlwaysTheSame)
{
    EXPECT_EQ(&Logger::Instance(), &Logger::Instance());
}

TEST_F(TheLogger, KeepsErrorsAndWarningsAtFirst)
{
    EXPECT_TRUE(IsEnabled(LogLevel::Error));
    EXPECT_TRUE(IsEnabled(LogLevel::Warning));
    EXPECT_FALSE(IsEnabled(LogLevel::Notice));
    EXPECT_FALSE(IsEnabled(LogLevel::Trace));
}

TEST_F(TheLogger, HasTheLevelsOfThePublishedNumbers)
{
    EXPECT_TRUE(IsEnabled(static_cast<LogLevel>(1)));
    EXPECT_TRUE(IsEnabled(static_cast<LogLevel>(2)));
    EXPECT_FALSE(IsEnabled(static_cast<LogLevel>(7)));
    LogControl::SetLevel(LogLevel::Trace);
    EXPECT_TRUE(IsEnabled(static_cast<LogLevel>(7)));
    EXPECT_FALSE(IsEnabled(static_cast<LogLevel>(8)));
}

TEST_F(TheLogger, KeepsNothingWhenItIsOff)
{
    LogControl::SetLevel(LogLevel::Off);
    EXPECT_FALSE(IsEnabled(LogLevel::Error));
    Append(LogLevel::Error, "dropped");
    EXPECT_THAT(GetMessages(), ElementsAre());
}

TEST_F(TheLogger, NeverKeepsAnEntryWithoutALevel)
{
    LogControl::SetLevel(LogLevel::Trace);
    EXPECT_FALSE(IsEnabled(LogLevel::Off));
    EXPECT_FALSE(IsEnabled(static_cast<LogLevel>(-1)));
    Append(LogLevel::Off, "dropped");
    EXPECT_THAT(GetMessages(), ElementsAre());
}

TEST_F(TheLogger, GivesACategoryItsOwnLevel)
{
    LogControl::SetLevel("Loud", LogLevel::Trace);
    LogControl::SetLevel("Silent", LogLevel::Off);
    EXPECT_TRUE(IsEnabled(LogLevel::Trace, "Loud"));
    EXPECT_FALSE(IsEnabled(LogLevel::Error, "Silent"));
    EXPECT_FALSE(IsEnabled(LogLevel::Trace, "Other"));
    EXPECT_TRUE(IsEnabled(LogLevel::Warning, "Other"));
    LogControl::SetLevel(LogLevel::Debug);
    EXPECT_FALSE(IsEnabled(LogLevel::Error, "Silent"));
    EXPECT_TRUE(IsEnabled(LogLevel::Debug, "Other"));
}

TEST_F(TheLogger, ChangesACategorysLevelAgain)
{
    LogControl::SetLevel("Some", LogLevel::Trace);
    LogControl::SetLevel("Some", LogLevel::Error);
    EXPECT_FALSE(IsEnabled(LogLevel::Warning, "Some"));
    EXPECT_TRUE(IsEnabled(LogLevel::Error, "Some"));
}

TEST_F(TheLogger, ForgetsTheCategoriesLevels)
{
    LogControl::SetLevel("Loud", LogLevel::Trace);
    LogControl::SetLevel("Silent", LogLevel::Off);
    LogControl::ResetCategoryLevels();
    EXPECT_FALSE(IsEnabled(LogLevel::Trace, "Loud"));
    EXPECT_TRUE(IsEnabled(LogLevel::Warning, "Silent"));
}

TEST_F(TheLogger, TakesNoCategoryForTheEmptyOne)
{
    EXPECT_TRUE(IsEnabled(LogLevel::Warning, nullptr));
    LogControl::SetLevel("", LogLevel::Trace);
    EXPECT_TRUE(IsEnabled(LogLevel::Trace, nullptr));
    EXPECT_TRUE(IsEnabled(LogLevel::Trace, ""));
    EXPECT_FALSE(IsEnabled(LogLevel::Trace, "Any"));
}

TEST_F(TheLogger, AllocatesNothingForADisabledLevel)
{
    if (!CountsAllocations()) {
        GTEST_SKIP() << "this build cannot count allocations";
    }
    // Longer than any text that needs no allocation.
    const std::string category(1000, 'c');
    auto& logger = Logger::Instance();
    const auto before = GetAllocationsOfThisThread();
    bool isEnabled = false;
    for (int i = 0; i < 1000; ++i)
        isEnabled = logger.IsEnabledForEntry(LogLevel::Trace, category.c_str()) || isEnabled;
    EXPECT_EQ(GetAllocationsOfThisThread() - before, 0U);
    EXPECT_FALSE(isEnabled);
}

TEST_F(TheLogger, AllocatesNothingForTheQuestionWhenAnotherCategoryIsLoud)
{
    if (!CountsAllocations()) {
        GTEST_SKIP() << "this build cannot count allocations";
    }
    LogControl::SetLevel("Loud", LogLevel::Trace);
    const std::string category(1000, 'c');
    auto& logger = Logger::Instance();
    const auto before = GetAllocationsOfThisThread();
    const bool isEnabled = logger.IsEnabledForEntry(LogLevel::Trace, category.c_str());
    EXPECT_EQ(GetAllocationsOfThisThread() - before, 0U);
    EXPECT_FALSE(isEnabled);
}

TEST_F(TheLogger, HandsOverTheEntryUnchangedBeforeItReturns)
{
    auto entry = MakeFullEntry();
    entry.message = std::string("zero \0 and line end \n", 21);
    entry.details = "details";
    entry.origin = "origin";
    entry.attachment = std::make_shared<const Value>(5);
    Logger::Instance().AppendEntry(entry);
    const auto entries = sink->GetEntries();
    ASSERT_THAT(entries, SizeIs(1));
    EXPECT_EQ(entries[0].level, entry.level);
    EXPECT_EQ(entries[0].category, entry.category);
    EXPECT_EQ(entries[0].code, entry.code);
    EXPECT_EQ(entries[0].message, entry.message);
    EXPECT_EQ(entries[0].timestamp, entry.timestamp);
    EXPECT_EQ(entries[0].file, entry.file);
    EXPECT_EQ(entries[0].function, entry.function);
    EXPECT_EQ(entries[0].line, entry.line);
    EXPECT_EQ(entries[0].details, entry.details);
    EXPECT_EQ(entries[0].origin, entry.origin);
    EXPECT_EQ(entries[0].attachment, entry.attachment);
}

TEST_F(TheLogger, DropsAnEntryThatIsNotEnabled)
{
    Append(LogLevel::Notice, "dropped");
    Append(LogLevel::Warning, "kept");
    LogControl::SetLevel("Silent", LogLevel::Off);
    Append(LogLevel::Error, "dropped too", "Silent");
    EXPECT_THAT(GetMessages(), ElementsAre("kept"));
}

/// Calls the function that a test gives it.
class CallingSink final : public LogSink
{
public:
    explicit CallingSink(std::function<void(const LogEntry&)> call)
        : call(std::move(call))
    {}
    void Write(const LogEntry& entry) override { call(entry); }

private:
    std::function<void(const LogEntry&)> call;
};

TEST_F(TheLogger, ServesItsSinksInTheOrderOfTheirAdding)
{
    std::vector<int> order;
    const auto first = std::make_shared<CallingSink>([&](const LogEntry&) { order.push_back(1); });
    const auto second = std::make_shared<CallingSink>([&](const LogEntry&) { order.push_back(2); });
    LogControl::AddSink(first);
    LogControl::AddSink(second);
    Append(LogLevel::Error, "one");
    LogControl::RemoveSink(first);
    Append(LogLevel::Error, "two");
    LogControl::RemoveSink(second);
    Append(LogLevel::Error, "three");
    EXPECT_THAT(order, ElementsAre(1, 2, 2));
}

TEST_F(TheLogger, RefusesANullSink)
{
    EXPECT_THROW(LogControl::AddSink(nullptr), InvalidArgumentException);
}

TEST_F(TheLogger, LeavesItsSinksAloneWhenAskedToRemoveAnUnknownOne)
{
    LogControl::RemoveSink(std::make_shared<CapturingLogSink>());
    LogControl::RemoveSink(nullptr);
    Append(LogLevel::Error, "kept");
    EXPECT_THAT(GetMessages(), ElementsAre("kept"));
}

TEST_F(TheLogger, ServesTheOthersWhenASinkThrows)
{
    const auto throwing = std::make_shared<CallingSink>(
        [](const LogEntry&) { throw std::runtime_error("a sink's own trouble"); });
    const auto throwingANumber = std::make_shared<CallingSink>([](const LogEntry&) { throw 5; });
    const auto last = std::make_shared<CapturingLogSink>();
    LogControl::AddSink(throwing);
    LogControl::AddSink(throwingANumber);
    LogControl::AddSink(last);
    EXPECT_NO_THROW(Append(LogLevel::Error, "kept"));
    LogControl::RemoveSink(throwing);
    LogControl::RemoveSink(throwingANumber);
    LogControl::RemoveSink(last);
    EXPECT_THAT(GetMessages(), ElementsAre("kept"));
    EXPECT_THAT(last->GetEntries(), SizeIs(1));
}

TEST_F(TheLogger, HoldsNoLockWhileASinkWrites)
{
    // The sink changes the logger and logs from another thread, for which it waits.
    std::shared_ptr<LogSink> changing;
    changing = std::make_shared<CallingSink>([&](const LogEntry& entry) {
        if (entry.message != "first")
            return;
        std::thread([&] {
            LogControl::SetLevel("Changed", LogLevel::Trace);
            LogControl::RemoveSink(changing);
            Append(LogLevel::Error, "second");
        }).join();
    });
    LogControl::AddSink(changing);
    Append(LogLevel::Error, "first");
    EXPECT_THAT(GetMessages(), ElementsAre("first", "second"));
    EXPECT_TRUE(IsEnabled(LogLevel::Trace, "Changed"));
}

TEST_F(TheLogger, LetsGoOfASinkWithoutALock)
{
    /// Logs when it ends, as a sink that reports its own closing does.
    struct Parting final : LogSink
    {
        Parting() = default;
        Parting(const Parting&) = delete;
        Parting& operator=(const Parting&) = delete;
        ~Parting() override { Append(LogLevel::Error, "parting"); }
        void Write(const LogEntry& /*entry*/) override {}
    };
    auto parting = std::make_shared<Parting>();
    const std::weak_ptr<LogSink> observed = parting;
    LogControl::AddSink(std::move(parting));
    LogControl::RemoveSink(observed.lock());
    EXPECT_TRUE(observed.expired());
    EXPECT_THAT(GetMessages(), ElementsAre("parting"));
}

TEST_F(TheLogger, LosesNothingOfSeveralThreadsWhileLevelsAndSinksChange)
{
    constexpr int threadCount = 4;
    constexpr int entriesPerThread = 500;
    std::atomic<bool> isDone = false;
    std::thread changing([&] {
        const auto passing = std::make_shared<CapturingLogSink>();
        while (!isDone) {
            LogControl::SetLevel("Passing", LogLevel::Trace);
            LogControl::AddSink(passing);
            LogControl::SetLevel(LogLevel::Debug);
            LogControl::RemoveSink(passing);
            LogControl::ResetCategoryLevels();
            LogControl::SetLevel(LogLevel::Warning);
        }
    });
    std::vector<std::thread> writing;
    writing.reserve(threadCount);
    for (int thread = 0; thread < threadCount; ++thread)
        writing.emplace_back([] {
            for (int i = 0; i < entriesPerThread; ++i) {
                (void)IsEnabled(LogLevel::Trace, "Passing");
                Append(LogLevel::Warning, "kept");
                Append(LogLevel::Off, "dropped");
            }
        });
    for (auto& thread : writing)
        thread.join();
    isDone = true;
    changing.join();
    EXPECT_THAT(sink->GetEntries(), SizeIs(threadCount * entriesPerThread));
}

/// Logs when the program's statics are destroyed.
struct LastWords
{
    LastWords() = default;
    LastWords(const LastWords&) = delete;
    LastWords& operator=(const LastWords&) = delete;
    ~LastWords()
    {
        if (Logger::Instance().IsEnabledForEntry(LogLevel::Error, "Last"))
            Logger::Instance().AppendEntry(MakeEntry(LogLevel::Error, "Last", "last words"));
    }
};

TEST(TheLoggerDeathTest, IsThereUntilTheVeryEndOfTheProgram)
{
    // A program of its own, in which the last object to log is older than the logger.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            static const LastWords lastWords;
            LogControl::SetLevel("Last", LogLevel::Error);
            LogControl::AddSink(Embedding::MakeConsoleLogSink());
            std::exit(0); // NOLINT(concurrency-mt-unsafe): the only thread
        },
        testing::ExitedWithCode(0), "Error Last 0 \"last words\"");
}

TEST(TheConsoleSinkDeathTest, WritesALineOnStandardError)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            Embedding::MakeConsoleLogSink()->Write(MakeFullEntry());
            std::_Exit(0); // writes nothing more
        },
        testing::ExitedWithCode(0), "Cannot close file handle\" OnStop FileSystem.*:62\n");
}

TEST(ALogLine, ShowsWhatTheEntrySays)
{
    EXPECT_EQ(FormatLogLine(MakeFullEntry()),
              "2026-11-21T08:30:00Z Warning FileSystem 66071 \"Cannot close file handle\" OnStop "
              "FileSystem/src/Some.cpp:62");
}

TEST(ALogLine, ShowsDetailsOriginAndAttachmentWhereThereAreAny)
{
    auto entry = MakeFullEntry();
    entry.details = "more about it";
    entry.origin = "session 5";
    entry.attachment = std::make_shared<const Value>("text");
    EXPECT_THAT(FormatLogLine(entry),
                testing::EndsWith(R"(Some.cpp:62 details="more about it" origin="session 5" )"
                                  R"(attachment="\x22text\x22")"));
}

TEST(ALogLine, ShowsWhatIsMissing)
{
    EXPECT_EQ(FormatLogLine(LogEntry()), "- Information - 0 \"\" - -:0");
}

TEST(ALogLine, NamesEveryLevel)
{
    const auto wordOf = [](int level) {
        const auto line = FormatLogLine(MakeEntry(static_cast<LogLevel>(level), "", ""));
        return line.substr(2, line.find(' ', 2) - 2);
    };
    std::vector<std::string> words;
    for (int level = -1; level <= 8; ++level)
        words.push_back(wordOf(level));
    EXPECT_THAT(words, ElementsAre("Level-1", "Off", "Error", "Warning", "Notice", "Information",
                                   "Detail", "Debug", "Trace", "Level8"));
}

std::string ShownMessage(const std::string& message)
{
    const auto line = FormatLogLine(MakeEntry(LogLevel::Error, "", message));
    const std::string before = "- Error - 0 \"";
    const std::string after = "\" - -:0";
    EXPECT_THAT(line, StartsWith(before));
    EXPECT_THAT(line, testing::EndsWith(after));
    return line.substr(before.size(), line.size() - before.size() - after.size());
}

TEST(AMessageInALogLine, CannotForgeALine)
{
    const auto forged = FormatLogLine(MakeFullEntry());
    auto entry = MakeFullEntry();
    entry.message = "harmless\n" + forged;
    entry.category = entry.file = entry.function = entry.details = entry.origin = entry.message;
    entry.attachment = std::make_shared<const Value>("harmless\n");
    const auto line = FormatLogLine(entry);
    EXPECT_EQ(line.find('\n'), std::string::npos);
    EXPECT_EQ(line.find(forged), std::string::npos);
}

TEST(AMessageInALogLine, CannotForgeAField)
{
    EXPECT_EQ(ShownMessage(R"(a" origin="root)"), R"(a\x22 origin=\x22root)");
}

TEST(AMessageInALogLine, ShowsDangerousBytesAsNumbers)
{
    EXPECT_EQ(ShownMessage(std::string("\0", 1)), R"(\x00)");
    EXPECT_EQ(ShownMessage("\n\r\t"), R"(\x0a\x0d\x09)");
    EXPECT_EQ(ShownMessage("\x1b[31m"), R"(\x1b[31m)");
    EXPECT_EQ(ShownMessage("\x7f"), R"(\x7f)");
    EXPECT_EQ(ShownMessage("\\x0a"), R"(\x5cx0a)");
    EXPECT_EQ(ShownMessage("\xC2\x9B"), R"(\xc2\x9b)");
    EXPECT_EQ(ShownMessage("\xE2\x80\xA8"), R"(\xe2\x80\xa8)");
    EXPECT_EQ(ShownMessage({'\xE2', '\x80', '\xAE'}), R"(\xe2\x80\xae)");
    EXPECT_EQ(ShownMessage({'\xE2', '\x81', '\xA6'}), R"(\xe2\x81\xa6)");
}

TEST(AMessageInALogLine, ShowsTextsOfAllLanguagesAsTheyAre)
{
    for (const std::string text : {"plain ~ text !", "\xC2\xA0", "\xC3\xBC", "\xDF\xBF",
                                   "\xE0\xA0\x80", "\xE6\x97\xA5", "\xED\x9F\xBF", "\xEF\xBF\xBD",
                                   "\xF0\x90\x80\x80", "\xF0\x9F\x93\x81", "\xF4\x8F\xBF\xBF"})
        EXPECT_EQ(ShownMessage(text), text);
}

TEST(AMessageInALogLine, ShowsWhatIsNotUtf8AsNumbers)
{
    EXPECT_EQ(ShownMessage("\x80"), R"(\x80)");                         // begins with a follower
    EXPECT_EQ(ShownMessage("\xC3"), R"(\xc3)");                         // ends early
    EXPECT_EQ(ShownMessage("\xC3z"), R"(\xc3z)");                       // follower missing
    EXPECT_EQ(ShownMessage("\xE6\x97"), R"(\xe6\x97)");                 // ends early
    EXPECT_EQ(ShownMessage("\xE6\x97\n"), R"(\xe6\x97\x0a)");           // follower missing
    EXPECT_EQ(ShownMessage("\xC0\x8A"), R"(\xc0\x8a)");                 // a line end, too long
    EXPECT_EQ(ShownMessage("\xE0\x81\x81"), R"(\xe0\x81\x81)");         // a letter, too long
    EXPECT_EQ(ShownMessage("\xF0\x80\x81\x81"), R"(\xf0\x80\x81\x81)"); // a letter, too long
    EXPECT_EQ(ShownMessage("\xE0\x80\x8A"), R"(\xe0\x80\x8a)");         // a line end, too long
    EXPECT_EQ(ShownMessage("\xF0\x80\x80\x8A"), R"(\xf0\x80\x80\x8a)"); // a line end, too long
    EXPECT_EQ(ShownMessage("\xED\xA0\x80"), R"(\xed\xa0\x80)");         // half a pair
    EXPECT_EQ(ShownMessage("\xF4\x90\x80\x80"), R"(\xf4\x90\x80\x80)"); // beyond the last
    EXPECT_EQ(ShownMessage("\xF5\x80\x80\x80"), R"(\xf5\x80\x80\x80)"); // beyond the last
    EXPECT_EQ(ShownMessage("\xFF\xFE"), R"(\xff\xfe)");
    EXPECT_EQ(ShownMessage("\xC3\xC3\xBC"),
              "\\xc3\xC3\xBC"); // the following character is read again
}

TEST(AWordInALogLine, KeepsItsPlace)
{
    auto entry = MakeFullEntry();
    entry.category = "two words";
    entry.function = "operator ()";
    EXPECT_EQ(FormatLogLine(entry),
              "2026-11-21T08:30:00Z Warning two\\x20words 66071 \"Cannot close file handle\" "
              "operator\\x20() FileSystem/src/Some.cpp:62");
}

class AFileSink : public testing::Test
{
protected:
    [[nodiscard]] std::vector<std::string> ReadLines() const
    {
        std::ifstream stream(folder / "log");
        std::vector<std::string> lines;
        for (std::string line; std::getline(stream, line);)
            lines.push_back(line);
        return lines;
    }

    Support::TemporaryFolder temporary;
    std::filesystem::path folder = temporary.GetPath();
};

TEST_F(AFileSink, WritesALinePerEntryAtOnce)
{
    const auto sink = Embedding::MakeFileLogSink(folder / "log");
    auto entry = MakeFullEntry();
    sink->Write(entry);
    EXPECT_THAT(ReadLines(), ElementsAre(FormatLogLine(entry)));
    entry.message = "a name with\na line end and 100 % {} %v of format";
    sink->Write(entry);
    EXPECT_THAT(ReadLines(), ElementsAre(FormatLogLine(MakeFullEntry()), FormatLogLine(entry)));
}

TEST_F(AFileSink, AppendsToWhatIsThere)
{
    std::ofstream(folder / "log") << "before\n";
    Embedding::MakeFileLogSink(folder / "log")->Write(MakeFullEntry());
    Embedding::MakeFileLogSink(folder / "log")->Write(MakeFullEntry());
    const auto line = FormatLogLine(MakeFullEntry());
    EXPECT_THAT(ReadLines(), ElementsAre("before", line, line));
}

TEST_F(AFileSink, KeepsTheLinesOfSeveralThreadsWhole)
{
    constexpr int threadCount = 4;
    constexpr int entriesPerThread = 200;
    const auto sink = Embedding::MakeFileLogSink(folder / "log");
    auto entry = MakeFullEntry();
    entry.message = std::string(5000, 'x');
    std::vector<std::thread> threads;
    threads.reserve(threadCount);
    for (int thread = 0; thread < threadCount; ++thread)
        threads.emplace_back([&] {
            for (int i = 0; i < entriesPerThread; ++i)
                sink->Write(entry);
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_THAT(ReadLines(), testing::AllOf(SizeIs(threadCount * entriesPerThread),
                                            testing::Each(FormatLogLine(entry))));
}

TEST_F(AFileSink, ThatCannotBeOpenedSaysWhichAndWhy)
{
    try {
        (void)Embedding::MakeFileLogSink(folder);
        FAIL() << "a folder was opened as a file";
    } catch (const SystemException& exception) {
        EXPECT_THAT(exception.GetMessage(), HasSubstr(folder.string()));
        EXPECT_THAT(exception.GetMessage(), HasSubstr("Is a directory"));
    }
}

TEST_F(TheLogger, SurvivesALogFileOnAFullDisk)
{
    const auto full = Embedding::MakeFileLogSink("/dev/full");
    EXPECT_ANY_THROW(full->Write(MakeFullEntry()));
    const auto last = std::make_shared<CapturingLogSink>();
    LogControl::AddSink(full);
    LogControl::AddSink(last);
    EXPECT_NO_THROW(Append(LogLevel::Error, "kept"));
    LogControl::RemoveSink(full);
    LogControl::RemoveSink(last);
    EXPECT_THAT(last->GetEntries(), SizeIs(1));
}

TEST(ACapturingSink, FindsAnEntryThatIsThere)
{
    CapturingLogSink sink;
    sink.Write(MakeEntry(LogLevel::Error, "", "first"));
    sink.Write(MakeEntry(LogLevel::Error, "", "second"));
    const auto isFirst = [](const LogEntry& entry) {
        return entry.message == "first";
    };
    EXPECT_TRUE(sink.WaitFor(isFirst, std::chrono::milliseconds(0)));
}

TEST(ACapturingSink, WaitsForAnEntryThatIsStillToCome)
{
    CapturingLogSink sink;
    std::atomic<int> lookedAt = 0;
    sink.Write(MakeEntry(LogLevel::Error, "", "another"));
    std::thread writing([&] {
        while (lookedAt == 0) // looks at the first entries before the rest is written
            std::this_thread::yield();
        sink.Write(MakeEntry(LogLevel::Error, "", "yet another"));
        sink.Clear();
        sink.Write(MakeEntry(LogLevel::Error, "", "wanted"));
    });
    const auto isWanted = [&](const LogEntry& entry) {
        ++lookedAt;
        return entry.message == "wanted";
    };
    EXPECT_TRUE(sink.WaitFor(isWanted, hangingLimit));
    writing.join();
    EXPECT_LE(lookedAt, 3);
}

TEST(ACapturingSink, GivesUpAtItsLimit)
{
    CapturingLogSink sink;
    sink.Write(MakeEntry(LogLevel::Error, "", "another"));
    const auto isWanted = [](const LogEntry& entry) {
        return entry.message == "wanted";
    };
    EXPECT_FALSE(sink.WaitFor(isWanted, std::chrono::milliseconds(20)));
}

TEST(ACapturingSink, ForgetsWhatIsCleared)
{
    CapturingLogSink sink;
    sink.Write(MakeEntry(LogLevel::Error, "", "forgotten"));
    sink.Clear();
    EXPECT_THAT(sink.GetEntries(), SizeIs(0));
    EXPECT_FALSE(sink.WaitFor([](const LogEntry&) { return true; }, std::chrono::milliseconds(0)));
}

TEST(ACapturingSink, AsksThePredicateWithoutALock)
{
    CapturingLogSink sink;
    sink.Write(MakeEntry(LogLevel::Error, "", "first"));
    const auto writesTheNext = [&](const LogEntry& entry) {
        if (entry.message == "first")
            sink.Write(MakeEntry(LogLevel::Error, "", "second"));
        return entry.message == "second";
    };
    EXPECT_TRUE(sink.WaitFor(writesTheNext, hangingLimit));
}

} // namespace
} // namespace Core
