#include "Keys.h"

#include <gtest/gtest.h>

#include <random>
#include <set>

namespace {

using namespace FileObjects;

class AKey : public testing::Test
{
protected:
    Keys keys{{"files", "with/slash", "100%"}};
};

TEST_F(AKey, NamesTheNodeThatItWasMadeFor)
{
    const std::vector<Key> nodes = {
        {NodeKind::FileSystem, {}, {}},
        {NodeKind::Transfer, {}, {}},
        {NodeKind::Transfer, {}, "ClientProcessingTimeout"},
        {NodeKind::Directory, {0, ""}, {}},
        {NodeKind::Directory, {1, ""}, "Permissions"},
        {NodeKind::Directory, {2, "a/b"}, {}},
        {NodeKind::File, {1, "a/b c/d.txt"}, "Size"},
        {NodeKind::File, {0, "...."}, {}},
        {NodeKind::File, {0, "\xFF\xC3\x28 %41\n\x7F"}, {}},
        {NodeKind::File, {0, "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"}, {}},
        {NodeKind::Temporary, {0, "0123"}, "Size"},
    };
    std::set<std::string> texts;
    for (const auto& node : nodes) {
        const auto text = keys.Format(node);
        EXPECT_EQ(keys.Parse(text), node) << text;
        EXPECT_TRUE(texts.insert(text).second) << text;
    }
}

TEST_F(AKey, HasAFormThatStays)
{
    EXPECT_EQ(keys.Format({NodeKind::Directory, {0, ""}, {}}), "d/files");
    EXPECT_EQ(keys.Format({NodeKind::Directory, {1, "a"}, {}}), "d/with%2Fslash/a");
    EXPECT_EQ(keys.Format({NodeKind::File, {2, "a/b"}, "Size"}), "f.Size/100%25/a/b");
    EXPECT_EQ(keys.Format({NodeKind::File, {0, "\xFF\x01"}, {}}), "f/files/%FF%01");
    EXPECT_EQ(keys.Format({NodeKind::File, {0, "\xC3\xA4"}, {}}), "f/files/\xC3\xA4");
}

TEST_F(AKey, IsNothingElse)
{
    const std::string zero("f/files/a\0b", 11);
    for (const std::string text : {"d",
                                   "d/",
                                   "f",
                                   "f/files",
                                   "f/files/",
                                   "d/files/",
                                   "d/files//a",
                                   "d/files/a/",
                                   "f/files/.",
                                   "f/files/..",
                                   "f/files/../a",
                                   "f/files/a/..",
                                   "d/files/./a",
                                   "f/other/a",
                                   "d/other",
                                   "d/FILES",
                                   "q/files/a",
                                   "/files/a",
                                   "files/a",
                                   "dd/files/a",
                                   "d.",
                                   "d./files",
                                   "t/",
                                   "t/x",
                                   "t.",
                                   "x/files",
                                   "x",
                                   "f/files/%2F",
                                   "f/files/%2f",
                                   "f/files/%41",
                                   "f/files/%",
                                   "f/files/%0",
                                   "f/files/%zz",
                                   "f/files/%00",
                                   "f/files/%2E%2E",
                                   "f/files/%2E",
                                   "f/files/\xFF",
                                   "f/files/\xC3\x28",
                                   "f/files/\xED\xA0\x80",
                                   "f/files/\xC0\xAF",
                                   "f/files/\x01",
                                   "f/files/\xF5\x80\x80\x80",
                                   "f/with/slash/a",
                                   "d/files\n",
                                   " d/files"})
        EXPECT_EQ(keys.Parse(text), std::nullopt) << text;
    EXPECT_EQ(keys.Parse(zero), std::nullopt);
}

TEST_F(AKey, IsNotTooLong)
{
    const std::string longest = "f/files/" + std::string(Keys::maximumLength - 32 - 8, 'a');
    EXPECT_TRUE(keys.Parse(longest));
    EXPECT_TRUE(keys.Parse("f.MaxByteStringLength" + longest.substr(1)));
    EXPECT_FALSE(keys.Parse(longest + "a"));
    EXPECT_FALSE(keys.Parse(std::string(1'000'000, 'a')));
    EXPECT_EQ(keys.Format({NodeKind::File, {0, longest.substr(8) + "a"}, {}}), "");
    const auto prefix = keys.MakePrefix(NodeKind::File, {0, longest.substr(8)});
    EXPECT_EQ(Keys::FormatChild(prefix, "a"), "");
    const auto tooLong = keys.MakePrefix(NodeKind::File, {0, longest.substr(8) + "a"});
    EXPECT_EQ(Keys::FormatChild(tooLong, "a"), "");
}

TEST_F(AKey, OfAChildIsTheSameMadeInParts)
{
    const Place directory{2, "a b/\xFF"};
    for (const std::string name : {"c", "\xFE", "%", "\xC3\xA4"})
        for (const auto kind : {NodeKind::File, NodeKind::Directory})
            EXPECT_EQ(Keys::FormatChild(keys.MakePrefix(kind, directory), name),
                      keys.Format({kind, GetChild(directory, name), {}}));
}

TEST_F(AKey, OfAnyBytesIsKnownOrRefused)
{
    std::mt19937 random(1); // NOLINT(cert-msc51-cpp): the same bytes each time
    const std::string alphabet("dfxt./%.2FEe0Asizefls\xC3\xA4\xFF\0", 25);
    std::size_t known = 0;
    for (int round = 0; round < 200'000; ++round) {
        std::string text = round % 2 == 0 ? "f/files" : "";
        for (auto length = random() % 12; length > 0; --length)
            text += alphabet[random() % alphabet.size()];
        const auto key = keys.Parse(text);
        if (!key)
            continue;
        ++known;
        EXPECT_EQ(keys.Format(*key), text);
        if (!key->place.path.empty()) {
            EXPECT_TRUE(IsFilePath(key->place.path)) << text;
        }
    }
    EXPECT_GT(known, 100U);
}

TEST(APlace, IsBelowItsParentsOnly)
{
    EXPECT_TRUE(IsBelow({0, "a/b"}, {0, "a"}));
    EXPECT_TRUE(IsBelow({0, "a/b/c"}, {0, "a"}));
    EXPECT_TRUE(IsBelow({0, "a"}, {0, ""}));
    EXPECT_FALSE(IsBelow({0, "a"}, {0, "a"}));
    EXPECT_FALSE(IsBelow({0, "ab"}, {0, "a"}));
    EXPECT_FALSE(IsBelow({1, "a/b"}, {0, "a"}));
    EXPECT_EQ(GetParent({0, "a/b"}), (Place{0, "a"}));
    EXPECT_EQ(GetParent({0, "a"}), (Place{0, ""}));
    EXPECT_EQ(GetName("a/b"), "b");
    EXPECT_EQ(GetName("a"), "a");
}

} // namespace
