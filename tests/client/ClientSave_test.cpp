// Saving, exporting and publishing: the paths the client picks, the dialog, the privilege
// check, the file the panel writes and the state a save leaves.
#include "ClientHarness.h"
#include "ClientTempDir.h"
#include "ClientTraceCapture.h"
#include "../panel/SaveChooser.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace {

class ClientSaveTest : public ::testing::Test {
protected:
    ClientSaveTest() { NoteHostUI_SetWarningCallback(&OnWarning, this); }
    ~ClientSaveTest() override { NoteHostUI_SetWarningCallback(nullptr, nullptr); }
    void SetUp() override { ASSERT_TRUE(m_dir.Ok()); }
    static void OnWarning(void* context, const char*, const char*)
    {
        ++static_cast<ClientSaveTest*>(context)->m_nAlerts;
    }
    std::string Path(const std::string& name) const { return m_dir.File(name); }
    // A path the privilege check refuses: a folder where the file should be.
    std::string Refused(const std::string& name) const
    {
        mkdir(Path(name).c_str(), 0700);
        return Path(name);
    }
    static std::string Read(const std::string& path) { return CClientTempDir::Read(path); }

    CClientTempDir m_dir;
    CClientHarness m_harness;
    int m_nAlerts = 0;
};

// --- export to a folder

TEST_F(ClientSaveTest, ExportNamesTheFileByNotepadWithOrWithoutASlash)
{
    struct {
        NOTETAKERTYPE type;
        std::string folder;
        std::string name;
    } const cases[] = {
        {NOTETAKER_ALL_PARTICIPANTS, m_dir.Path(), "Notes.txt"},
        {NOTETAKER_ALL_PARTICIPANTS, m_dir.Path() + "/", "Notes.txt"},
        {NOTETAKER_SINGLE, m_dir.Path() + "/", "Notes.txt"},
        {NOTETAKER_CLOSED_CAPTIONS, m_dir.Path(), "Closed Captions.txt"},
        {NOTETAKER_CLOSED_CAPTIONS, m_dir.Path() + "/", "Closed Captions.txt"},
    };
    unsigned userId = 1;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.folder + " " + c.name);
        CNoteClient& client = m_harness.Join(userId++, c.type, NOTE_USER_WRITER);
        m_harness.Type(client, "line one\nline two");
        client.SetFileNeedSave(true);
        CTelemetryLog telemetry;

        client.WriteNoteFileToFolder(c.folder.c_str());

        const std::string path = Path(c.name);
        EXPECT_EQ(path, client.m_strSaveFileName);
        EXPECT_EQ("line one\nline two", Read(path));  // the panel's own line ends
        EXPECT_EQ(0, client.GetFileSaveState());
        EXPECT_EQ("line one\nline two", client.m_strLastFileSaveContent);
        EXPECT_EQ(0, client.m_bNoFileSaveYet);
        EXPECT_EQ(0, client.m_bModifiedSinceFileSave);
        EXPECT_TRUE(telemetry.m_vecActions.empty());
        unlink(path.c_str());
        m_harness.Leave(client);
    }
}

TEST_F(ClientSaveTest, ExportToANullOrRefusedFolderWritesNothing)
{
    CNoteClient& client = m_harness.Join(1, NOTETAKER_ALL_PARTICIPANTS, NOTE_USER_WRITER);
    m_harness.Type(client, "text");
    client.SetFileNeedSave(true);
    client.WriteNoteFileToFolder(nullptr);
    Refused("Notes.txt");
    client.WriteNoteFileToFolder(m_dir.Path().c_str());
    EXPECT_EQ("", client.m_strSaveFileName);
    EXPECT_EQ(1, client.GetFileSaveState());
    EXPECT_EQ(1, m_nAlerts);
}

// --- save and save as

TEST_F(ClientSaveTest, ASecondSaveWritesTheSameFileWithoutAsking)
{
    CNoteClient& client = m_harness.Join(1, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    const std::string path = Path("minutes.txt");
    CScopedSaveChooser chooser(true, path);
    CTelemetryLog telemetry;

    m_harness.Type(client, "first");
    client.OnSave();
    EXPECT_EQ("first", Read(path));
    m_harness.Type(client, "first\nsecond");
    client.SetFileNeedSave(true);
    client.OnSave();

    EXPECT_EQ("first\nsecond", Read(path));
    EXPECT_EQ(1, ViewOf(client).DialogCount());
    EXPECT_EQ(path, client.m_strSaveFileName);
    EXPECT_EQ(0, client.GetFileSaveState());
    EXPECT_EQ((std::vector<int>{2001, 2002, 2001, 2002}), telemetry.m_vecActions);
}

TEST_F(ClientSaveTest, ACancelledSaveWritesNothing)
{
    CNoteClient& client = m_harness.Join(1, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    m_harness.Type(client, "text");
    client.SetFileNeedSave(true);
    CTelemetryLog telemetry;
    client.OnSave();
    EXPECT_EQ(-1, client.OnSaveAs());
    EXPECT_EQ(2, ViewOf(client).DialogCount());
    EXPECT_EQ("", client.m_strSaveFileName);
    EXPECT_EQ(1, client.GetFileSaveState());
    EXPECT_EQ((std::vector<int>{2001, 2001}), telemetry.m_vecActions);
}

TEST_F(ClientSaveTest, ARefusedRememberedFileAsksOnceForAnother)
{
    CNoteClient& client = m_harness.Join(1, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    m_harness.Type(client, "text");
    const std::string good = Path("other.txt");
    struct {
        std::string remembered;
        std::string chosen;
        std::string saved;
        std::vector<int> telemetry;
    } const cases[] = {
        {Refused("gone.txt"), good, good, {2001, 2001, 2002}},
        {Refused("gone.txt"), Refused("also.txt"), "", {2001, 2001}},
        {"", Refused("also.txt"), "", {2001}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.remembered + " then " + c.chosen);
        unlink(good.c_str());
        client.m_strSaveFileName = c.remembered;
        const int dialogsBefore = ViewOf(client).DialogCount();
        CScopedSaveChooser chooser(true, c.chosen);
        CTelemetryLog telemetry;
        client.OnSave();
        EXPECT_EQ(1, ViewOf(client).DialogCount() - dialogsBefore);
        EXPECT_EQ(c.saved, client.m_strSaveFileName);
        EXPECT_EQ(!c.saved.empty(), CClientTempDir::Exists(good));
        EXPECT_EQ(c.telemetry, telemetry.m_vecActions);
    }
}

TEST_F(ClientSaveTest, SaveAsAlwaysAsksAndReportsTheDialogResult)
{
    CNoteClient& client = m_harness.Join(1, NOTETAKER_ALL_PARTICIPANTS, NOTE_USER_WRITER);
    m_harness.Type(client, "text");
    const std::string first = Path("a.txt");
    const std::string second = Path("b.txt");
    CScopedSaveChooser chooser(true, first);
    EXPECT_EQ(0, client.OnSaveAs());
    chooser.Answer(true, second);
    EXPECT_EQ(0, client.OnSaveAs());
    EXPECT_EQ(2, ViewOf(client).DialogCount());
    EXPECT_EQ("text", Read(first));
    EXPECT_EQ("text", Read(second));
    EXPECT_EQ(second, client.m_strSaveFileName);

    // A refused choice answers the dialog's result and writes nothing.
    chooser.Answer(true, Refused("dir.txt"));
    CTelemetryLog telemetry;
    EXPECT_EQ(0, client.OnSaveAs());
    EXPECT_EQ(second, client.m_strSaveFileName);
    EXPECT_EQ((std::vector<int>{2001}), telemetry.m_vecActions);
}

TEST_F(ClientSaveTest, WithoutAPanelNothingIsAskedOrWritten)
{
    CNoteClient bare;
    bare.SetFileNeedSave(true);
    EXPECT_EQ(0, bare.OnSaveAs());
    bare.OnSave();
    bare.WriteNoteFileToFolder(m_dir.Path().c_str());
    EXPECT_EQ(Path("Notes.txt"), bare.m_strSaveFileName);
    EXPECT_FALSE(CClientTempDir::Exists(Path("Notes.txt")));
    EXPECT_EQ(0, bare.GetPasteStatus());
    EXPECT_EQ(0, bare.GetFileSaveState());
}

// --- the auto-save path, paste and publish status

TEST_F(ClientSaveTest, AutoSavePathKeepsTheLastRealPath)
{
    CNoteClient& client = m_harness.Join(1, NOTETAKER_ALL_PARTICIPANTS, NOTE_USER_WRITER);
    struct {
        const char* path;
        int result;
        const char* kept;
    } const steps[] = {
        {"/tmp/auto.xml", 1, "/tmp/auto.xml"},
        {"", 0, "/tmp/auto.xml"},
        {nullptr, 0, "/tmp/auto.xml"},
        {"/tmp/other.xml", 1, "/tmp/other.xml"},
    };
    for (const auto& step : steps) {
        EXPECT_EQ(step.result, client.SetAutoSaveFilePath(step.path));
        EXPECT_EQ(step.kept, client.m_strAutoSavePath);
    }
}

TEST_F(ClientSaveTest, PasteStatusComesFromThePanel)
{
    CNoteClient& client = m_harness.Join(1, NOTETAKER_ALL_PARTICIPANTS, NOTE_USER_WRITER);
    NoteHostUI_SetClipboard("clip", nullptr);
    ViewOf(client).Focus(true);
    EXPECT_EQ(2, client.GetPasteStatus());
    NoteHostUI_SetClipboard(nullptr, nullptr);
}

TEST_F(ClientSaveTest, PublishStatusIsUnpublishedTextOfTheWriter)
{
    struct {
        unsigned user;
        const char* panel;
        const char* agreed;
        int status;
    } const cases[] = {
        {NOTE_USER_WRITER, "a\nb", "a\r\nb", 0},  // compared with CR LF line ends
        {NOTE_USER_WRITER, "a\nbc", "a\r\nb", 1},
        {NOTE_USER_WRITER, "", "gone", 1},
        {NOTE_USER_READER, "a\nbc", "a\r\nb", 0},
    };
    unsigned userId = 1;
    for (const auto& c : cases) {
        CNoteClient& client = m_harness.Join(userId++, NOTETAKER_SINGLE, c.user);
        ViewOf(client).SetText(c.panel);
        client.m_strOldMsg = c.agreed;
        EXPECT_EQ(c.status, client.GetPublishStatus()) << c.user << " " << c.panel;
    }
}

TEST_F(ClientSaveTest, PublishSendsThePendingEditAndEnablesPublish)
{
    CNoteClient& client = m_harness.Join(1, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    m_harness.Type(client, "to publish");
    EXPECT_EQ(1, client.GetPublishStatus());
    client.m_bHasContent = 0;
    ViewOf(client).SetPublishEnabled(false);
    client.ToPublish();
    m_harness.Settle();
    EXPECT_EQ(0, client.GetPublishStatus());
    EXPECT_EQ(1u, client.m_bHasContent);
    EXPECT_TRUE(ViewOf(client).IsPublishEnabled());
}

}  // namespace
