#pragma once

#include "Core/Exception.h"
#include "Network/Addresses.h"

#include <vector>

namespace Host {

/// The logins and connections that are taken.
struct Admission
{
    bool allowsAnonymous = false;
    bool allowsUnencrypted = false;
};

/// Refuses a host that would be open to others; the text names what is missing.
class OpenDoorsException : public Core::InvalidStateException
{
public:
    using Core::InvalidStateException::InvalidStateException;
};

/// On loopback anybody gets in where there are no users, and nobody needs encryption. On any other
/// address users are required, and encryption with certificates that are trusted: while there are
/// none, nobody gets in. Throws OpenDoorsException.
[[nodiscard]] Admission DecideAdmission(const std::vector<ListenAddress>& addresses, bool hasUsers);

} // namespace Host
