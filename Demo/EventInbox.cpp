#include "EventInbox.h"

#include "Text.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <string_view>
#include <utility>
#include <vector>

namespace Demo {

namespace {

/// Long enough for deleting or listing a large tree on a slow disk.
constexpr std::chrono::minutes patience{10};

const std::string& GetTypeName(const Core::Embedding::Event& event)
{
    return event.type->GetBrowseName().GetName();
}

std::string DescribeAcknowledgement(const Core::Embedding::Event& event)
{
    constexpr std::array<std::string_view, 6> names{"success",          "open failed",
                                                    "write incomplete", "close failed",
                                                    "set time failed",  "set permissions failed"};
    const auto result = GetOwnField(event, "Result").Get<unsigned int>();
    const auto handle = GetOwnField(event, "FileHandle").Get<unsigned int>();
    return "FileHandle " + std::to_string(handle) + ", Result " + std::to_string(result) + " (" +
           std::string(result < names.size() ? names.at(result) : "unknown") + ')';
}

std::string DescribeListing(const Core::Embedding::Event& event)
{
    constexpr std::size_t shownAtMost = 3;
    const auto& content = GetOwnField(event, "Content").GetElements<Core::Struct>();
    auto text = "Content " + std::to_string(content.size()) + " entries";
    for (std::size_t index = 0; index < std::min(content.size(), shownAtMost); ++index)
        text += ", " + Quote(content[index].GetFields().at(0).GetText());
    if (content.size() > shownAtMost)
        text += ", ...";
    const bool limitExceeded = GetOwnField(event, "LimitExceeded").Get<bool>();
    return text + "; LimitExceeded " + (limitExceeded ? "true" : "false");
}

/// Returns the event type and the event's own fields.
std::string Describe(const Core::Embedding::Event& event)
{
    const auto& type = GetTypeName(event);
    if (type == "AckEvent")
        return type + ": " + DescribeAcknowledgement(event);
    if (type == "ListResultEvent")
        return type + ": " + DescribeListing(event);
    if (type == "ExistsResultEvent")
        return type + ": Exist " + (GetOwnField(event, "Exist").Get<bool>() ? "true" : "false");
    return Escape(type);
}

} // namespace

const Core::Value& GetOwnField(const Core::Embedding::Event& event, const char* name)
{
    return event.GetField({event.type->GetNodeId().GetNamespaceIndex(), name});
}

void EventInbox::Receive(const EventPointer& event)
{
    const auto description = Describe(*event);
    std::size_t number = 0;
    {
        const Support::Lock lock(mutex);
        number = ++count;
    }
    // Before the waiting thread goes on, so that this line comes before its lines.
    PrintLine("  event " + std::to_string(number) + "  " + description);
    {
        const Support::Lock lock(mutex);
        Keep(event);
    }
    arrived.NotifyAll();
}

void EventInbox::Keep(const EventPointer& event)
{
    if (GetTypeName(*event) == "AckEvent") {
        resultOfHandle[GetOwnField(*event, "FileHandle").Get<unsigned int>()] =
            GetOwnField(*event, "Result").Get<unsigned int>();
    } else {
        resultsOfType[GetTypeName(*event)].push_back(event);
    }
}

unsigned int EventInbox::WaitForAcknowledgement(unsigned int handle)
{
    const auto limit = std::chrono::steady_clock::now() + patience;
    Support::Lock lock(mutex);
    while (!resultOfHandle.contains(handle)) {
        if (!arrived.WaitUntil(lock, limit) && !resultOfHandle.contains(handle))
            throw NoAnswerException("No acknowledgement came for file handle " +
                                    std::to_string(handle));
    }
    const auto result = resultOfHandle.at(handle);
    resultOfHandle.erase(handle);
    return result;
}

std::optional<unsigned int> EventInbox::TakeAcknowledgement(unsigned int handle)
{
    const Support::Lock lock(mutex);
    const auto found = resultOfHandle.find(handle);
    if (found == resultOfHandle.end())
        return std::nullopt;
    const auto result = found->second;
    resultOfHandle.erase(found);
    return result;
}

EventPointer EventInbox::WaitForResult(const std::string& type)
{
    {
        const auto limit = std::chrono::steady_clock::now() + patience;
        Support::Lock lock(mutex);
        while (resultsOfType[type].empty()) {
            if (!arrived.WaitUntil(lock, limit) && resultsOfType[type].empty())
                throw NoAnswerException("No " + type + " came");
        }
    }
    return TakeResult(type);
}

EventPointer EventInbox::TakeResult(const std::string& type)
{
    const Support::Lock lock(mutex);
    auto& results = resultsOfType[type];
    if (results.empty())
        return nullptr;
    auto result = std::move(results.front());
    results.pop_front();
    return result;
}

std::size_t EventInbox::GetCount() const
{
    const Support::Lock lock(mutex);
    return count;
}

} // namespace Demo
