#pragma once

#include "Core/Behaviour.h"
#include "Core/Export.h"
#include "Core/NodeId.h"
#include "Core/QualifiedName.h"
#include "Core/Value.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Core {

/// A node that is made each time somebody looks at it.
struct ProvidedNode
{
    enum class Kind
    {
        Object,
        Property, ///< a variable, with a value of one scalar
    };

    Kind kind = Kind::Object;
    QualifiedName browseName;
    NodeId type;        ///< an object type of the model; of a property its data type
    std::string parent; ///< a key; empty: the object of the behaviour
    /// The look-ups of one lane run one after another: those that wait for the same disk, for
    /// example. Any number.
    unsigned int lane = 0;
};

/// Takes the entries that `INodeProvider::List` finds.
class CORE_API IEntryList
{
public:
    virtual ~IEntryList();

    /// Call it before `Append`, if at all, with a number that changes when the entries do. Returns
    /// false if the host has the entries of this version already: then nothing needs to be
    /// appended.
    [[nodiscard]] virtual bool IsNeeded(std::uint64_t version) = 0;

    /// Appends the keys of some more entries. Each call shows that the listing goes on, so it
    /// should come every few milliseconds.
    virtual void Append(std::vector<std::string> keys) = 0;
};

/// A behaviour that has nodes below its object without keeping them in the address space. Their
/// identifiers are texts, called keys here, in the namespace of the object's type; their meaning is
/// the behaviour's alone, but one key always names the same node. The key "" stands for the object
/// itself. Clients send keys of their own making: the behaviour checks each.
///
/// An object on the way is called with `OnExecuteMethod` like any other; its `node` has the key. It
/// exists only for the call.
///
/// The order of the virtual operations is part of the contract. All may be called at the same time,
/// also after `OnStop`.
class CORE_API INodeProvider : public virtual IBehaviour
{
public:
    ~INodeProvider() override;

    /// Describe a node by its key alone, whether it exists or not: nothing for a key that no node
    /// can have, and the keys of the properties and objects that each node of this kind has. The
    /// host calls them while all clients wait, so they must not wait for anything.
    [[nodiscard]] virtual std::optional<ProvidedNode> Describe(const std::string& key) const = 0;
    [[nodiscard]] virtual std::vector<std::string> GetMembers(const std::string& key) const = 0;

    // The following may take their time; the host calls them on a thread for each lane and gives
    // them up after a while, so what they return may not be used.

    [[nodiscard]] virtual bool Exists(const std::string& key) = 0;

    /// Gives the keys of the nodes below one, without its members, in an order that stays the same
    /// as far as possible; none for a node that has none. Throws StatusException: Bad_NodeIdUnknown
    /// or Bad_NotFound if there is no such node, anything else if it may not be listed.
    virtual void List(const std::string& key, IEntryList& entries) = 0;

    /// Returns the value of a property. Throws StatusException: Bad_NodeIdUnknown or Bad_NotFound
    /// if there is no such node.
    [[nodiscard]] virtual Value Read(const std::string& key) = 0;
};

} // namespace Core
