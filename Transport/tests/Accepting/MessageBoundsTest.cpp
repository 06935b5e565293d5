#include "Transport/Accepting/MessageBounds.h"

#include "Transport/OutputQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <string>
#include <string_view>

namespace Transport {
namespace {

using testing::ElementsAre;
using Bytes = std::vector<UA_Byte>;

constexpr std::size_t headerSize = 24;
constexpr std::size_t chunkOverhead = 72; // the most that is not counted of an incoming chunk

void Append(Bytes& to, std::uint32_t number)
{
    for (int i = 0; i < 4; ++i)
        to.push_back(static_cast<UA_Byte>(number >> (8 * i)));
}

std::uint32_t NumberAt(const Bytes& bytes, std::size_t at)
{
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < 4; ++i)
        number |= static_cast<std::uint32_t>(bytes.at(at + i)) << (8 * i);
    return number;
}

Bytes MakeMessage(std::string_view type, std::initializer_list<std::uint32_t> numbers,
                  std::size_t bodySize = 0)
{
    Bytes bytes(type.begin(), type.end());
    Append(bytes, static_cast<std::uint32_t>(8 + 4 * numbers.size() + bodySize));
    for (const auto number : numbers)
        Append(bytes, number);
    bytes.resize(bytes.size() + bodySize, 'x');
    return bytes;
}

/// "MSGC" or "MSGF" with the number 1000, which no chunk keeps.
Bytes MakeChunk(std::string_view type, std::uint32_t request, std::size_t bodySize = 40)
{
    return MakeMessage(type, {7, 8, 1'000, request}, bodySize);
}

const ArrayLimits noArrays;

bool Count(IncomingMessages& messages, Bytes bytes)
{
    return messages.Count(bytes.data(), bytes.size());
}

TEST(IncomingMessages, MayBeAsLargeAsAllowed)
{
    IncomingMessages messages({1'000, 3}, noArrays);
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(Count(messages, MakeMessage("MSGC", {}, 400 + chunkOverhead - 8)));
        EXPECT_TRUE(Count(messages, MakeMessage("MSGF", {}, 600 + chunkOverhead - 8)));
    }
    EXPECT_TRUE(Count(messages, MakeMessage("MSGC", {}, 400 + chunkOverhead - 8)));
    EXPECT_FALSE(Count(messages, MakeMessage("MSGF", {}, 601 + chunkOverhead - 8)));
}

TEST(IncomingMessages, AreRefusedAtTheHeaderOfTheChunkThatIsTooMuch)
{
    IncomingMessages messages({0, 3}, noArrays);
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(Count(messages, MakeMessage("MSGC", {}, 8)));
    Bytes header = MakeMessage("MSGF", {}, 50'000);
    header.resize(8);
    EXPECT_FALSE(Count(messages, header));
}

TEST(IncomingMessages, StartAnewWhenTheClientGivesOneUp)
{
    IncomingMessages messages({0, 2}, noArrays);
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(Count(messages, MakeMessage("MSGC", {}, 8)));
        EXPECT_TRUE(Count(messages, MakeMessage("MSGC", {}, 8)));
        EXPECT_TRUE(Count(messages, MakeMessage("MSGA", {}, 8)));
    }
}

/// The message that opens a channel without security.
Bytes MakeOpening()
{
    const std::string policy = "http://opcfoundation.org/UA/SecurityPolicy#None";
    Bytes opening = MakeMessage("OPNF", {0, static_cast<std::uint32_t>(policy.size())}, 100);
    std::copy(policy.begin(), policy.end(), opening.begin() + 16);
    return opening;
}

TEST(IncomingMessages, AreRefusedWithinAnotherOneOnAChannelWithoutSecurity)
{
    IncomingMessages messages({}, noArrays);
    ASSERT_TRUE(Count(messages, MakeOpening()));
    for (const char* type : {"MSGC", "MSGC", "MSGF", "MSGF"})
        EXPECT_TRUE(Count(messages, MakeChunk(type, 1)));
    EXPECT_TRUE(Count(messages, MakeChunk("MSGC", 2)));
    EXPECT_FALSE(Count(messages, MakeChunk("MSGF", 3)));
}

TEST(IncomingMessages, MayFollowOneThatTheClientGaveUp)
{
    IncomingMessages messages({}, noArrays);
    ASSERT_TRUE(Count(messages, MakeOpening()));
    EXPECT_TRUE(Count(messages, MakeChunk("MSGC", 2, 0)));
    EXPECT_TRUE(Count(messages, MakeChunk("MSGA", 2)));
    EXPECT_TRUE(Count(messages, MakeChunk("MSGF", 3, 0)));
}

TEST(IncomingMessages, AreRefusedWithinAnotherOneOnASecuredChannelOnceTheyAreDecrypted)
{
    IncomingMessages messages({}, noArrays);
    Bytes chunk = MakeChunk("MSGC", 1);
    EXPECT_TRUE(Count(messages, MakeChunk("MSGF", 77))); // any bytes: they are encrypted
    EXPECT_TRUE(messages.CountSecured(chunk.data(), chunk.size()));
    EXPECT_TRUE(Count(messages, MakeChunk("MSGF", 78)));
    chunk = MakeChunk("MSGF", 2);
    EXPECT_FALSE(messages.CountSecured(chunk.data(), chunk.size()));
}

constexpr std::size_t arrayOfRegistering = headerSize + 33;

/// A request to register twenty nodes: its encoding, a header without anything in it, the array.
Bytes MakeRegistering(std::string_view type)
{
    Bytes bytes = MakeChunk(type, 1, 0);
    Append(bytes, 0x0230'0001);    // the form, the namespace and the number of its encoding
    bytes.resize(headerSize + 22); // no session, and numbers
    Append(bytes, 0xFFFFFFFF);     // no text
    bytes.resize(arrayOfRegistering);
    Append(bytes, 20);
    bytes.resize(bytes.size() + 40);
    bytes[4] = static_cast<UA_Byte>(bytes.size());
    return bytes;
}

const ArrayLimits fewRegistered{{560, false, 0, 5}};

TEST(IncomingMessages, HaveArraysThatAreNoLongerThanNeededToRefuseThem)
{
    for (const bool isSecured : {false, true}) {
        IncomingMessages messages({}, fewRegistered);
        ASSERT_TRUE(isSecured || Count(messages, MakeOpening()));
        Bytes chunk = MakeRegistering("MSGC");
        Bytes next = MakeRegistering("MSGF"); // no request: in the middle of a message
        for (Bytes* each : {&chunk, &next})
            EXPECT_TRUE(isSecured ? messages.CountSecured(each->data(), each->size())
                                  : messages.Count(each->data(), each->size()));
        EXPECT_EQ(NumberAt(chunk, arrayOfRegistering), 6U);
        EXPECT_EQ(NumberAt(next, arrayOfRegistering), 20U);
    }
}

TEST(IncomingMessages, AreNotLookedIntoWhereTheyAreEncrypted)
{
    IncomingMessages messages({}, fewRegistered);
    Bytes chunk = MakeRegistering("MSGF");
    EXPECT_TRUE(messages.Count(chunk.data(), chunk.size()));
    EXPECT_EQ(NumberAt(chunk, arrayOfRegistering), 20U);
}

TEST(IncomingMessages, AreCountedHoweverTheyAreCut)
{
    Bytes all = MakeMessage("HELF", {0, 9'000, 65'535, 100'000, 10}, 20);
    const Bytes chunk = MakeMessage("MSGC", {}, 13);
    for (int i = 0; i < 4; ++i)
        all.insert(all.end(), chunk.begin(), chunk.end());
    for (std::size_t part = 1; part < all.size(); ++part) {
        IncomingMessages messages({0, 3}, noArrays);
        std::size_t allowed = 0;
        while (allowed < all.size() &&
               messages.Count(&all[allowed], std::min(part, all.size() - allowed)))
            allowed += part;
        // Refused where the header of the fourth chunk is whole.
        EXPECT_EQ((all.size() - 14) / part * part, allowed) << part;
        ASSERT_TRUE(messages.GetHello());
        EXPECT_EQ(messages.GetHello()->chunkSize, 9'000U);
        EXPECT_EQ(messages.GetHello()->limits.size, 100'000U);
        EXPECT_EQ(messages.GetHello()->limits.chunks, 10U);
    }
}

/// The bytes that a client gets.
class Outgoing : public testing::Test
{
protected:
    void Send(Bytes bytes) { messages.Pass(OutputBuffer::Copy(bytes.data(), bytes.size()), sent); }

    std::vector<Bytes> Take()
    {
        std::vector<Bytes> taken;
        for (const auto& buffer : sent)
            taken.emplace_back(buffer.GetData(), buffer.GetData() + buffer.GetSize());
        sent.Clear();
        return taken;
    }

    std::vector<std::string> TakeTypes()
    {
        std::vector<std::string> types;
        for (const auto& each : Take())
            types.emplace_back(each.begin(), each.begin() + 4);
        return types;
    }

    std::vector<std::uint32_t> TakeNumbers()
    {
        std::vector<std::uint32_t> numbers;
        for (const auto& each : Take())
            numbers.push_back(NumberAt(each, 16));
        return numbers;
    }

    OutgoingMessages messages{{200, 0}, {5'000, 6}};
    OutputQueue sent{nullptr};
};

TEST_F(Outgoing, MessagesAreHeldUntilTheyAreWhole)
{
    Send(MakeChunk("MSGC", 1));
    EXPECT_THAT(TakeTypes(), ElementsAre());
    Send(MakeChunk("MSGC", 1));
    EXPECT_THAT(TakeTypes(), ElementsAre());
    Send(MakeChunk("MSGF", 1));
    EXPECT_THAT(TakeTypes(), ElementsAre("MSGC", "MSGC", "MSGF"));
    Send(MakeChunk("MSGF", 2));
    EXPECT_THAT(TakeNumbers(), ElementsAre(4));
    EXPECT_FALSE(messages.TakeRefusal());
}

TEST_F(Outgoing, MessagesThatAreTooLargeBecomeAFaultOfTheirRequest)
{
    Send(MakeChunk("MSGF", 1));
    sent.Clear();
    for (int i = 0; i < 10; ++i)
        Send(MakeChunk("MSGC", 2));
    Send(MakeChunk("MSGF", 2));
    const auto fault = Take();
    ASSERT_EQ(fault.size(), 1U);
    EXPECT_EQ(std::string(fault[0].begin(), fault[0].begin() + 4), "MSGF");
    EXPECT_EQ(NumberAt(fault[0], 4), fault[0].size());
    EXPECT_EQ(NumberAt(fault[0], 8), 7U);
    EXPECT_EQ(NumberAt(fault[0], 12), 8U);
    EXPECT_EQ(NumberAt(fault[0], 16), 2U); // the chunks that were dropped leave no gap
    EXPECT_EQ(NumberAt(fault[0], 20), 2U);
    EXPECT_EQ(NumberAt(fault[0], headerSize), 397U << 16U | 1U); // a service fault
    EXPECT_EQ(NumberAt(fault[0], headerSize + 12), 0x78787878U); // the request's handle
    EXPECT_EQ(NumberAt(fault[0], headerSize + 16), UA_STATUSCODE_BADRESPONSETOOLARGE);
    EXPECT_TRUE(messages.TakeRefusal());
    EXPECT_FALSE(messages.TakeRefusal());

    Send(MakeChunk("MSGF", 3));
    EXPECT_THAT(TakeNumbers(), ElementsAre(3));
}

TEST_F(Outgoing, MessagesOfOneChunkCanBeTooLargeAsWell)
{
    Send(MakeChunk("MSGF", 1, 300));
    EXPECT_THAT(TakeNumbers(), ElementsAre(1));
    EXPECT_TRUE(messages.TakeRefusal());
    Send(MakeChunk("MSGF", 2));
    EXPECT_THAT(TakeNumbers(), ElementsAre(2));
}

TEST_F(Outgoing, MessagesThatTheServerGaveUpAreForgotten)
{
    Send(MakeChunk("MSGC", 1));
    Send(MakeChunk("MSGC", 1));
    Send(MakeChunk("MSGF", 2));
    EXPECT_THAT(TakeNumbers(), ElementsAre(1));
}

TEST_F(Outgoing, MessagesKeepToWhatTheClientAnnounced)
{
    messages.SetHello({8'192, {0, 2}});
    EXPECT_EQ(messages.GetLargest(), 200U);
    Send(MakeChunk("MSGC", 1));
    Send(MakeChunk("MSGC", 1));
    Send(MakeChunk("MSGF", 1));
    EXPECT_THAT(TakeTypes(), ElementsAre("MSGF"));
    EXPECT_TRUE(messages.TakeRefusal());

    OutgoingMessages unbounded({0, 0}, {});
    unbounded.SetHello({8'192, {0, 2}});
    EXPECT_EQ(unbounded.GetLargest(), 2 * (8'192 - chunkOverhead));
    unbounded.SetHello({8'192, {9'000, 2}});
    EXPECT_EQ(unbounded.GetLargest(), 9'000U);
}

TEST_F(Outgoing, TheAnswerThatOpensAChannelIsNumberedToo)
{
    for (int i = 0; i < 5; ++i)
        Send(MakeChunk("MSGC", 1));
    Send(MakeChunk("MSGF", 1)); // refused: the server is ahead by five from here
    sent.Clear();
    Bytes open = MakeMessage("OPNF", {7, 3}, 3);
    for (const auto number : {0xFFFFFFFFU, 0xFFFFFFFFU, 1'006U, 2U})
        Append(open, number);
    Send(open);
    const auto taken = Take();
    ASSERT_EQ(taken.size(), 1U);
    EXPECT_EQ(NumberAt(taken[0], 27), 2U);
}

TEST_F(Outgoing, TheClientIsToldWhatBoundsItsOwnMessages)
{
    Send(MakeMessage("ACKF", {0, 65'536, 65'536, 1U << 30U, 1U << 30U}));
    const auto taken = Take();
    ASSERT_EQ(taken.size(), 1U);
    EXPECT_EQ(NumberAt(taken[0], 12), 65'536U);
    EXPECT_EQ(NumberAt(taken[0], 20), 5'000U);
    EXPECT_EQ(NumberAt(taken[0], 24), 6U);
}

TEST_F(Outgoing, TheClientIsNotToldLessThanAnAnswerMayHave)
{
    OutgoingMessages larger({1'000'000, 0}, {5'000, 6});
    const Bytes bytes = MakeMessage("ACKF", {0, 65'536, 65'536, 1U << 30U, 1U << 30U});
    larger.Pass(OutputBuffer::Copy(bytes.data(), bytes.size()), sent);
    const auto taken = Take();
    ASSERT_EQ(taken.size(), 1U);
    EXPECT_EQ(NumberAt(taken[0], 20), 1'000'000U);
    EXPECT_EQ(NumberAt(taken[0], 24), 1'000'000U / (65'536 - chunkOverhead) + 1);
}

/// Stands for a channel's keys.
class StampingSeal : public OpcUa::Seal
{
public:
    bool Apply(std::vector<unsigned char>& message) override
    {
        message.push_back('!');
        return true;
    }
};

TEST_F(Outgoing, ChunksOfEncryptedChannelsAreNumberedBeforeTheyAreSigned)
{
    StampingSeal seal;
    const auto send = [&](Bytes chunk) {
        messages.Prepare(chunk.data(), chunk.size(), seal);
        const auto number = NumberAt(chunk, 16);
        std::fill(chunk.begin() + 16, chunk.end(), 'e');
        Send(chunk);
        return number;
    };
    EXPECT_EQ(send(MakeChunk("MSGF", 1)), 1U);
    EXPECT_EQ(send(MakeChunk("MSGC", 2, 100)), 2U);
    EXPECT_EQ(TakeTypes().size(), 1U);
    send(MakeChunk("MSGC", 2, 100));
    send(MakeChunk("MSGF", 2, 100));
    const auto fault = Take();
    ASSERT_EQ(fault.size(), 1U);
    EXPECT_EQ(fault[0].back(), '!');
    EXPECT_EQ(NumberAt(fault[0], 16), 2U);
    EXPECT_EQ(NumberAt(fault[0], 20), 2U);
    EXPECT_EQ(send(MakeChunk("MSGF", 3)), 3U);
}

} // namespace
} // namespace Transport
