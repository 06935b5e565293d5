#include "Transport/Accepting/ArrayLimits.h"

#include "Transport/Channel.h"

#include <open62541/types_generated.h>
#include <open62541/types_generated_handling.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

namespace Transport {
namespace {

using Bytes = std::vector<UA_Byte>;

const ArrayLimits fiveEach{{631, false, 12, 5}, {527, true, 16, 5}, {751, false, 8, 5}};

template <typename Value>
void Append(Bytes& to, const Value& value, std::size_t type)
{
    UA_ByteString encoded = UA_BYTESTRING_NULL;
    ASSERT_EQ(UA_encodeBinary(&value, &UA_TYPES[type], &encoded), UA_STATUSCODE_GOOD);
    to.insert(to.end(), encoded.data, encoded.data + encoded.length);
    UA_ByteString_clear(&encoded);
}

/// A request as a client sends it, with everything in its header that may be there.
template <typename Request>
Bytes Encode(Request& request, std::size_t type)
{
    request.requestHeader.authenticationToken =
        UA_NODEID_GUID(1, UA_Guid{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}});
    request.requestHeader.auditEntryId = Borrow("an entry");
    auto& addition = request.requestHeader.additionalHeader;
    addition.encoding = UA_EXTENSIONOBJECT_ENCODED_BYTESTRING;
    addition.content.encoded = {UA_NODEID_NUMERIC(1, 70'000), Borrow("an addition")};
    Bytes bytes;
    Append(bytes, UA_TYPES[type].binaryEncodingId, UA_TYPES_NODEID);
    Append(bytes, request, type);
    return bytes;
}

/// Decodes the request behind the identifier of its encoding. Returns the size of its array.
template <typename Request>
std::size_t CountElements(const Bytes& bytes, std::size_t type, std::size_t(Request::*size))
{
    const std::size_t start = 4; // the encodings here have numbers of two bytes
    UA_ByteString view{bytes.size() - start, const_cast<UA_Byte*>(bytes.data() + start)};
    Request request{};
    EXPECT_EQ(UA_decodeBinary(&view, &request, &UA_TYPES[type], nullptr), UA_STATUSCODE_GOOD);
    const std::size_t count = request.*size;
    UA_clear(&request, &UA_TYPES[type]);
    return count;
}

Bytes MakeRead(std::size_t count)
{
    std::vector<UA_ReadValueId> values(count);
    UA_ReadRequest request{};
    request.nodesToRead = values.data();
    request.nodesToReadSize = count;
    return Encode(request, UA_TYPES_READREQUEST);
}

TEST(AnArray, IsShortenedToOneMoreThanItMayHave)
{
    Bytes message = MakeRead(20);
    ShortenArray(message, fiveEach);
    EXPECT_EQ(CountElements(message, UA_TYPES_READREQUEST, &UA_ReadRequest::nodesToReadSize), 6U);
}

TEST(AnArray, IsFoundBehindANode)
{
    std::vector<UA_BrowseDescription> nodes(20);
    UA_BrowseRequest request{};
    request.view.viewId = UA_NODEID_NUMERIC(1, 70'000);
    request.nodesToBrowse = nodes.data();
    request.nodesToBrowseSize = nodes.size();
    Bytes message = Encode(request, UA_TYPES_BROWSEREQUEST);
    ShortenArray(message, fiveEach);
    EXPECT_EQ(CountElements(message, UA_TYPES_BROWSEREQUEST, &UA_BrowseRequest::nodesToBrowseSize),
              6U);
}

TEST(AnArray, StaysAsItIsWithinItsLimit)
{
    for (const std::size_t count : {0U, 1U, 5U, 6U}) {
        const Bytes original = MakeRead(count);
        Bytes message = original;
        ShortenArray(message, fiveEach);
        EXPECT_EQ(message, original) << count;
    }
}

TEST(AnArray, StaysAsItIsInOtherRequests)
{
    std::vector<UA_WriteValue> values(20);
    UA_WriteRequest request{};
    request.nodesToWrite = values.data();
    request.nodesToWriteSize = values.size();
    const Bytes original = Encode(request, UA_TYPES_WRITEREQUEST);
    Bytes message = original;
    ShortenArray(message, fiveEach);
    EXPECT_EQ(message, original);
}

/// Each in memory of its own size, so that a sanitizer sees what is read beyond its end.
TEST(AnArray, IsLookedForInNoMoreThanThereIs)
{
    const Bytes whole = MakeRead(20);
    Bytes shortened = whole;
    ShortenArray(shortened, fiveEach);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const auto part = std::make_unique<UA_Byte[]>(size);
        std::copy_n(whole.begin(), size, part.get());
        ShortenArray({part.get(), size}, fiveEach);
        const bool isWhole = std::equal(part.get(), part.get() + size, whole.begin());
        const bool isShortened = std::equal(part.get(), part.get() + size, shortened.begin());
        EXPECT_TRUE(isWhole || isShortened) << size;
    }
}

} // namespace
} // namespace Transport
