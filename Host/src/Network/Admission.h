#pragma once

#include "Core/Exception.h"
#include "Network/Addresses.h"

#include <vector>

namespace Host {

/// Who gets in.
struct Admission
{
    bool allowsAnonymous = false;
    bool allowsUnencrypted = false;
};

/// The host would be open to others; the text says what is missing.
class OpenDoorsException : public Core::InvalidStateException
{
public:
    using Core::InvalidStateException::InvalidStateException;
};

/// What there is to tell friends from others.
struct Credentials
{
    bool hasUsers = false;
    bool hasTrustedCertificates = false;
    bool trustsAnyClient = false;
};

/// On loopback anybody gets in where there are no users, and nobody needs encryption. On any other
/// address users are required, and encryption with certificates that are trusted. Throws
/// OpenDoorsException.
[[nodiscard]] Admission DecideAdmission(const std::vector<ListenAddress>& addresses,
                                        const Credentials& credentials);

} // namespace Host
