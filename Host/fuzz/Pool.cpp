#include "Pool.h"

#include <OpcUa/UaException.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace Fuzz {

using OpcUa::BytesOf;
using OpcUa::RequireGood;
using OpcUa::Ua;

namespace {

constexpr std::size_t mostRemembered = 200;

Ua<UA_NodeId> Copy(const UA_NodeId& node)
{
    Ua<UA_NodeId> copy;
    RequireGood(UA_NodeId_copy(&node, &*copy), "copying a node's id");
    return copy;
}

/// Returns true for nodes of files and directories, among others.
bool IsNamed(const UA_NodeId& node)
{
    return node.identifierType == UA_NODEIDTYPE_STRING;
}

template <typename T>
void Remember(std::vector<T>& list, T value)
{
    if (list.size() == mostRemembered)
        list.erase(list.begin() + 1);
    list.push_back(std::move(value));
}

} // namespace

UA_String MakeString(const std::string& text)
{
    UA_String string;
    if (UA_ByteString_allocBuffer(&string, text.size()) != UA_STATUSCODE_GOOD)
        throw std::bad_alloc();
    if (!text.empty())
        std::memcpy(string.data, text.data(), text.size());
    return string;
}

std::size_t Pool::AddNode(const UA_NodeId& node)
{
    nodes.push_back(Copy(node));
    if (IsNamed(node))
        named.push_back(nodes.size() - 1);
    return nodes.size() - 1;
}

void Pool::AddMethod(MethodPlace method)
{
    if (IsNamed(GetNode(method.object)))
        namedMethods.push_back(methods.size());
    methods.push_back(std::move(method));
}

void Pool::AddMade(const UA_NodeId& node)
{
    Remember(made, Copy(node));
}

void Pool::AddFiles(const UA_NodeId& node)
{
    Remember(files, Copy(node));
}

void Pool::AddOutput(const UA_NodeId& node)
{
    if (IsNamed(node))
        AddMade(node);
    else
        AddFiles(node);
}

void Pool::AddNumber(std::uint32_t number)
{
    Remember(numbers, number);
}

void Pool::AddContinuation(const UA_ByteString& point)
{
    Remember(continuations, std::string(BytesOf(point)));
}

UA_NodeId Pool::DrawNode(Random& random) const
{
    const std::size_t draw = random.Below(100);
    if (draw < 20 && !named.empty())
        return Copy(GetNode(random.Pick(named))).Release();
    if (draw < 55 && !nodes.empty())
        return Copy(*random.Pick(nodes)).Release();
    if (draw < 75 && !made.empty())
        return Copy(*random.Pick(made)).Release();
    if (draw < 85)
        return Copy(UA_TYPES[random.Below(UA_TYPES_COUNT)].typeId).Release();
    return MakeNode(random);
}

UA_NodeId Pool::DrawFiles(Random& random) const
{
    if (random.Chance(5))
        return DrawNode(random);
    // The first is the shared one, which is always there; the newest are likely to exist still.
    if (random.Chance(30))
        return Copy(*files.front()).Release();
    const std::size_t newest = std::min<std::size_t>(files.size(), 10);
    return Copy(*files[files.size() - 1 - random.Below(newest)]).Release();
}

UA_NodeId Pool::DrawChild(Random& random, std::size_t parent) const
{
    const auto found = children.find(parent);
    if (found == children.end())
        return DrawNode(random);
    return Copy(GetNode(random.Pick(found->second))).Release();
}

/// Returns a node that nobody has given out.
UA_NodeId Pool::MakeNode(Random& random)
{
    const auto index = static_cast<UA_UInt16>(random.Chance(80) ? random.Below(5) : random.Bits());
    switch (random.Below(6)) {
    case 0:
        return UA_NODEID_NULL;
    case 1:
        return {
            index, UA_NODEIDTYPE_GUID, {.guid = {static_cast<UA_UInt32>(random.Bits()), 0, 0, {}}}};
    case 2:
        return {index, UA_NODEIDTYPE_STRING, {.string = MakeString(random.Bytes(random.Length()))}};
    case 3:
        return {index,
                UA_NODEIDTYPE_BYTESTRING,
                {.byteString = MakeString(random.Bytes(random.Length()))}};
    default:
        return UA_NODEID_NUMERIC(index, static_cast<UA_UInt32>(random.Number()));
    }
}

UA_ByteString Pool::DrawContinuation(Random& random) const
{
    if (continuations.empty() || random.Chance(20))
        return MakeString(random.Bytes(random.Length()));
    return MakeString(random.Pick(continuations));
}

UA_String Pool::DrawText(Random& random) const
{
    if (texts.empty() || random.Chance(30))
        return MakeString(random.Bytes(random.Length()));
    return MakeString(random.Pick(texts));
}

std::uint32_t Pool::DrawNumber(Random& random) const
{
    if (numbers.empty() || random.Chance(30))
        return static_cast<std::uint32_t>(random.Number());
    return random.Pick(numbers);
}

const MethodPlace& Pool::DrawMethod(Random& random) const
{
    if (!namedMethods.empty() && random.Chance(60))
        return methods[random.Pick(namedMethods)];
    return random.Pick(methods);
}

} // namespace Fuzz
