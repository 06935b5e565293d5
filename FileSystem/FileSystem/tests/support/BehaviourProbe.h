#pragma once

#include "FileSystemBehaviour.h"

namespace FileSystem {

/// Lets tests look inside a behaviour.
struct BehaviourProbe
{
    FileSystemBehaviour& behaviour;

    [[nodiscard]] auto& HandlesMap() const { return behaviour.handlesMap; }
    [[nodiscard]] auto& SessionsMap() const { return behaviour.sessionsMap; }
    [[nodiscard]] auto& StreamUsersMap() const { return behaviour.streamUsers; }
    [[nodiscard]] auto& TaskQueue() const { return behaviour.taskQueue; }
    [[nodiscard]] auto& TasksSetAside() const { return behaviour.tasksSetAside; }
    [[nodiscard]] auto& HandlesMutex() const { return behaviour.handlesMutex; }
    [[nodiscard]] auto& TaskMutex() const { return behaviour.taskMutex; }
    [[nodiscard]] unsigned int AffinityId() const { return behaviour.affinityId; }
    [[nodiscard]] bool HasEventTypes() const { return behaviour.ackEventType != nullptr; }

    void StartWorkerThread() const { behaviour.StartWorkerThread(); }
    void StopWorkerThread() const { behaviour.StopWorkerThread(); }
};

} // namespace FileSystem
