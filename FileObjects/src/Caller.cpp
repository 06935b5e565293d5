#include "Caller.h"

#include "Statuses.h"

#include <utility>

namespace FileObjects {

Caller::Caller(std::shared_ptr<Core::SessionHandler> session, const std::atomic<bool>& isStopping)
    : session(std::move(session))
    , isStopping(isStopping)
{
    const auto object = this->session ? this->session->GetSessionObject() : nullptr;
    if (object == nullptr)
        Refuse(Status::sessionClosed, "", "the call is made for no session");
    id = object->GetNodeId();
}

void Caller::CheckGoesOn() const
{
    if (isStopping)
        Refuse(Status::shutdown, "", "the file system is stopped");
    if (session->IsClosed())
        Refuse(Status::sessionClosed, "", "the session has ended");
}

} // namespace FileObjects
