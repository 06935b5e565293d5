#include "Process/Console.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Host {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

StartSummary MakeSummary()
{
    StartSummary summary;
    summary.endpoint = "opc.tcp://localhost:12345";
    summary.roots = {{"/srv/files", "/srv/files", false}, {"/data", "/mnt/disk", true}};
    summary.sandbox = {true, false, 7, true};
    summary.admission = {true, true};
    summary.trustedFolder = "/pki/trusted";
    return summary;
}

TEST(WhatIsPrintedAtTheStart, NamesEndpointRootsSandboxAndLogins)
{
    EXPECT_THAT(Describe(MakeSummary()),
                AllOf(HasSubstr("opc.tcp://localhost:12345\n"), HasSubstr("/srv/files\n"),
                      HasSubstr("/data (/mnt/disk), read-only\n"),
                      HasSubstr("holds: mount namespace, Landlock 7 (files, connections, signals), "
                                "system call filter\n"),
                      HasSubstr("anybody on this machine, without a password\n"),
                      HasSubstr("possible, with any client's certificate\n"),
                      Not(HasSubstr("warning"))));
}

TEST(WhatIsPrintedAtTheStart, SaysThatLoginsAndEncryptionAreRequired)
{
    auto summary = MakeSummary();
    summary.admission = {};
    summary.users = 2;
    summary.trustsAnyClient = true;
    EXPECT_THAT(Describe(summary), AllOf(HasSubstr("2 users, with their passwords\n"),
                                         HasSubstr("required, with any client's certificate\n")));
}

TEST(WhatIsPrintedAtTheStart, SaysWhereTheTrustedCertificatesAre)
{
    auto summary = MakeSummary();
    summary.admission = {};
    summary.trustedClients = 1;
    EXPECT_THAT(Describe(summary),
                HasSubstr("required; certificates of clients must be in /pki/trusted\n"));
}

TEST(WhatIsPrintedAtTheStart, SaysHowTheFirstClientGetsIn)
{
    auto summary = MakeSummary();
    summary.admission = {};
    EXPECT_THAT(Describe(summary), HasSubstr("which has none yet: let a client connect, then see "
                                             "'talvensor-host rejected'\n"));
}

TEST(WhatIsPrintedAtTheStart, WarnsOfRootAndOfAMissingSandbox)
{
    auto summary = MakeSummary();
    summary.sandbox = {};
    summary.isRoot = true;
    EXPECT_THAT(Describe(summary), AllOf(HasSubstr("NONE: clients may reach everything"),
                                         HasSubstr("warning   runs as root")));
}

TEST(ASandboxReport, NamesItsLayers)
{
    EXPECT_EQ((SandboxReport{true, false, 7, true}).ToString(),
              "mount namespace, Landlock 7 (files, connections, signals), system call filter");
    EXPECT_EQ((SandboxReport{true, false, 5, true}).ToString(),
              "mount namespace, Landlock 5 (files, connections), system call filter");
    EXPECT_EQ((SandboxReport{true, false, 3, false}).ToString(),
              "mount namespace, Landlock 3 (files); the kernel has no system call filter");
    EXPECT_EQ((SandboxReport{true, true, 0, true}).ToString(),
              "mount namespace in a user namespace, system call filter; the kernel has no "
              "Landlock");
    EXPECT_EQ(SandboxReport{}.ToString(), "none");
}

} // namespace
} // namespace Host
