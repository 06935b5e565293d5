#include "Process/PathTrust.h"

#include "Core/Exception.h"
#include "RunProgram.h"
#include "TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Host {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using Path = std::filesystem::path;

constexpr uid_t nobody = 65534;

class AFileThatTheHostReads : public testing::Test
{
protected:
    /// Empty: it is trusted.
    [[nodiscard]] std::string GetComplaint(const Path& path, FileUse use = FileUse::Read,
                                           std::optional<uid_t> furtherOwner = {}) const
    {
        std::vector<Root> roots = {MakeRoot(root, false), MakeRoot(readOnly, true)};
        try {
            PathTrust(roots, furtherOwner).Check(path, use);
        } catch (const Core::InvalidArgumentException& error) {
            return error.GetMessage();
        }
        return {};
    }

    Path MakeLink(const std::string& name, const Path& target) const
    {
        const auto link = folder.GetPath() / name;
        std::filesystem::create_symlink(target, link);
        return link;
    }

    TemporaryFolder folder;
    Path root = folder.MakeFolder("root");
    Path readOnly = folder.MakeFolder("read-only");
    Path settings = folder.MakeFolder("settings");
    Path file = folder.MakeFile("settings/file");
};

TEST_F(AFileThatTheHostReads, IsTrustedWhereOnlyItsUserAndRootCanReplaceIt)
{
    EXPECT_THAT(GetComplaint(file), IsEmpty());
    EXPECT_THAT(GetComplaint(settings / "not" / "yet"), IsEmpty());
    EXPECT_THAT(GetComplaint(MakeLink("link", "settings/../settings/file")), IsEmpty());
    EXPECT_THAT(GetComplaint(readOnly / "file"), IsEmpty());
}

TEST_F(AFileThatTheHostReads, IsRefusedBehindALinkThatClientsCanReplace)
{
    const auto link = MakeLink("root/link", file);
    const auto expected = AllOf(HasSubstr("lies inside the root '" + root.string() + "'"),
                                HasSubstr("clients could change it"));
    EXPECT_THAT(GetComplaint(link), expected);
    EXPECT_THAT(GetComplaint(MakeLink("link-to-link", link)),
                AllOf(expected, HasSubstr("leads by way of '" + root.string())));
    EXPECT_THAT(GetComplaint(MakeLink("link-above", "root/folder/..") / "link"), expected);
    MakeLink("root/link-to-folder", settings);
    EXPECT_THAT(GetComplaint(root / "link-to-folder" / "file"), expected);
    EXPECT_THAT(GetComplaint(link, FileUse::Append), expected);
    EXPECT_THAT(GetComplaint(link, FileUse::Run), expected);
}

TEST_F(AFileThatTheHostReads, IsRefusedWhereClientsCouldMakeIt)
{
    EXPECT_THAT(GetComplaint(root / "not-yet"), HasSubstr("clients could change it"));
    EXPECT_THAT(GetComplaint(MakeLink("link", root) / "not" / "yet"),
                HasSubstr("clients could change it"));
}

TEST_F(AFileThatTheHostReads, IsRefusedInAReadOnlyRootIfItIsSecret)
{
    EXPECT_THAT(GetComplaint(readOnly / "file", FileUse::ReadSecret),
                HasSubstr("clients could read it"));
    EXPECT_THAT(GetComplaint(readOnly / "log", FileUse::Append),
                HasSubstr("clients could read it"));
}

TEST_F(AFileThatTheHostReads, IsRefusedWhereOthersMayWrite)
{
    chmod(file.c_str(), 0666);
    EXPECT_THAT(GetComplaint(file), AllOf(HasSubstr("'" + file.string() + "' can be changed"),
                                          HasSubstr("chmod go-w")));
    chmod(file.c_str(), 0600);
    chmod(settings.c_str(), 0777);
    EXPECT_THAT(GetComplaint(file), HasSubstr("'" + settings.string() + "', on the way to it"));
    EXPECT_THAT(GetComplaint(MakeLink("link", file)), HasSubstr("'" + settings.string() + "'"));
    EXPECT_THAT(GetComplaint(file, FileUse::Append), IsEmpty());
    chmod(settings.c_str(), 01777);
    EXPECT_THAT(GetComplaint(file), IsEmpty());
}

TEST_F(AFileThatTheHostReads, IsRefusedWhereAnotherUserCouldReplaceIt)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can give files away";
    const auto link = MakeLink("link", file);
    ASSERT_EQ(lchown(link.c_str(), nobody, nobody), 0);
    const auto owner = HasSubstr("belongs to ");
    EXPECT_THAT(GetComplaint(link), AllOf(owner, HasSubstr("65534")));
    EXPECT_THAT(GetComplaint(link, FileUse::Append), owner);
    EXPECT_THAT(GetComplaint(link, FileUse::Read, nobody), IsEmpty());
    ASSERT_EQ(chown(settings.c_str(), nobody, nobody), 0);
    EXPECT_THAT(GetComplaint(file), AllOf(owner, HasSubstr("'" + settings.string() + "'")));
    EXPECT_THAT(GetComplaint(file, FileUse::ReadSecret, nobody), IsEmpty());
}

TEST_F(AFileThatTheHostReads, MayBeWrittenByAGroupThatHoldsItsOwnerAlone)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can choose among groups";
    chmod(file.c_str(), 0664);
    EXPECT_THAT(GetComplaint(file), IsEmpty()); // of the group root, which has no more members
    ASSERT_EQ(chown(file.c_str(), 0, nobody), 0);
    EXPECT_THAT(GetComplaint(file), HasSubstr("can be changed by others"));
}

TEST_F(AFileThatTheHostReads, EndsNoWayInACircleOfLinks)
{
    MakeLink("one", "two");
    EXPECT_THAT(GetComplaint(MakeLink("two", "one")), IsEmpty()); // reading it fails
}

/// For a process of its own, whose mounts nobody else sees.
void EnterPrivateMounts()
{
    if (unshare(CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        std::_Exit(2);
}

TEST_F(AFileThatTheHostReads, IsRefusedWhereAMountLetsClientsReachIt)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can mount";
    const auto inner = folder.MakeFolder("root/inner");
    const auto elsewhere = folder.MakeFolder("elsewhere");
    const auto tryMount = [&](const Path& from, const Path& to, const Path& read) {
        EnterPrivateMounts();
        if (mount(from.c_str(), to.c_str(), nullptr, MS_BIND, nullptr) != 0)
            std::_Exit(3);
        std::_Exit(GetComplaint(read).find("clients could change it") == std::string::npos ? 1 : 0);
    };
    // Of a folder of the root, outside it; and of a folder outside it, inside.
    EXPECT_EXIT(tryMount(inner, elsewhere, elsewhere / "file"), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(tryMount(settings, inner, file), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(tryMount(settings, elsewhere, file), testing::ExitedWithCode(1), "");
}

} // namespace
} // namespace Host
