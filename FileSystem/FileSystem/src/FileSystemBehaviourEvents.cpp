#include "FileSystemBehaviour.h"

#include "EventValues.h"
#include "ModuleIdentifiers.h"

namespace FileSystem {

namespace {

/// Looks up fields of one event type.
class FieldFinder
{
public:
    explicit FieldFinder(const Core::IObjectType& type)
        : arguments(type.GetEventArguments())
        , namespaceIndex(type.GetNodeId().GetNamespaceIndex())
    {}

    /// Returns the index of the base field, which is in the host's own namespace.
    [[nodiscard]] unsigned int FindEventType() const
    {
        return arguments.GetFieldIndex(Core::QualifiedName(0, "EventType"));
    }

    /// Returns the index of a field that the type itself adds, in the type's namespace.
    [[nodiscard]] unsigned int Find(const char* name) const
    {
        return arguments.GetFieldIndex(Core::QualifiedName(namespaceIndex, name));
    }

private:
    const Core::EventArguments&
        arguments; // NOLINT(cppcoreguidelines-avoid-const-or-ref-data-members)
    int namespaceIndex;
};

} // namespace

void FileSystemBehaviour::InitializeEventTypeCaches()
{
    Core::CoreContext& context = node->GetCoreContext();

    ackEventType = context.GetObjectType(ObjectTypes::AckEvent());
    const FieldFinder ack(*ackEventType);
    ackEventTypeIndex = ack.FindEventType();
    ackFileHandleIndex = ack.Find("FileHandle");
    ackResultIndex = ack.Find("Result");

    existsResultEventType = context.GetObjectType(ObjectTypes::ExistsResultEvent());
    const FieldFinder exists(*existsResultEventType);
    existsEventTypeIndex = exists.FindEventType();
    existsExistIndex = exists.Find("Exist");

    deleteResultEventType = context.GetObjectType(ObjectTypes::DeleteResultEvent());
    deleteEventTypeIndex = FieldFinder(*deleteResultEventType).FindEventType();

    createDirectoryResultEventType =
        context.GetObjectType(ObjectTypes::CreateDirectoryResultEvent());
    createDirectoryEventTypeIndex = FieldFinder(*createDirectoryResultEventType).FindEventType();

    listResultEventType = context.GetObjectType(ObjectTypes::ListResultEvent());
    const FieldFinder list(*listResultEventType);
    listEventTypeIndex = list.FindEventType();
    listContentIndex = list.Find("Content");
    listLimitExceededIndex = list.Find("LimitExceeded");
}

void FileSystemBehaviour::ClearEventTypeCaches()
{
    ackEventType.reset();
    existsResultEventType.reset();
    deleteResultEventType.reset();
    createDirectoryResultEventType.reset();
    listResultEventType.reset();
}

void FileSystemBehaviour::DispatchAckEvent(unsigned int handle, unsigned char result)
{
    auto values = MakeEventValues(*ackEventType, ackEventTypeIndex);
    values.at(ackFileHandleIndex) = Core::Value(handle);
    values.at(ackResultIndex) = Core::Value(static_cast<unsigned int>(result));
    GetNodeObject()->RaiseEvent(ackEventType, values);
}

/// Returns the node as an object; the caller keeps the pointer until the event has been raised.
/// Throws std::bad_cast for a node that is no object.
std::shared_ptr<Core::IObject> FileSystemBehaviour::GetNodeObject() const
{
    const auto self = node->GetSharedPointer();
    return {self, &dynamic_cast<Core::IObject&>(*self)};
}

} // namespace FileSystem
