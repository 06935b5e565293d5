#include "Statuses.h"

#include "Core/Exception.h"

#include <cerrno>
#include <system_error>

namespace FileObjects {

std::uint32_t ToStatus(int error) noexcept
{
    switch (error) {
    case ENOENT:
    case ENOTDIR:
    case ELOOP:
    case EXDEV: // a link that leads out of its folder
    case ENXIO:
    case ENODEV:
    case ESTALE:
        return Status::notFound;
    case EACCES:
    case EPERM:
        return Status::userAccessDenied;
    case EROFS:
        return Status::notWritable;
    case EEXIST:
    case EISDIR:
        return Status::browseNameDuplicated;
    case ENAMETOOLONG:
    case EILSEQ:
        return Status::browseNameInvalid;
    case EBUSY:
    case ETXTBSY:
    case EAGAIN:
    case ENOTEMPTY:
    case ENOLCK:
    case EDEADLK:
        return Status::invalidState;
    case EINVAL:
        return Status::invalidArgument;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
    case EMFILE:
    case ENFILE:
    case EMLINK:
        return Status::resourceUnavailable;
    case ENOMEM:
        return Status::outOfMemory;
    case EIO:
        return Status::deviceFailure;
    case ENOTCONN:
    case ECONNABORTED:
    case EHOSTDOWN:
    case EHOSTUNREACH:
    case ESHUTDOWN:
        return Status::noCommunication;
    case ETIMEDOUT:
        return Status::timeout;
    case EOPNOTSUPP:
    case ENOSYS:
        return Status::notSupported;
    default:
        return Status::unexpectedError;
    }
}

void Refuse(std::uint32_t status, const std::string& subject, const std::string& reason)
{
    throw Core::StatusException(status, subject.empty() ? reason : subject + ": " + reason);
}

void RefuseWithErrno(const std::string& subject, int error)
{
    // The system's words are about file systems, even where there is only one.
    Refuse(ToStatus(error), subject,
           error == EXDEV ? "a link leads out of the folder"
                          : std::generic_category().message(error));
}

} // namespace FileObjects
