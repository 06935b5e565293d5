#include "FileObjectsBehaviour.h"

#include "Core/NamespaceMap.h"
#include "Core/Objects.h"
#include "Identifiers.h"
#include "Log.h"
#include "Statuses.h"

#include <system_error>
#include <utility>

namespace FileObjects {

namespace {

void WarnIfNothingCanBeOpened()
{
    const int error = CheckOpening();
    if (error == 0)
        return;
    Log(Core::LogLevel::Error,
        "Cannot open any file: openat2: " + std::generic_category().message(error) +
            " (a filter of system calls, such as systemd's RestrictSUIDSGID=, may forbid it)");
}

} // namespace

FileObjectsBehaviour::FileObjectsBehaviour(Core::INode& node,
                                           std::shared_ptr<const MimeTypes> mimeTypes)
    : node(node)
    , mimeTypes(std::move(mimeTypes))
    , namespaceIndex(Core::NamespaceMap::GetNamespaceIndex(moduleUri))
    , affinityId(node.GetCoreContext().AssignAffinityId())
    , folders(node.GetCoreContext().GetFolders())
    , keys(folders.GetNames())
    , nodeIds(keys, node.GetNodeId(), namespaceIndex)
    , files(folders, openFiles)
    , directories(folders, nodeIds, openFiles, files)
    , paths(folders, openFiles, directories)
    , transfers(folders, nodeIds, openFiles, files)
    , properties(folders, *this->mimeTypes, openFiles, transfers.GetTimeout())
{}

void FileObjectsBehaviour::OnStart()
{
    Core::CoreContext& context = node.GetCoreContext();
    isStopping = false;
    WarnIfNothingCanBeOpened();
    openFiles.Open();
    transfers.Start([this](const OpenFile& file) { RaiseDropped(file.handle); });
    sessionsRegistration =
        context.GetNode(Core::Objects::SessionsFolder())
            ->RegisterEventObserver(shared_from_this(), Core::EventFilter::references, affinityId,
                                    context.GetSessions().GetCurrentSession(), 0);
}

void FileObjectsBehaviour::OnStop()
{
    isStopping = true;
    const auto guard = node.GetCoreContext().GetDispatcher().TerminateDispatchOnStop(affinityId);
    sessionsRegistration.Reset();
    transfers.Stop();
    openFiles.Close().clear();
}

/// Raises the event that ends the work with the file in the host's records.
void FileObjectsBehaviour::RaiseDropped(unsigned int handle) const
{
    constexpr unsigned int noCallCame = 1;
    const auto self = node.GetSharedPointer();
    const auto type =
        node.GetCoreContext().GetObjectType({namespaceIndex, ObjectType::temporaryFileDropped});
    const auto& arguments = type->GetEventArguments();
    std::vector<Core::Value> fields(arguments.GetFieldsSize());
    fields.at(arguments.GetFieldIndex({0, "EventType"})) = Core::Value(type->GetNodeId());
    fields.at(arguments.GetFieldIndex({namespaceIndex, "FileHandle"})) = Core::Value(handle);
    fields.at(arguments.GetFieldIndex({namespaceIndex, "Result"})) = Core::Value(noCallCame);
    dynamic_cast<Core::IObject&>(*self).RaiseEvent(type, fields);
}

void FileObjectsBehaviour::OnReferenceAdded(const Core::ReferenceData& /*reference*/) {}

void FileObjectsBehaviour::OnReferenceRemoved(const Core::ReferenceData& reference)
{
    if (reference.target != nullptr)
        openFiles.EndSession(reference.target->GetNodeId()).clear();
}

} // namespace FileObjects
