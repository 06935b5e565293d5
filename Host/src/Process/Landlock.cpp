#include "Process/Landlock.h"

#include "Support/Descriptor.h"
#include "Support/SystemError.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <linux/landlock.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Host {

namespace {

// Constants of later kernels, which the headers of the build may lack.
constexpr std::uint64_t accessTruncate = 1ULL << 14U;
constexpr std::uint64_t accessIoctlDevice = 1ULL << 15U;
constexpr std::uint64_t accessConnectTcp = 1ULL << 1U;
constexpr std::uint64_t scopeAbstractUnixSockets = 1ULL << 0U;
constexpr std::uint64_t scopeSignals = 1ULL << 1U;
constexpr long firstWithConnections = 4;
constexpr long firstWithScopes = 6;

struct RulesetAttributes
{
    std::uint64_t files = 0;
    std::uint64_t network = 0;
    std::uint64_t scopes = 0;
};

constexpr std::uint64_t reading = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;
constexpr std::uint64_t writing =
    reading | LANDLOCK_ACCESS_FS_WRITE_FILE | accessTruncate | LANDLOCK_ACCESS_FS_MAKE_REG |
    LANDLOCK_ACCESS_FS_MAKE_DIR | LANDLOCK_ACCESS_FS_MAKE_SYM | LANDLOCK_ACCESS_FS_MAKE_FIFO |
    LANDLOCK_ACCESS_FS_REMOVE_FILE | LANDLOCK_ACCESS_FS_REMOVE_DIR | LANDLOCK_ACCESS_FS_REFER;

/// Returns the rights that a version can restrict.
std::uint64_t GetKnownRights(long version)
{
    constexpr std::uint64_t first = (LANDLOCK_ACCESS_FS_MAKE_SYM << 1U) - 1;
    auto rights = first;
    if (version >= 2)
        rights |= LANDLOCK_ACCESS_FS_REFER;
    if (version >= 3)
        rights |= accessTruncate;
    if (version >= 5)
        rights |= accessIoctlDevice;
    return rights;
}

RulesetAttributes MakeAttributes(long version)
{
    RulesetAttributes attributes{.files = GetKnownRights(version)};
    if (version >= firstWithConnections)
        attributes.network = accessConnectTcp;
    if (version >= firstWithScopes)
        attributes.scopes = scopeAbstractUnixSockets | scopeSignals;
    return attributes;
}

/// Returns the size of the attributes that a version takes.
std::size_t GetAttributesSize(long version)
{
    if (version >= firstWithScopes)
        return sizeof(RulesetAttributes);
    return version >= firstWithConnections ? offsetof(RulesetAttributes, scopes)
                                           : offsetof(RulesetAttributes, network);
}

void AllowRoot(const Support::Descriptor& ruleset, const Root& root, std::uint64_t rights)
{
    const Support::Descriptor folder(open(root.real.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    landlock_path_beneath_attr rule = {};
    rule.allowed_access = rights;
    rule.parent_fd = folder.Get();
    if (!folder.IsOpen() ||
        syscall(SYS_landlock_add_rule, ruleset.Get(), LANDLOCK_RULE_PATH_BENEATH, &rule, 0) != 0)
        Support::ThrowSystemError("cannot allow the root '" + root.real.string() + "' in Landlock");
}

} // namespace

int RestrictWithLandlock(const std::vector<Root>& roots)
{
    const auto version =
        syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    if (version < 0 && (errno == ENOSYS || errno == EOPNOTSUPP))
        return 0;
    if (version < 0)
        Support::ThrowSystemError("cannot read the version of Landlock");

    const auto attributes = MakeAttributes(version);
    const Support::Descriptor ruleset(static_cast<int>(
        syscall(SYS_landlock_create_ruleset, &attributes, GetAttributesSize(version), 0)));
    if (!ruleset.IsOpen())
        Support::ThrowSystemError("cannot make a Landlock ruleset");
    for (const auto& root : roots)
        AllowRoot(ruleset, root, (root.isReadOnly ? reading : writing) & GetKnownRights(version));
    if (syscall(SYS_landlock_restrict_self, ruleset.Get(), 0) != 0)
        Support::ThrowSystemError("cannot restrict the process with Landlock");
    return static_cast<int>(version);
}

std::string DescribeLandlock(int version)
{
    std::string text = "files";
    if (version >= firstWithConnections)
        text += ", connections";
    if (version >= firstWithScopes)
        text += ", signals";
    return text;
}

} // namespace Host
