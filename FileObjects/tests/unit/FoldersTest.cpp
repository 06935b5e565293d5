#include "Folders.h"

#include "TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>

namespace {

using namespace FileObjects;

class FoldersInEachOther : public testing::Test
{
protected:
    FoldersInEachOther()
    {
        std::filesystem::create_directories(around / "outer/inner");
        std::filesystem::create_symlink("outer/inner", around / "link");
    }

    [[nodiscard]] std::optional<Place> Find(const std::string& path) const
    {
        const Folders folders({{"outer", real + "/outer", false},
                               {"inner", real + "/outer/inner", true},
                               {"missing", real + "/missing", false}});
        return folders.Find(path);
    }

    FileSystemTests::TemporaryFolder around;
    const std::string real = std::filesystem::canonical(around.GetPath()).string();
};

TEST_F(FoldersInEachOther, HaveThePathsThatBeginWithTheLongerOne)
{
    EXPECT_EQ(Find(real + "/outer"), (Place{0, ""}));
    EXPECT_EQ(Find(real + "/outer/a/b"), (Place{0, "a/b"}));
    EXPECT_EQ(Find(real + "/outer/inner"), (Place{1, ""}));
    EXPECT_EQ(Find(real + "/outer/inner/a"), (Place{1, "a"}));
    EXPECT_EQ(Find(real + "/outer/inner 2"), (Place{0, "inner 2"}));
    EXPECT_EQ(Find(real + "/missing/a"), (Place{2, "a"})) << "it may be mounted later";
}

TEST_F(FoldersInEachOther, AreFoundByALinkToThem)
{
    EXPECT_EQ(Find(real + "/link"), (Place{1, ""}));
    EXPECT_EQ(Find(real + "/link/a/b"), (Place{1, "a/b"}));
}

TEST_F(FoldersInEachOther, HaveNothingAboveOrBesideThem)
{
    for (const std::string& path : {std::string("/"), std::string("/etc"), real, real + "/out",
                                    real + "/outer2", real + "/outer2/a", std::string()})
        EXPECT_EQ(Find(path), std::nullopt) << path;
}

} // namespace
