#include "FileObjectsFixture.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <sys/stat.h>

namespace {

using namespace FileObjectsTests;

constexpr const char* file = "f/files/file";
constexpr const char* directory = "d/files";

Core::Value Mode(int mode)
{
    return static_cast<unsigned char>(mode);
}

/// A statement of OPC 10000-20, and a check of it.
struct Statement
{
    const char* clause;
    const char* name; ///< what is said, as the name of the test
    std::function<void(class TheStandard&)> check;
};

/// "files" holds "file" with "content" and an empty "directory"; "fixed" holds "file".
class TheStandard : public AFileTree, public testing::WithParamInterface<Statement>
{
public:
    TheStandard()
    {
        folder.MakeFile("file", "content");
        fixed.MakeFile("file", "content");
        std::filesystem::create_directory(folder / "directory");
    }

    std::uint32_t Call(const char* key, const char* method, const Values& inputs)
    {
        return client.Call(key, method, inputs);
    }
};

TEST_P(TheStandard, Holds)
{
    GetParam().check(*this);
}

const std::vector<Statement> fileType = {
    {"4.2.1", "SizeIsInBytes",
     [](TheStandard& t) {
         EXPECT_EQ(t.ReadProperty<unsigned long>("f.Size/files/file"), 7U);
     }},
    {"4.2.1", "SizeIsThatOfTheMoment",
     [](TheStandard& t) {
         const auto handle = t.client.Open(file, 2 + 8);
         t.client.Write(file, handle, " more");
         EXPECT_EQ(t.ReadProperty<unsigned long>("f.Size/files/file"), 12U);
     }},
    {"4.2.1", "WritableTellsWhetherTheFileCanBeWritten",
     [](TheStandard& t) {
         EXPECT_TRUE(t.ReadProperty<bool>("f.Writable/files/file"));
         EXPECT_FALSE(t.ReadProperty<bool>("f.Writable/fixed/file"));
     }},
    {"4.2.1", "WritableDoesNotChangeWithLocks",
     [](TheStandard& t) {
         t.client.Open(file, 2);
         EXPECT_TRUE(t.ReadProperty<bool>("f.Writable/files/file"));
     }},
    {"4.2.1", "UserWritableTellsTheSameForTheUser",
     [](TheStandard& t) {
         EXPECT_TRUE(t.ReadProperty<bool>("f.UserWritable/files/file"));
         EXPECT_FALSE(t.ReadProperty<bool>("f.UserWritable/fixed/file"));
     }},
    {"4.2.1", "OpenCountIsTheNumberOfValidHandles",
     [](TheStandard& t) {
         EXPECT_EQ(t.ReadProperty<unsigned short>("f.OpenCount/files/file"), 0);
         const auto first = t.client.Open(file, 1);
         t.client.Open(file, 1);
         t.other.Open(file, 1);
         EXPECT_EQ(t.ReadProperty<unsigned short>("f.OpenCount/files/file"), 3);
         t.client.Close(file, first);
         t.other.End();
         EXPECT_EQ(t.ReadProperty<unsigned short>("f.OpenCount/files/file"), 1);
     }},
    {"4.2.1", "MimeTypeIsThatOfTheName",
     [](TheStandard& t) {
         EXPECT_EQ(t.ReadProperty<std::string>("f.MimeType/files/file"),
                   "application/octet-stream");
         if (std::filesystem::exists("/usr/share/mime/globs2")) {
             EXPECT_EQ(t.ReadProperty<std::string>("f.MimeType/files/a.html"), "text/html");
         }
     }},
    {"4.2.1", "MaxByteStringLengthIsWhatOneReadReturns",
     [](TheStandard& t) {
         const auto most = t.ReadProperty<unsigned int>("f.MaxByteStringLength/files/file");
         t.folder.MakeFile("file", std::string(most + 1, 'x'));
         const auto handle = t.client.Open(file, 1);
         EXPECT_EQ(t.client.Read(file, handle, 0x7FFFFFFF).size(), most);
         EXPECT_EQ(t.client.Read(file, handle, 0x7FFFFFFF).size(), 1U);
     }},
    {"4.2.1", "LastModifiedTimeIsThatOfTheFile",
     [](TheStandard& t) {
         const auto time = Core::DateTime::FromTicks(Core::DateTime::unixEpochTicks + 12345670);
         EXPECT_EQ(t.Call(file, "SetLastModifiedTime", {time}), Code::Good);
         EXPECT_EQ(t.ReadProperty<Core::DateTime>("f.LastModifiedTime/files/file"), time);
     }},

    {"4.2.2", "OpenReturnsAHandleThatIsNotZero",
     [](TheStandard& t) {
         EXPECT_NE(t.client.Open(file, 1), 0U);
     }},
    {"4.2.2", "HandlesAreUnique",
     [](TheStandard& t) {
         EXPECT_NE(t.client.Open(file, 1), t.client.Open(file, 1));
     }},
    {"4.2.2", "HandlesAreOfNoUseToOtherSessions",
     [](TheStandard& t) {
         const auto handle = t.client.Open(file, 3);
         EXPECT_EQ(t.other.Call(file, "Read", {handle, 1}), Code::Bad_InvalidArgument);
         EXPECT_EQ(t.other.Write(file, handle, "x"), Code::Bad_InvalidArgument);
         EXPECT_EQ(t.other.Call(file, "GetPosition", {handle}), Code::Bad_InvalidArgument);
         EXPECT_EQ(t.other.SetPosition(file, handle, 0), Code::Bad_InvalidArgument);
         EXPECT_EQ(t.other.Close(file, handle), Code::Bad_InvalidArgument);
         EXPECT_EQ(t.client.Read(file, handle), "content");
     }},
    {"4.2.2", "HandlesAreOfNoUseToOtherFiles",
     [](TheStandard& t) {
         t.folder.MakeFile("b", "other");
         const auto handle = t.client.Open(file, 1);
         EXPECT_EQ(t.Call("f/files/b", "Read", {handle, 1}), Code::Bad_InvalidArgument);
     }},
    {"4.2.2", "HandlesEndWithTheSession",
     [](TheStandard& t) {
         t.other.Open(file, 2);
         EXPECT_EQ(t.client.Open(file, 2), 0U);
         t.other.End();
         EXPECT_NE(t.client.Open(file, 2), 0U);
     }},
    {"4.2.2", "AFileCanBeOpenSeveralTimesForReading",
     [](TheStandard& t) {
         const auto first = t.client.Open(file, 1);
         const auto second = t.other.Open(file, 1);
         EXPECT_EQ(t.client.Read(file, first, 3), "con");
         EXPECT_EQ(t.other.Read(file, second), "content");
         EXPECT_EQ(t.client.Read(file, first), "tent");
     }},
    {"4.2.2", "OpeningForWritingIsBad_NotWritableWhenTheFileIsOpen",
     [](TheStandard& t) {
         const auto reader = t.other.Open(file, 1);
         for (const int mode : {2, 3, 6, 7, 10, 11})
             EXPECT_EQ(t.Call(file, "Open", {Mode(mode)}), Code::Bad_NotWritable);
         EXPECT_EQ(t.other.Read(file, reader), "content") << "nothing was erased";
         t.other.Close(file, reader);
         t.other.Open(file, 2);
         EXPECT_EQ(t.Call(file, "Open", {Mode(2)}), Code::Bad_NotWritable);
     }},
    {"4.2.2", "OpeningForReadingIsBad_NotReadableWhenTheFileIsOpenForWriting",
     [](TheStandard& t) {
         t.other.Open(file, 2);
         EXPECT_EQ(t.Call(file, "Open", {Mode(1)}), Code::Bad_NotReadable);
     }},
    {"4.2.2", "LocksHoldForAllNamesOfAFile",
     [](TheStandard& t) {
         std::filesystem::create_hard_link(t.folder / "file", t.folder / "hard");
         std::filesystem::create_symlink("file", t.folder / "soft");
         t.other.Open(file, 2);
         for (const char* key : {"f/files/hard", "f/files/soft"})
             EXPECT_EQ(t.Call(key, "Open", {Mode(1)}), Code::Bad_NotReadable);
     }},
    {"4.2.2", "WithoutTheReadBitReadIsBad_InvalidState",
     [](TheStandard& t) {
         const auto handle = t.client.Open(file, 2);
         EXPECT_EQ(t.Call(file, "Read", {handle, 1}), Code::Bad_InvalidState);
     }},
    {"4.2.2", "WithoutTheWriteBitWriteIsBad_InvalidState",
     [](TheStandard& t) {
         const auto handle = t.client.Open(file, 1);
         EXPECT_EQ(t.client.Write(file, handle, "x"), Code::Bad_InvalidState);
     }},
    {"4.2.2", "EraseExistingLeavesAnEmptyFile",
     [](TheStandard& t) {
         EXPECT_NE(t.client.Open(file, 2 + 4), 0U);
         EXPECT_EQ(ReadWholeFile(t.folder / "file"), "");
     }},
    {"4.2.2", "EraseExistingNeedsTheWriteBit",
     [](TheStandard& t) {
         for (const int mode : {4, 5, 12, 13})
             EXPECT_EQ(t.Call(file, "Open", {Mode(mode)}), Code::Bad_InvalidArgument);
         EXPECT_EQ(ReadWholeFile(t.folder / "file"), "content");
     }},
    {"4.2.2", "WithoutEraseExistingTheContentStays",
     [](TheStandard& t) {
         const auto handle = t.client.Open(file, 2);
         t.client.Write(file, handle, "CON");
         EXPECT_EQ(ReadWholeFile(t.folder / "file"), "CONtent");
     }},
    {"4.2.2", "AppendBeginsAtTheEndAndSetPositionCanChangeThat",
     [](TheStandard& t) {
         const auto handle = t.client.Open(file, 2 + 8);
         EXPECT_EQ(t.client.GetPosition(file, handle), 7U);
         t.client.Write(file, handle, "!");
         t.client.SetPosition(file, handle, 0);
         t.client.Write(file, handle, "C");
         EXPECT_EQ(ReadWholeFile(t.folder / "file"), "Content!");
     }},
    {"4.2.2", "WithoutAppendAFileBeginsAtTheBeginning",
     [](TheStandard& t) {
         EXPECT_EQ(t.client.GetPosition(file, t.client.Open(file, 1)), 0U);
     }},
    {"4.2.2", "AppendToAnErasedFileBeginsAtTheBeginning",
     [](TheStandard& t) {
         EXPECT_EQ(t.client.GetPosition(file, t.client.Open(file, 2 + 4 + 8)), 0U);
     }},
    {"4.2.2", "ReservedBitsAndNoBitsAreBad_InvalidArgument",
     [](TheStandard& t) {
         for (const int mode : {0, 8, 16, 17, 32 + 1, 64 + 2, 128 + 3, 255})
             EXPECT_EQ(t.Call(file, "Open", {Mode(mode)}), Code::Bad_InvalidArgument);
     }},
    {"4.2.2", "AFileThatIsNotThereIsBad_NotFound",
     [](TheStandard& t) {
         for (const int mode : {1, 2, 6})
             EXPECT_EQ(t.Call("f/files/none", "Open", {Mode(mode)}), Code::Bad_NotFound);
         EXPECT_EQ(t.client.GetMessage(), "files/none: No such file or directory");
         EXPECT_FALSE(std::filesystem::exists(t.folder / "none"));
     }},
    {"4.2.2", "AFileThatCannotBeWrittenIsBad_NotWritable",
     [](TheStandard& t) {
         EXPECT_EQ(t.Call("f/fixed/file", "Open", {Mode(2)}), Code::Bad_NotWritable);
         EXPECT_NE(t.client.Open("f/fixed/file", 1), 0U);
     }},

    {"4.2.3", "CloseEndsTheHandle",
     [](TheStandard& t) {
         const auto handle = t.client.Open(file, 1);
         EXPECT_EQ(t.client.Close(file, handle), Code::Good);
         EXPECT_EQ(t.Call(file, "Read", {handle, 1}), Code::Bad_InvalidArgument);
     }},
    {"4.2.3", "CloseOfAnotherHandleIsBad_InvalidArgument",
     [](TheStandard& t) {
         const auto handle = t.client.Open(file, 1);
         EXPECT_EQ(t.client.Close(file, handle + 1), Code::Bad_InvalidArgument);
         EXPECT_EQ(t.client.Close(file, 0), Code::Bad_InvalidArgument);
         t.client.Close(file, handle);
         EXPECT_EQ(t.client.Close(file, handle), Code::Bad_InvalidArgument);
     }},

    {"4.2.4", "ReadAdvancesThePosition",
     [](TheStandard& t) {
         const auto handle = t.client.Open(file, 1);
         EXPECT_EQ(t.client.Read(file, handle, 3), "con");
         EXPECT_EQ(t.client.GetPosition(file, handle), 3U);
         EXPECT_EQ(t.client.Read(file, handle, 3), "ten");
     }},
    {"4.2.4", "ReadReturnsAllUntilTheEnd",
     [](TheStandard& t) {
         EXPECT_EQ(t.client.Read(file, t.client.Open(file, 1), 1000), "content");
     }},
    {"4.2.4", "AnEmptyByteStringIsTheEnd",
     [](TheStandard& t) {
         const auto handle = t.client.Open(file, 1 + 8);
         EXPECT_EQ(t.Call(file, "Read", {handle, 1}), Code::Good);
         EXPECT_EQ(t.client.GetOutputs().at(0).GetKind(), Core::ValueKind::ByteString);
         EXPECT_TRUE(t.client.GetOutputs().at(0).GetByteString().empty());
     }},
    {"4.2.4", "LengthsThatAreNotPositiveAreBad_InvalidArgument",
     [](TheStandard& t) {
         const auto handle = t.client.Open(file, 1);
         for (const int length : {0, -1, -0x7FFFFFFF - 1})
             EXPECT_EQ(t.Call(file, "Read", {handle, length}), Code::Bad_InvalidArgument);
     }},

    {"4.2.5", "WriteAdvancesThePosition",
     [](TheStandard& t) {
         const auto handle = t.client.Open(file, 3);
         EXPECT_EQ(t.client.Write(file, handle, "CONT"), Code::Good);
         EXPECT_EQ(t.client.GetPosition(file, handle), 4U);
         EXPECT_EQ(t.client.Read(file, handle), "ent");
     }},
    {"4.2.5", "AnEmptyOrNullByteStringIsGoodWithoutEffect",
     [](TheStandard& t) {
         const auto handle = t.client.Open(file, 2);
         EXPECT_EQ(t.client.Write(file, handle, ""), Code::Good);
         EXPECT_EQ(t.Call(file, "Write", {handle, Core::Value()}), Code::Good);
         EXPECT_EQ(ReadWholeFile(t.folder / "file"), "content");
     }},
    {"4.2.5", "WriteWithAnotherHandleIsBad_InvalidArgument",
     [](TheStandard& t) {
         EXPECT_EQ(t.client.Write(file, 1, "x"), Code::Bad_InvalidArgument);
     }},

    {"4.2.6", "GetPositionWithAnotherHandleIsBad_InvalidArgument",
     [](TheStandard& t) {
         EXPECT_EQ(t.Call(file, "GetPosition", {1U}), Code::Bad_InvalidArgument);
     }},
    {"4.2.7", "ReadAndWriteStartWhereSetPositionSays",
     [](TheStandard& t) {
         const auto handle = t.client.Open(file, 3);
         t.client.SetPosition(file, handle, 3);
         EXPECT_EQ(t.client.Read(file, handle, 1), "t");
         t.client.SetPosition(file, handle, 6);
         t.client.Write(file, handle, "T!");
         EXPECT_EQ(ReadWholeFile(t.folder / "file"), "contenT!");
     }},
    {"4.2.7", "APositionBehindTheEndIsTheEnd",
     [](TheStandard& t) {
         const auto handle = t.client.Open(file, 1);
         for (const unsigned long position : {8UL, ~0UL}) {
             EXPECT_EQ(t.client.SetPosition(file, handle, position), Code::Good);
             EXPECT_EQ(t.client.GetPosition(file, handle), 7U);
         }
     }},
    {"4.2.7", "SetPositionWithAnotherHandleIsBad_InvalidArgument",
     [](TheStandard& t) {
         EXPECT_EQ(t.client.SetPosition(file, 1, 0), Code::Bad_InvalidArgument);
     }},
};

const std::vector<Statement> fileDirectoryType = {
    {"4.3.3", "CreateDirectoryReturnsItsNode",
     [](TheStandard& t) {
         EXPECT_EQ(t.Call(directory, "CreateDirectory", {"new"}), Code::Good);
         EXPECT_EQ(t.client.GetKey(0), "d/files/new");
         EXPECT_TRUE(std::filesystem::is_directory(t.folder / "new"));
         EXPECT_TRUE(t.provider->Exists("d/files/new"));
     }},
    {"4.3.3", "TheNameBecomesTheBrowseName",
     [](TheStandard& t) {
         EXPECT_EQ(t.Call(directory, "CreateDirectory", {"n\xC3\xA4me"}), Code::Good);
         EXPECT_EQ(t.provider->Describe(t.client.GetKey(0))->browseName.GetName(), "n\xC3\xA4me");
     }},
    {"4.3.3", "ADirectoryThatExistsIsBad_BrowseNameDuplicated",
     [](TheStandard& t) {
         EXPECT_EQ(t.Call(directory, "CreateDirectory", {"directory"}),
                   Code::Bad_BrowseNameDuplicated);
         EXPECT_EQ(t.Call(directory, "CreateDirectory", {"file"}), Code::Bad_BrowseNameDuplicated);
     }},
    {"4.3.3", "NamesThatNoFileCanHaveAreRefused",
     [](TheStandard& t) {
         for (const auto& name :
              {std::string(), std::string("."), std::string(".."), std::string("a/b"),
               std::string("/"), std::string("a\0b", 3), std::string(256, 'a')}) {
             EXPECT_EQ(t.Call(directory, "CreateDirectory", {name}), Code::Bad_BrowseNameInvalid);
             EXPECT_EQ(t.Call(directory, "CreateFile", {name, true}), Code::Bad_BrowseNameInvalid);
         }
     }},
    {"4.3.4", "CreateFileReturnsItsNodeAndNoHandle",
     [](TheStandard& t) {
         EXPECT_EQ(t.Call(directory, "CreateFile", {"new", false}), Code::Good);
         EXPECT_EQ(t.client.GetKey(0), "f/files/new");
         EXPECT_EQ(t.client.GetOutputs().at(1).Get<unsigned int>(), 0U);
         EXPECT_EQ(ReadWholeFile(t.folder / "new"), "");
         EXPECT_EQ(t.ReadProperty<unsigned short>("f.OpenCount/files/new"), 0);
     }},
    {"4.3.4", "WithRequestFileOpenTheFileIsOpenForReadingAndWriting",
     [](TheStandard& t) {
         EXPECT_EQ(t.Call(directory, "CreateFile", {"new", true}), Code::Good);
         const auto handle = t.client.GetOutputs().at(1).Get<unsigned int>();
         EXPECT_EQ(t.client.Write("f/files/new", handle, "text"), Code::Good);
         EXPECT_EQ(t.client.SetPosition("f/files/new", handle, 0), Code::Good);
         EXPECT_EQ(t.client.Read("f/files/new", handle), "text");
         EXPECT_EQ(t.other.Open("f/files/new", 1), 0U);
         EXPECT_EQ(t.client.Close("f/files/new", handle), Code::Good);
     }},
    {"4.3.4", "AFileThatExistsIsBad_BrowseNameDuplicated",
     [](TheStandard& t) {
         for (const bool isOpened : {false, true}) {
             EXPECT_EQ(t.Call(directory, "CreateFile", {"file", isOpened}),
                       Code::Bad_BrowseNameDuplicated);
             EXPECT_EQ(t.Call(directory, "CreateFile", {"directory", isOpened}),
                       Code::Bad_BrowseNameDuplicated);
         }
         EXPECT_EQ(ReadWholeFile(t.folder / "file"), "content");
     }},
    {"4.3.4", "ALinkThatLeadsNowhereIsInTheWay",
     [](TheStandard& t) {
         std::filesystem::create_symlink(t.folder / "elsewhere", t.folder / "link");
         EXPECT_EQ(t.Call(directory, "CreateFile", {"link", true}), Code::Bad_BrowseNameDuplicated);
         EXPECT_FALSE(std::filesystem::exists(t.folder / "elsewhere"));
     }},
    {"4.3.5", "DeleteDeletesAFile",
     [](TheStandard& t) {
         EXPECT_EQ(t.Call(directory, "Delete", {ToNode(file)}), Code::Good);
         EXPECT_FALSE(std::filesystem::exists(t.folder / "file"));
     }},
    {"4.3.5", "DeleteDeletesADirectoryWithAllBelow",
     [](TheStandard& t) {
         std::filesystem::create_directories(t.folder / "directory/a/b");
         for (int i = 0; i < 100; ++i)
             t.folder.MakeFile("directory/a/b/" + std::to_string(i));
         EXPECT_EQ(t.Call(directory, "Delete", {ToNode("d/files/directory")}), Code::Good);
         EXPECT_FALSE(std::filesystem::exists(t.folder / "directory"));
     }},
    {"4.3.5", "DeleteOfWhatIsNotHereIsBad_NotFound",
     [](TheStandard& t) {
         std::filesystem::create_directory(t.folder / "directory/below");
         for (const std::string key : {"f/files/none", "d/files/file", "f/files/directory",
                                       "d/files", "d/files/directory/below", "t",
                                       "f.Size/files/file", "d/fixed", "f/fixed/file", "nonsense"})
             EXPECT_EQ(t.Call(directory, "Delete", {ToNode(key)}), Code::Bad_NotFound) << key;
         EXPECT_EQ(t.Call(directory, "Delete", {Core::NodeId(0, 85)}), Code::Bad_NotFound);
         EXPECT_EQ(t.Call(directory, "Delete", {Core::NodeId()}), Code::Bad_NotFound);
     }},
    {"4.3.5", "DeleteOfALockedFileIsBad_InvalidState",
     [](TheStandard& t) {
         t.folder.MakeFile("directory/file");
         const auto handle = t.other.Open(file, 1);
         t.other.Open("f/files/directory/file", 1);
         EXPECT_EQ(t.Call(directory, "Delete", {ToNode(file)}), Code::Bad_InvalidState);
         EXPECT_EQ(t.Call(directory, "Delete", {ToNode("d/files/directory")}),
                   Code::Bad_InvalidState);
         EXPECT_TRUE(std::filesystem::exists(t.folder / "directory/file"));
         t.other.Close(file, handle);
         EXPECT_EQ(t.Call(directory, "Delete", {ToNode(file)}), Code::Good);
     }},
    {"4.3.5", "DeleteStopsAtLinks",
     [](TheStandard& t) {
         std::filesystem::create_directory(t.folder / "kept");
         t.folder.MakeFile("kept/file");
         std::filesystem::create_symlink("../kept", t.folder / "directory/link");
         std::filesystem::create_symlink("kept", t.folder / "link");
         EXPECT_EQ(t.Call(directory, "Delete", {ToNode("d/files/directory")}), Code::Good);
         EXPECT_EQ(t.Call(directory, "Delete", {ToNode("d/files/link")}), Code::Good);
         EXPECT_FALSE(std::filesystem::is_symlink(t.folder / "link"));
         EXPECT_TRUE(std::filesystem::exists(t.folder / "kept/file"));
     }},
    {"4.3.6", "MoveOrCopyRenames",
     [](TheStandard& t) {
         EXPECT_EQ(
             t.Call(directory, "MoveOrCopy", {ToNode(file), ToNode(directory), false, "renamed"}),
             Code::Good);
         EXPECT_EQ(t.client.GetKey(0), "f/files/renamed");
         EXPECT_EQ(ReadWholeFile(t.folder / "renamed"), "content");
         EXPECT_FALSE(std::filesystem::exists(t.folder / "file"));
     }},
    {"4.3.6", "AnEmptyNameKeepsTheName",
     [](TheStandard& t) {
         EXPECT_EQ(t.Call(directory, "MoveOrCopy",
                          {ToNode(file), ToNode("d/files/directory"), false, ""}),
                   Code::Good);
         EXPECT_EQ(t.client.GetKey(0), "f/files/directory/file");
         EXPECT_EQ(ReadWholeFile(t.folder / "directory/file"), "content");
     }},
    {"4.3.6", "MoveOrCopyCopiesAFile",
     [](TheStandard& t) {
         chmod((t.folder / "file").c_str(), 0640);
         EXPECT_EQ(t.Call(directory, "MoveOrCopy", {ToNode(file), ToNode(directory), true, "copy"}),
                   Code::Good);
         EXPECT_EQ(ReadWholeFile(t.folder / "copy"), "content");
         EXPECT_EQ(ReadWholeFile(t.folder / "file"), "content");
         EXPECT_EQ(t.ReadProperty<unsigned int>("f.Permissions/files/copy"), 0640U);
         EXPECT_EQ(t.ReadProperty<Core::DateTime>("f.LastModifiedTime/files/copy"),
                   t.ReadProperty<Core::DateTime>("f.LastModifiedTime/files/file"));
         EXPECT_EQ(t.List(directory).size(), 3U) << "nothing else is left";
     }},
    {"4.3.6", "MoveOrCopyCopiesADirectoryWithAllBelow",
     [](TheStandard& t) {
         std::filesystem::create_directories(t.folder / "directory/a/b");
         t.folder.MakeFile("directory/a/b/file", "below");
         std::filesystem::create_symlink("b/file", t.folder / "directory/a/link");
         mkfifo((t.folder / "directory/pipe").c_str(), 0666);
         EXPECT_EQ(t.Call(directory, "MoveOrCopy",
                          {ToNode("d/files/directory"), ToNode(directory), true, "copy"}),
                   Code::Good);
         EXPECT_EQ(t.client.GetKey(0), "d/files/copy");
         EXPECT_EQ(ReadWholeFile(t.folder / "copy/a/b/file"), "below");
         EXPECT_EQ(ReadWholeFile(t.folder / "copy/a/link"), "below");
         EXPECT_FALSE(std::filesystem::exists(t.folder / "copy/pipe"));
         EXPECT_TRUE(std::filesystem::exists(t.folder / "directory/a/b/file"));
     }},
    {"4.3.6", "ANameThatExistsIsBad_BrowseNameDuplicated",
     [](TheStandard& t) {
         t.folder.MakeFile("b", "other");
         for (const bool isCopied : {false, true})
             for (const char* name : {"b", "directory", "", "file"})
                 EXPECT_EQ(t.Call(directory, "MoveOrCopy",
                                  {ToNode(file), ToNode(directory), isCopied, name}),
                           Code::Bad_BrowseNameDuplicated);
         EXPECT_EQ(ReadWholeFile(t.folder / "b"), "other");
     }},
    {"4.3.6", "WhatIsNotHereIsBad_NotFound",
     [](TheStandard& t) {
         for (const bool isCopied : {false, true})
             for (const std::string key : {"f/files/none", "d/files", "f/fixed/file", "nonsense"})
                 EXPECT_EQ(t.Call(directory, "MoveOrCopy",
                                  {ToNode(key), ToNode(directory), isCopied, "new"}),
                           Code::Bad_NotFound)
                     << key;
     }},
    {"4.3.6", "ALockedFileIsBad_InvalidState",
     [](TheStandard& t) {
         t.folder.MakeFile("directory/file");
         t.other.Open("f/files/directory/file", 1);
         const auto reader = t.other.Open(file, 1);
         const Values move = {ToNode(file), ToNode(directory), false, "new"};
         const Values copy = {ToNode(file), ToNode(directory), true, "new"};
         EXPECT_EQ(t.Call(directory, "MoveOrCopy", move), Code::Bad_InvalidState);
         EXPECT_EQ(t.Call(directory, "MoveOrCopy",
                          {ToNode("d/files/directory"), ToNode(directory), false, "new"}),
                   Code::Bad_InvalidState);
         EXPECT_EQ(t.Call(directory, "MoveOrCopy", copy), Code::Good) << "readers do not mind";
         t.other.Close(file, reader);
         t.other.Open(file, 2);
         EXPECT_EQ(
             t.Call(directory, "MoveOrCopy", {ToNode(file), ToNode(directory), true, "newer"}),
             Code::Bad_InvalidState);
     }},
    {"4.3.6", "ADirectoryCannotBePutIntoItself",
     [](TheStandard& t) {
         std::filesystem::create_directory(t.folder / "directory/below");
         for (const bool isCopied : {false, true})
             for (const std::string target : {"d/files/directory", "d/files/directory/below"})
                 EXPECT_EQ(t.Call(directory, "MoveOrCopy",
                                  {ToNode("d/files/directory"), ToNode(target), isCopied, "new"}),
                           Code::Bad_InvalidArgument);
     }},
    {"4.3.6", "TheTargetIsADirectory",
     [](TheStandard& t) {
         EXPECT_EQ(t.Call(directory, "MoveOrCopy", {ToNode(file), ToNode(file), false, "new"}),
                   Code::Bad_InvalidArgument);
         EXPECT_EQ(
             t.Call(directory, "MoveOrCopy", {ToNode(file), ToNode("d/files/none"), false, "new"}),
             Code::Bad_NotFound);
     }},
    {"4.3", "WhatCannotBeChangedStays",
     [](TheStandard& t) {
         EXPECT_EQ(t.Call("d/fixed", "CreateDirectory", {"new"}), Code::Bad_NotWritable);
         EXPECT_EQ(t.Call("d/fixed", "CreateFile", {"new", true}), Code::Bad_NotWritable);
         EXPECT_EQ(t.Call("d/fixed", "Delete", {ToNode("f/fixed/file")}), Code::Bad_NotWritable);
         EXPECT_EQ(t.Call("d/fixed", "MoveOrCopy",
                          {ToNode("f/fixed/file"), ToNode(directory), false, "new"}),
                   Code::Bad_NotWritable);
         EXPECT_EQ(t.Call(directory, "MoveOrCopy", {ToNode(file), ToNode("d/fixed"), true, "new"}),
                   Code::Bad_NotWritable);
         EXPECT_EQ(t.Call("d/fixed", "MoveOrCopy",
                          {ToNode("f/fixed/file"), ToNode(directory), true, "new"}),
                   Code::Good);
     }},
    {"4.3", "TheRootHoldsTheFoldersOfTheHostAndNothingElse",
     [](TheStandard& t) {
         EXPECT_EQ(t.Call("", "CreateDirectory", {"new"}), Code::Bad_UserAccessDenied);
         EXPECT_EQ(t.Call("", "CreateFile", {"new", true}), Code::Bad_UserAccessDenied);
         EXPECT_EQ(t.Call("", "Delete", {ToNode("d/files")}), Code::Bad_UserAccessDenied);
         for (const bool isCopied : {false, true})
             EXPECT_EQ(t.Call("", "MoveOrCopy",
                              {ToNode("d/files"), ToNode("d/files/directory"), isCopied, "new"}),
                       Code::Bad_UserAccessDenied);
         EXPECT_EQ(t.Call(directory, "MoveOrCopy", {ToNode(file), ToNode(""), true, "new"}),
                   Code::Bad_UserAccessDenied);
     }},
};

const std::vector<Statement> temporaryFileTransferType = {
    {"4.4.1", "ClientProcessingTimeoutIsInMilliseconds",
     [](TheStandard& t) {
         EXPECT_EQ(t.ReadProperty<double>("t.ClientProcessingTimeout"), 60'000.0);
     }},
    {"4.4.1", "TemporaryFilesCannotBeBrowsed",
     [](TheStandard& t) {
         t.Call("t", "GenerateFileForRead", {"files/file"});
         const auto key = t.client.GetKey(0);
         EXPECT_TRUE(t.provider->Exists(key));
         EXPECT_TRUE(t.List("t").empty());
         EXPECT_EQ(t.provider->GetMembers("t").size(), 1U);
         EXPECT_EQ(t.provider->Read("x.Size" + key.substr(1)).Get<unsigned long>(), 7U);
     }},
    {"4.4.1", "TemporaryFilesBelongToTheirSession",
     [](TheStandard& t) {
         t.Call("t", "GenerateFileForRead", {"files/file"});
         const auto key = t.client.GetKey(0);
         const auto handle = t.client.GetOutputs().at(1).Get<unsigned int>();
         EXPECT_EQ(t.other.Call(key, "Read", {handle, 1}), Code::Bad_InvalidArgument);
         EXPECT_EQ(t.other.Call(key, "Open", {Mode(1)}), Code::Bad_InvalidState);
     }},
    {"4.4.3", "GenerateFileForReadOpensACopyOfTheMoment",
     [](TheStandard& t) {
         EXPECT_EQ(t.Call("t", "GenerateFileForRead", {ToNode(file)}), Code::Good);
         const auto key = t.client.GetKey(0);
         const auto handle = t.client.GetOutputs().at(1).Get<unsigned int>();
         EXPECT_TRUE(t.client.GetOutputs().at(2).Get<Core::NodeId>().IsEmpty());
         t.folder.MakeFile("file", "changed");
         EXPECT_EQ(t.client.Read(key, handle), "content");
         EXPECT_EQ(t.client.Write(key, handle, "x"), Code::Bad_InvalidState);
         EXPECT_EQ(t.client.Close(key, handle), Code::Good);
         EXPECT_FALSE(t.provider->Exists(key));
         EXPECT_EQ(t.List(directory).size(), 2U);
     }},
    {"4.4.3", "FilesThatCannotBeChangedAreReadToo",
     [](TheStandard& t) {
         EXPECT_EQ(t.Call("t", "GenerateFileForRead", {"/fixed/file"}), Code::Good);
         const auto key = t.client.GetKey(0);
         EXPECT_EQ(t.client.Read(key, t.client.GetOutputs().at(1).Get<unsigned int>()), "content");
     }},
    {"4.4.3", "OptionsThatNameNoFileAreRefused",
     [](TheStandard& t) {
         for (const char* method : {"GenerateFileForRead", "GenerateFileForWrite"}) {
             EXPECT_EQ(t.Call("t", method, {Core::Value()}), Code::Bad_InvalidArgument);
             EXPECT_EQ(t.Call("t", method, {1}), Code::Bad_InvalidArgument);
             EXPECT_EQ(t.Call("t", method, {"other/file"}), Code::Bad_NotFound);
             EXPECT_EQ(t.Call("t", method, {"files"}), Code::Bad_NotFound);
             EXPECT_EQ(t.Call("t", method, {"files/"}), Code::Bad_InvalidArgument);
             EXPECT_EQ(t.Call("t", method, {"files/../file"}), Code::Bad_InvalidArgument);
             EXPECT_EQ(t.Call("t", method, {"files//file"}), Code::Bad_InvalidArgument);
             EXPECT_EQ(t.Call("t", method, {ToNode(directory)}), Code::Bad_NotFound);
             EXPECT_EQ(t.Call("t", method, {"files/none/file"}), Code::Bad_NotFound);
         }
         EXPECT_EQ(t.Call("t", "GenerateFileForRead", {"files/directory"}), Code::Bad_NotFound);
         EXPECT_EQ(t.Call("t", "GenerateFileForWrite", {"files/directory"}),
                   Code::Bad_BrowseNameDuplicated);
     }},
    {"4.4.4", "AWrittenFileAppearsWhenItIsCommitted",
     [](TheStandard& t) {
         EXPECT_EQ(t.Call("t", "GenerateFileForWrite", {"files/directory/new"}), Code::Good);
         const auto key = t.client.GetKey(0);
         const auto handle = t.client.GetOutputs().at(1).Get<unsigned int>();
         EXPECT_EQ(t.client.Write(key, handle, "whole"), Code::Good);
         EXPECT_FALSE(std::filesystem::exists(t.folder / "directory/new"));
         EXPECT_EQ(t.Call("t", "CloseAndCommit", {handle}), Code::Good);
         EXPECT_TRUE(t.client.GetOutputs().at(0).Get<Core::NodeId>().IsEmpty());
         EXPECT_EQ(ReadWholeFile(t.folder / "directory/new"), "whole");
         EXPECT_EQ(t.List("d/files/directory").size(), 1U);
         EXPECT_FALSE(t.provider->Exists(key));
     }},
    {"4.4.4", "AFileThatCannotBeWrittenIsBad_NotWritable",
     [](TheStandard& t) {
         EXPECT_EQ(t.Call("t", "GenerateFileForWrite", {"fixed/file"}), Code::Bad_NotWritable);
     }},
    {"4.4.5", "CloseAndCommitReplacesTheFile",
     [](TheStandard& t) {
         chmod((t.folder / "file").c_str(), 0604);
         t.Call("t", "GenerateFileForWrite", {ToNode(file)});
         const auto key = t.client.GetKey(0);
         const auto handle = t.client.GetOutputs().at(1).Get<unsigned int>();
         t.client.Write(key, handle, "new");
         EXPECT_EQ(ReadWholeFile(t.folder / "file"), "content");
         EXPECT_EQ(t.Call("t", "CloseAndCommit", {handle}), Code::Good);
         EXPECT_EQ(ReadWholeFile(t.folder / "file"), "new");
         EXPECT_EQ(t.ReadProperty<unsigned int>("f.Permissions/files/file"), 0604U);
     }},
    {"4.4.5", "AnInvalidHandleIsBad_InvalidArgument",
     [](TheStandard& t) {
         const auto opened = t.client.Open(file, 2);
         EXPECT_EQ(t.Call("t", "CloseAndCommit", {opened}), Code::Bad_InvalidArgument);
         EXPECT_EQ(t.Call("t", "CloseAndCommit", {0U}), Code::Bad_InvalidArgument);
         t.client.Close(file, opened);
         t.Call("t", "GenerateFileForRead", {"files/file"});
         const auto read = t.client.GetOutputs().at(1).Get<unsigned int>();
         EXPECT_EQ(t.Call("t", "CloseAndCommit", {read}), Code::Bad_InvalidArgument);
         t.Call("t", "GenerateFileForWrite", {"files/file"});
         const auto written = t.client.GetOutputs().at(1).Get<unsigned int>();
         EXPECT_EQ(t.other.Call("t", "CloseAndCommit", {written}), Code::Bad_InvalidArgument);
         EXPECT_EQ(t.Call("t", "CloseAndCommit", {written}), Code::Good);
         EXPECT_EQ(t.Call("t", "CloseAndCommit", {written}), Code::Bad_InvalidArgument);
     }},
    {"4.4.5", "ALockedFileIsNotReplaced",
     [](TheStandard& t) {
         t.Call("t", "GenerateFileForWrite", {"files/file"});
         const auto handle = t.client.GetOutputs().at(1).Get<unsigned int>();
         const auto reader = t.other.Open(file, 1);
         EXPECT_EQ(t.Call("t", "CloseAndCommit", {handle}), Code::Bad_InvalidState);
         t.other.Close(file, reader);
         EXPECT_EQ(t.Call("t", "CloseAndCommit", {handle}), Code::Good) << "it can be tried again";
     }},
    {"4.4.2", "AFileThatIsOnlyClosedIsDropped",
     [](TheStandard& t) {
         t.Call("t", "GenerateFileForWrite", {"files/new"});
         const auto key = t.client.GetKey(0);
         const auto handle = t.client.GetOutputs().at(1).Get<unsigned int>();
         t.client.Write(key, handle, "half");
         EXPECT_EQ(t.client.Close(key, handle), Code::Good);
         EXPECT_EQ(t.List(directory).size(), 2U);
     }},
    {"4.4.1", "AFileOfASessionThatEndsIsDropped",
     [](TheStandard& t) {
         t.other.Call("t", "GenerateFileForWrite", {"files/new"});
         EXPECT_EQ(t.List(directory).size(), 3U);
         t.other.End();
         EXPECT_EQ(t.List(directory).size(), 2U);
     }},
};

std::string GetName(const testing::TestParamInfo<Statement>& info)
{
    std::string clause = info.param.clause;
    std::ranges::replace(clause, '.', '_');
    return "Clause" + clause + "_" + info.param.name;
}

INSTANTIATE_TEST_SUITE_P(FileType, TheStandard, testing::ValuesIn(fileType), GetName);
INSTANTIATE_TEST_SUITE_P(FileDirectoryType, TheStandard, testing::ValuesIn(fileDirectoryType),
                         GetName);
INSTANTIATE_TEST_SUITE_P(TemporaryFileTransferType, TheStandard,
                         testing::ValuesIn(temporaryFileTransferType), GetName);

} // namespace
