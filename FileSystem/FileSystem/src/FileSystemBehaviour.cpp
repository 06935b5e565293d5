#include "FileSystemBehaviour.h"

#include "BehaviourSource.h"
#include "Core/Objects.h"

#include <exception>

namespace FileSystem {

const char behaviourSource[] = __FILE__;

FileSystemBehaviour::FileSystemBehaviour(Core::INode& node)
    : node(&node)
    , affinityId(node.GetCoreContext().AssignAffinityId())
{}

FileSystemBehaviour::~FileSystemBehaviour()
{
    // The condition variable is destroyed before the thread and would wait for an idle worker
    // forever, so the thread's own check would come too late.
    if (workerThread.joinable())
        std::terminate();
}

void FileSystemBehaviour::OnStart()
{
    InitializeEventTypeCaches();
    StartWorkerThread();
    Core::CoreContext& context = node->GetCoreContext();
    currentSession = context.GetSessions().GetCurrentSession();
    const auto sessionsFolder = context.GetNode(Core::Objects::SessionsFolder());
    sessionsRegistration = sessionsFolder->RegisterEventObserver(
        shared_from_this(), Core::EventFilter::references, affinityId, currentSession, 0);
    SetRegistrationOpen(true);
}

void FileSystemBehaviour::OnStop()
{
    const auto guard = node->GetCoreContext().GetDispatcher().TerminateDispatchOnStop(affinityId);
    sessionsRegistration.Reset();
    StopWorkerThread();
    ClearEventTypeCaches();
    currentSession.reset();
    CloseAllFiles();
}

} // namespace FileSystem
