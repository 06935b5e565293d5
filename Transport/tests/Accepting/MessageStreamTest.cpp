#include "Transport/Accepting/MessageStream.h"

#include <gtest/gtest.h>

#include <string>

namespace Transport {
namespace {

std::string MakeStreamChunk(char type, std::size_t size)
{
    std::string chunk(size, 'x');
    chunk.replace(0, 4, std::string("MSG") + type);
    for (std::size_t i = 0; i < 4; ++i)
        chunk.at(4 + i) = static_cast<char>(size >> 8 * i & 0xff);
    return chunk;
}

class AMessageStream : public testing::Test
{
protected:
    MessageStream::Sizes Take(const std::string& text)
    {
        return stream.Take({reinterpret_cast<const unsigned char*>(text.data()), text.size()});
    }

    MessageStream stream;
};

TEST_F(AMessageStream, SeesTheMessagesHoweverTheyAreCut)
{
    const auto text = MakeStreamChunk('F', 8) + MakeStreamChunk('C', 20) +
                      MakeStreamChunk('F', 300) + MakeStreamChunk('C', 9) +
                      MakeStreamChunk('A', 30);
    for (std::size_t size = 1; size <= text.size(); ++size) {
        stream = {};
        MessageStream::Sizes largest;
        for (std::size_t at = 0; at < text.size(); at += size) {
            const auto seen = Take(text.substr(at, size));
            largest.bytes = std::max(largest.bytes, seen.bytes);
            largest.chunks = std::max(largest.chunks, seen.chunks);
        }
        EXPECT_EQ(stream.CountMessages(), 3U) << size;
        EXPECT_FALSE(stream.IsInMessage()) << size;
        EXPECT_EQ(largest.bytes, 320U) << size;
        EXPECT_EQ(largest.chunks, 2U) << size;
    }
}

TEST_F(AMessageStream, CountsWhatAChunkAnnouncesBeforeItIsThere)
{
    EXPECT_EQ(Take(MakeStreamChunk('F', 5000).substr(0, 7)).bytes, 0U);
    EXPECT_EQ(Take(MakeStreamChunk('F', 5000).substr(7, 1)).bytes, 5000U);
    EXPECT_EQ(stream.CountMessages(), 0U);
}

TEST_F(AMessageStream, KeepsWhatItSawOfAMessageUntilThatIsFinished)
{
    Take(MakeStreamChunk('C', 100));
    EXPECT_TRUE(stream.IsInMessage());
    EXPECT_EQ(Take(MakeStreamChunk('C', 100)).bytes, 200U);
    EXPECT_EQ(Take(MakeStreamChunk('F', 100)).bytes, 300U);
    EXPECT_FALSE(stream.IsInMessage());
    EXPECT_EQ(Take(MakeStreamChunk('F', 10)).bytes, 10U);
}

TEST_F(AMessageStream, IsLostAtAHeaderThatIsNone)
{
    for (const auto& text : {MakeStreamChunk('X', 20), std::string("MSGF\7\0\0\0", 8),
                             std::string("MSGF\0\0\0\0", 8), std::string(20, '\0')}) {
        stream = {};
        Take(text);
        EXPECT_TRUE(stream.IsLost()) << text;
        Take(MakeStreamChunk('F', 20));
        EXPECT_EQ(stream.CountMessages(), 0U);
    }
}

} // namespace
} // namespace Transport
