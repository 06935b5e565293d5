// The file objects as a program in C finds them: by browsing alone, with the arguments of the
// standard and nothing of this project.

#include "Fixture.h"

#include <gtest/gtest.h>
#include <open62541/client.h>
#include <open62541/client_config_default.h>
#include <open62541/client_highlevel.h>

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

using namespace ClientTest;

namespace {

void Require(UA_StatusCode status)
{
    if (status != UA_STATUSCODE_GOOD)
        throw std::runtime_error(UA_StatusCode_name(status));
}

std::string ToText(const UA_String& text)
{
    return {reinterpret_cast<const char*>(text.data), text.length};
}

/// The outputs of a call.
class Outputs
{
public:
    Outputs() = default;
    Outputs(const Outputs&) = delete;
    Outputs& operator=(const Outputs&) = delete;
    ~Outputs() { UA_Array_delete(values, count, &UA_TYPES[UA_TYPES_VARIANT]); }

    template <typename T>
    [[nodiscard]] const T& Get(std::size_t index) const
    {
        if (index >= count || values[index].data == nullptr)
            throw std::runtime_error("an output is missing");
        return *static_cast<const T*>(values[index].data);
    }

    std::size_t count = 0;
    UA_Variant* values = nullptr;
};

class ABrowsingClient : public WithObjects
{
protected:
    ABrowsingClient()
    {
        UA_ClientConfig_setDefault(UA_Client_getConfig(client.get()));
        Require(UA_Client_connect(client.get(), host.GetUrl().c_str()));
    }
    ~ABrowsingClient() override
    {
        for (auto& id : found)
            UA_NodeId_clear(&id);
    }

    /// Returns the node of a name below another one.
    UA_NodeId Find(const UA_NodeId& parent, const std::string& name)
    {
        UA_BrowseDescription description{};
        description.nodeId = parent;
        description.referenceTypeId = UA_NODEID_NUMERIC(0, UA_NS0ID_HIERARCHICALREFERENCES);
        description.includeSubtypes = true;
        description.resultMask = UA_BROWSERESULTMASK_ALL;
        UA_BrowseRequest request{};
        request.nodesToBrowse = &description;
        request.nodesToBrowseSize = 1;
        UA_BrowseResponse response = UA_Client_Service_browse(client.get(), request);
        UA_NodeId id = UA_NODEID_NULL;
        for (std::size_t i = 0; response.resultsSize == 1 && i < response.results[0].referencesSize;
             ++i) {
            const auto& reference = response.results[0].references[i];
            if (UA_NodeId_isNull(&id) && ToText(reference.browseName.name) == name)
                UA_NodeId_copy(&reference.nodeId.nodeId, &id);
        }
        UA_BrowseResponse_clear(&response);
        if (UA_NodeId_isNull(&id))
            throw std::runtime_error("there is no " + name);
        found.push_back(id);
        return id;
    }

    UA_NodeId FindFolder()
    {
        const auto objects = UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER);
        return Find(Find(objects, "FileSystem"), root.GetPath().filename().string());
    }

    UA_StatusCode Call(const UA_NodeId& object, const std::string& method,
                       const std::vector<UA_Variant>& inputs, Outputs& outputs)
    {
        return UA_Client_call(client.get(), object, Find(object, method), inputs.size(),
                              inputs.data(), &outputs.count, &outputs.values);
    }

    /// The value must outlive the variant.
    template <typename T>
    static UA_Variant MakeInput(T& value, std::size_t type)
    {
        UA_Variant input{};
        UA_Variant_setScalar(&input, &value, &UA_TYPES[type]);
        return input;
    }

    UA_UInt32 Open(const UA_NodeId& file, UA_Byte mode)
    {
        Outputs outputs;
        Require(Call(file, "Open", {MakeInput(mode, UA_TYPES_BYTE)}, outputs));
        return outputs.Get<UA_UInt32>(0);
    }

    UA_StatusCode Close(const UA_NodeId& file, UA_UInt32 handle)
    {
        Outputs none;
        return Call(file, "Close", {MakeInput(handle, UA_TYPES_UINT32)}, none);
    }

    UA_StatusCode Write(const UA_NodeId& file, UA_UInt32 handle, const std::string& content)
    {
        UA_ByteString data = UA_BYTESTRING(const_cast<char*>(content.c_str()));
        data.length = content.size();
        Outputs none;
        return Call(file, "Write",
                    {MakeInput(handle, UA_TYPES_UINT32), MakeInput(data, UA_TYPES_BYTESTRING)},
                    none);
    }

    std::string Read(const UA_NodeId& file, UA_UInt32 handle, UA_Int32 length)
    {
        Outputs outputs;
        Require(Call(file, "Read",
                     {MakeInput(handle, UA_TYPES_UINT32), MakeInput(length, UA_TYPES_INT32)},
                     outputs));
        return ToText(outputs.Get<UA_ByteString>(0));
    }

    std::unique_ptr<UA_Client, decltype(&UA_Client_delete)> client{UA_Client_new(),
                                                                   &UA_Client_delete};
    std::vector<UA_NodeId> found;
};

TEST_F(ABrowsingClient, WritesAFileAndReadsItBack)
{
    UA_String name = UA_STRING(const_cast<char*>("written.txt"));
    UA_Boolean isOpened = false;
    Outputs created;
    Require(Call(FindFolder(), "CreateFile",
                 {MakeInput(name, UA_TYPES_STRING), MakeInput(isOpened, UA_TYPES_BOOLEAN)},
                 created));
    const auto file = Find(FindFolder(), "written.txt");
    EXPECT_TRUE(UA_NodeId_equal(&file, &created.Get<UA_NodeId>(0)));

    const std::string content = MakeContent(300'000);
    const auto writing = Open(file, 2);
    EXPECT_EQ(Write(file, writing, content.substr(0, 200'000)), UA_STATUSCODE_GOOD);
    EXPECT_EQ(Write(file, writing, content.substr(200'000)), UA_STATUSCODE_GOOD);
    EXPECT_EQ(Close(file, writing), UA_STATUSCODE_GOOD);
    EXPECT_EQ(ReadFile(root.GetPath() / "written.txt"), content);

    UA_Variant size{};
    Require(UA_Client_readValueAttribute(client.get(), Find(file, "Size"), &size));
    EXPECT_TRUE(UA_Variant_hasScalarType(&size, &UA_TYPES[UA_TYPES_UINT64]));
    EXPECT_EQ(*static_cast<UA_UInt64*>(size.data), content.size());
    UA_Variant_clear(&size);

    const auto reading = Open(file, 1);
    std::string back;
    for (std::string block; !(block = Read(file, reading, 65'536)).empty();)
        back += block;
    EXPECT_EQ(back, content);
    EXPECT_EQ(Write(file, reading, "more"), UA_STATUSCODE_BADINVALIDSTATE);
    EXPECT_EQ(Close(file, reading), UA_STATUSCODE_GOOD);
    EXPECT_EQ(Close(file, reading), UA_STATUSCODE_BADINVALIDARGUMENT);
}

TEST_F(ABrowsingClient, IsRefusedArgumentsOfAnotherTypeOrNumber)
{
    WriteFile(root.GetPath() / "file", "content");
    const auto file = Find(FindFolder(), "file");
    UA_String wrong = UA_STRING(const_cast<char*>("1"));
    UA_Byte mode = 1;
    Outputs none;
    EXPECT_EQ(Call(file, "Open", {MakeInput(wrong, UA_TYPES_STRING)}, none),
              UA_STATUSCODE_BADINVALIDARGUMENT);
    EXPECT_EQ(Call(file, "Open", {}, none), UA_STATUSCODE_BADARGUMENTSMISSING);
    EXPECT_EQ(
        Call(file, "Open", {MakeInput(mode, UA_TYPES_BYTE), MakeInput(mode, UA_TYPES_BYTE)}, none),
        UA_STATUSCODE_BADTOOMANYARGUMENTS);
    EXPECT_EQ(Call(file, "Read", {UA_Variant{}, UA_Variant{}}, none),
              UA_STATUSCODE_BADINVALIDARGUMENT);
}

} // namespace
