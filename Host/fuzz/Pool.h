#pragma once

#include "Random.h"

#include <OpcUa/Ua.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace Fuzz {

/// A method's input, as the method declares it.
struct InputType
{
    const UA_DataType* type = nullptr; ///< null: one that the library does not know
    bool isArray = false;

    [[nodiscard]] bool IsNode() const noexcept
    {
        return type == &UA_TYPES[UA_TYPES_NODEID] && !isArray;
    }
};

/// A method and an object that has it.
struct MethodPlace
{
    std::size_t object;
    std::size_t method; ///< both places in `Pool::nodes`
    std::vector<InputType> inputs;
};

/// Everything that requests are made of and that the host may know: its nodes, and the numbers and
/// names that it has given out. The newest names stand for the others once there are many.
class Pool
{
public:
    /// Returns the place of the node in the list.
    std::size_t AddNode(const UA_NodeId& node);
    void AddChild(std::size_t parent, std::size_t child) { children[parent].push_back(child); }
    void AddMethod(MethodPlace method);
    void AddMade(const UA_NodeId& node);
    void AddFiles(const UA_NodeId& node);
    /// Adds what a method has made: a file system, file or directory.
    void AddOutput(const UA_NodeId& node);
    void AddNumber(std::uint32_t number);
    void AddContinuation(const UA_ByteString& point);
    void AddText(std::string text) { texts.push_back(std::move(text)); }

    [[nodiscard]] std::size_t CountNodes() const noexcept { return nodes.size(); }
    [[nodiscard]] const UA_NodeId& GetNode(std::size_t place) const { return *nodes[place]; }

    // Each returns a copy that the receiver clears.
    [[nodiscard]] UA_NodeId DrawNode(Random& random) const;
    /// Returns a file system, mostly. REQUIRES: there is one.
    [[nodiscard]] UA_NodeId DrawFiles(Random& random) const;
    /// Returns a child of the node at this place; any node where it has none.
    [[nodiscard]] UA_NodeId DrawChild(Random& random, std::size_t parent) const;
    [[nodiscard]] UA_ByteString DrawContinuation(Random& random) const;
    [[nodiscard]] UA_String DrawText(Random& random) const;

    [[nodiscard]] std::uint32_t DrawNumber(Random& random) const;
    /// REQUIRES: there is a method.
    [[nodiscard]] const MethodPlace& DrawMethod(Random& random) const;

private:
    static UA_NodeId MakeNode(Random& random);

    std::vector<OpcUa::Ua<UA_NodeId>> nodes;
    std::map<std::size_t, std::vector<std::size_t>> children;
    std::vector<MethodPlace> methods;
    std::vector<std::size_t> named;          // those of `nodes` that modules provide
    std::vector<std::size_t> namedMethods;   // those of `methods` that belong to them
    std::vector<OpcUa::Ua<UA_NodeId>> files; // file systems
    std::vector<OpcUa::Ua<UA_NodeId>> made;  // sessions and their tokens
    std::vector<std::uint32_t> numbers;
    std::vector<std::string> continuations;
    std::vector<std::string> texts;
};

/// Returns a copy of the text, allocated by the library.
[[nodiscard]] UA_String MakeString(const std::string& text);

} // namespace Fuzz
