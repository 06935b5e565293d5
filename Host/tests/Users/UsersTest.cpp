#include "Users/Users.h"

#include "Core/Exception.h"
#include "TemporaryFolder.h"

#include <crypt.h>
#include <cstring>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string_view>
#include <sys/stat.h>
#include <thread>
#include <vector>

/// The algorithm and cost of each hashing on this thread.
static thread_local std::vector<std::string> hashings;

/// Stands before the system's function in this program, and calls it.
extern "C" char* crypt_r(const char* phrase, const char* setting, crypt_data* data) noexcept
{
    const std::string_view all = setting;
    hashings.emplace_back(all.substr(0, all.find('$', std::strlen("$y$"))));
    static const auto next = reinterpret_cast<decltype(&crypt_r)>(dlsym(RTLD_NEXT, "crypt_r"));
    return next(phrase, setting, data);
}

namespace Host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

class AUserFile : public testing::Test
{
protected:
    void Write(const std::string& content, mode_t mode = S_IRUSR | S_IWUSR)
    {
        std::ofstream(file) << content;
        chmod(file.c_str(), mode);
    }

    /// Returns the message about a file that cannot be used.
    std::string GetComplaint()
    {
        try {
            const Users users(file);
            return {};
        } catch (const std::exception& error) {
            return error.what();
        }
    }

    TemporaryFolder folder;
    std::filesystem::path file = folder.GetPath() / "users";
};

TEST_F(AUserFile, LetsThoseInWhosePasswordWasSet)
{
    SetPassword(file, "ann", "one");
    SetPassword(file, "bob", "zwei \xC3\xA4");
    const Users users(file);
    EXPECT_EQ(users.GetSize(), 2U);
    EXPECT_TRUE(users.Verify("ann", "one"));
    EXPECT_TRUE(users.Verify("bob", "zwei \xC3\xA4"));
    EXPECT_FALSE(users.Verify("ann", "two"));
    EXPECT_FALSE(users.Verify("ann", "zwei \xC3\xA4"));
    EXPECT_FALSE(users.Verify("cleo", "one"));
}

TEST_F(AUserFile, HoldsNoPassword)
{
    SetPassword(file, "ann", "correct horse");
    EXPECT_THAT(ReadWhole(file), StartsWith("ann:$y$"));
    EXPECT_THAT(ReadWhole(file), testing::Not(HasSubstr("horse")));
}

TEST_F(AUserFile, HoldsAnotherHashForTheSamePassword)
{
    SetPassword(file, "ann", "same");
    const auto first = ReadWhole(file);
    SetPassword(file, "ann", "same");
    EXPECT_NE(ReadWhole(file), first);
}

TEST_F(AUserFile, IsForItsOwnerAlone)
{
    SetPassword(file, "ann", "one");
    struct stat status = {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(AUserFile, KeepsItsOtherLinesWhenAPasswordIsChanged)
{
    SetPassword(file, "ann", "one");
    SetPassword(file, "bob", "two");
    Write("# staff\n\n" + ReadWhole(file) + "# end");
    const auto before = ReadWhole(file);
    SetPassword(file, "ann", "three");
    const auto after = ReadWhole(file);
    EXPECT_THAT(after, StartsWith("# staff\n\nann:"));
    EXPECT_EQ(after.substr(after.find("bob:")), before.substr(before.find("bob:")) + "\n");
    const Users users(file);
    EXPECT_FALSE(users.Verify("ann", "one"));
    EXPECT_TRUE(users.Verify("ann", "three"));
    EXPECT_TRUE(users.Verify("bob", "two"));
}

TEST_F(AUserFile, IsReplacedWhereALinkLeads)
{
    SetPassword(file, "ann", "one");
    const auto link = folder.GetPath() / "link";
    std::filesystem::create_symlink("users", link);
    SetPassword(link, "bob", "two");
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(Users(file).GetSize(), 2U);
}

TEST_F(AUserFile, LeavesNoTemporaryFileBehind)
{
    SetPassword(file, "ann", "one");
    EXPECT_THROW(SetPassword(folder.GetPath() / "nowhere" / "users", "ann", "one"),
                 std::system_error);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.GetPath()), {}), 1);
}

TEST_F(AUserFile, HashesAsMuchForAnUnknownUserAsForAKnownOne)
{
    SetPassword(file, "ann", "one");
    const Users users(file);
    const auto verify = [&users](const std::string& name, const std::string& password) {
        hashings.clear();
        EXPECT_FALSE(users.Verify(name, password));
        return hashings;
    };
    const auto known = verify("ann", "wrong");
    ASSERT_THAT(known, ElementsAre(StartsWith("$y$")));
    EXPECT_EQ(verify("bob", "wrong"), known);
    EXPECT_EQ(verify("ann", ""), known);
    EXPECT_EQ(verify("bob", std::string(100'000, 'x')), known);
}

TEST_F(AUserFile, IsReadByManyThreads)
{
    SetPassword(file, "ann", "one");
    const Users users(file);
    std::vector<std::jthread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([&users] {
            EXPECT_TRUE(users.Verify("ann", "one"));
            EXPECT_FALSE(users.Verify("bob", "one"));
        });
    }
}

TEST_F(AUserFile, LetsNobodyInWithAnEmptyOrAShortenedPassword)
{
    SetPassword(file, "ann", "one");
    const Users users(file);
    EXPECT_FALSE(users.Verify("ann", ""));
    EXPECT_FALSE(users.Verify("ann", std::string("one\0more", 8)));
    EXPECT_FALSE(users.Verify("", ""));
}

TEST_F(AUserFile, TakesNoPasswordThatCouldNotBeChecked)
{
    EXPECT_THROW(SetPassword(file, "ann", ""), Core::InvalidArgumentException);
    EXPECT_THROW(SetPassword(file, "ann", std::string("a\0b", 3)), Core::InvalidArgumentException);
    EXPECT_THROW(SetPassword(file, "ann", std::string(512, 'x')), Core::InvalidArgumentException);
    EXPECT_FALSE(std::filesystem::exists(file));
    SetPassword(file, "ann", std::string(511, 'x'));
    EXPECT_TRUE(Users(file).Verify("ann", std::string(511, 'x')));
}

TEST_F(AUserFile, TakesNoNameThatWouldBreakIt)
{
    for (const auto& name :
         {std::string(), std::string("a:b"), std::string("a\nb"), std::string("#a"),
          std::string(" a"), std::string("a "), std::string("a\0b", 3), std::string(65, 'a')}) {
        EXPECT_THROW(SetPassword(file, name, "one"), Core::InvalidArgumentException) << name;
    }
    SetPassword(file, std::string(64, 'a'), "one");
    SetPassword(file, "J\xC3\xBCrgen M", "one");
    EXPECT_EQ(Users(file).GetSize(), 2U);
}

TEST_F(AUserFile, CannotBeUsedWhenOthersCanReadIt)
{
    SetPassword(file, "ann", "one");
    chmod(file.c_str(), 0604);
    EXPECT_THAT(GetComplaint(), HasSubstr("chmod 600"));
    chmod(file.c_str(), 0620);
    EXPECT_THAT(GetComplaint(), HasSubstr("chmod 600"));
    chmod(file.c_str(), 0640);
    EXPECT_EQ(GetComplaint(), "");
}

TEST_F(AUserFile, CannotBeUsedWithoutUsers)
{
    EXPECT_THAT(GetComplaint(), HasSubstr("': No such file or directory"));
    Write("# nobody\n\n");
    EXPECT_THAT(GetComplaint(), HasSubstr("has no users"));
    Write("");
    EXPECT_THAT(GetComplaint(), HasSubstr("has no users"));
}

TEST_F(AUserFile, NamesTheLineThatCannotBeUsed)
{
    Write("# staff\nann\n");
    EXPECT_THAT(GetComplaint(), HasSubstr("users', line 2: no colon"));
    Write("ann:secret\n");
    EXPECT_THAT(GetComplaint(), HasSubstr("line 1: the hash of 'ann' is not one"));
    Write("ann:$1$abcdefgh$0123456789012345678901\n");
    EXPECT_THAT(GetComplaint(), HasSubstr("line 1: the hash of 'ann' is not one"));
    Write(":$y$\n");
    EXPECT_THAT(GetComplaint(), HasSubstr("line 1: the user name ''"));
    SetPassword(folder.GetPath() / "other", "ann", "one");
    const auto line = ReadWhole(folder.GetPath() / "other");
    Write(line + line);
    EXPECT_THAT(GetComplaint(), HasSubstr("line 2: 'ann' is listed twice"));
}

} // namespace
} // namespace Host
