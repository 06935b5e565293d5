#include "Log/UaLogger.h"

#include "Core/Embedding/LogControl.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace Host {
namespace {

class AUaLogger : public testing::Test
{
protected:
    AUaLogger()
    {
        Core::Embedding::LogControl::SetLevel(Core::LogLevel::Detail);
        Core::Embedding::LogControl::AddSink(sink);
    }

    ~AUaLogger() override
    {
        Core::Embedding::LogControl::RemoveSink(sink);
        Core::Embedding::LogControl::SetLevel(Core::LogLevel::Warning);
    }

    /// The level and category of each entry.
    [[nodiscard]] std::string Describe() const
    {
        std::string text;
        for (const auto& entry : sink->GetEntries())
            text += entry.category + std::to_string(static_cast<int>(entry.level)) + " ";
        return text;
    }

    static void LogAtEachLevel(UaLogger& logger)
    {
        UA_LOG_ERROR(&logger.Get(), UA_LOGCATEGORY_NETWORK, "an error");
        UA_LOG_WARNING(&logger.Get(), UA_LOGCATEGORY_NETWORK, "a warning");
        UA_LOG_INFO(&logger.Get(), UA_LOGCATEGORY_NETWORK, "a detail");
        UA_LOG_DEBUG(&logger.Get(), UA_LOGCATEGORY_NETWORK, "nothing");
    }

    const std::shared_ptr<Core::Embedding::CapturingLogSink> sink =
        std::make_shared<Core::Embedding::CapturingLogSink>();
};

TEST_F(AUaLogger, TellsOperatorsOfWarningsOfTheTransportAsWarnings)
{
    UaLogger logger(UaLogger::Source::Transport);
    LogAtEachLevel(logger);
    EXPECT_EQ(Describe(), "Network1 Network2 Network5 ");
}

TEST_F(AUaLogger, LowersWarningsOfTheLibrary)
{
    UaLogger logger(UaLogger::Source::Library);
    LogAtEachLevel(logger);
    EXPECT_EQ(Describe(), "OpcUa1 OpcUa3 OpcUa5 ");
}

} // namespace
} // namespace Host
