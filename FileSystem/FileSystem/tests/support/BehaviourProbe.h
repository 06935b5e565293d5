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
    /// Takes no lock: only while no thread draws a handle.
    [[nodiscard]] auto& RandomEngine() const { return behaviour.randomEngine; }
    [[nodiscard]] auto& HandleDistribution() const { return behaviour.handleDistribution; }
    [[nodiscard]] unsigned int AffinityId() const { return behaviour.affinityId; }
    [[nodiscard]] bool HasEventTypes() const { return behaviour.ackEventType != nullptr; }
    [[nodiscard]] bool HasAnyEventType() const
    {
        return behaviour.ackEventType || behaviour.existsResultEventType ||
               behaviour.deleteResultEventType || behaviour.createDirectoryResultEventType ||
               behaviour.listResultEventType;
    }
    [[nodiscard]] auto& CurrentSession() const { return behaviour.currentSession; }
    [[nodiscard]] bool HasWorker() const { return behaviour.workerThread.joinable(); }

    void StartWorkerThread() const { behaviour.StartWorkerThread(); }
    void StopWorkerThread() const { behaviour.StopWorkerThread(); }
};

} // namespace FileSystem
