// Files: the auto-save file written and loaded back as writer and reader, broken files, the
// need-save state; saving and exporting with the dialog and the privilege check; and a
// meeting's loss, with its time-stamped notices and auto-save.
#include "ClientHarness.h"
#include "ClientTempDir.h"
#include "ClientTraceCapture.h"
#include "ClientWire.h"
#include "../panel/SaveChooser.h"

#include "platform/LoadLocalizedString.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace {

using Texts = std::vector<std::string>;

Texts Changes(CNoteSaveInfoPDU& record)
{
    Texts changes;
    for (CNoteChangeInfoPDU& pdu : record.m_vecChangeInfoPdu)
        changes.push_back(pdu.GetNoteMsg() + "/" + std::to_string(pdu.GetCacheId_INT()));
    return changes;
}
Texts NetInfos(CNoteSaveInfoPDU& record)
{
    Texts saved(record.GetNetInfoCount_INT());
    for (size_t i = 0; i < saved.size(); ++i) record.GetNetInfo(static_cast<int>(i), saved[i]);
    return saved;
}
int g_nHour = 9, g_nMinute = 30;
void FixedClock(int* hour, int* minute)
{
    *hour = g_nHour;
    *minute = g_nMinute;
}
std::string Lost()
{
    return GetLocalizedString("Closed Captions is currently unavailable. Service will be restored as soon as possible.",
                              kTessarinNoteBundleId, nullptr);
}

class ClientFile : public ::testing::Test {
protected:
    ClientFile()
    {
        NoteHostUI_SetWarningCallback([](void* n, const char*, const char*) { ++*static_cast<int*>(n); }, &m_nAlerts);
    }
    ~ClientFile() override { NoteHostUI_SetWarningCallback(nullptr, nullptr); }
    void SetUp() override { ASSERT_TRUE(m_dir.Ok()); }
    // A path the privilege check refuses: a folder where the file should be.
    std::string Refused(const std::string& name) const
    {
        mkdir(m_dir.File(name).c_str(), 0700);
        return m_dir.File(name);
    }
    CNoteClient& Join(NOTETAKERTYPE type, unsigned userType = NOTE_USER_WRITER)
    {
        g_nHour = 9;
        g_nMinute = 30;
        CNoteClient& client = m_harness.Join(m_nNextId++, type, userType);
        client.m_pfnNoticeClock = &FixedClock;
        return client;
    }

    CClientTempDir m_dir;
    std::string m_strPath = m_dir.File("auto.xml");
    CClientHarness m_harness;
    unsigned m_nNextId = 1;
    int m_nAlerts = 0;
};

// A note taker auto-saves its document: panel text, published text, net-info entries, delivered
// and undelivered changes; writers load all of it, readers only what reached the cache.
TEST_F(ClientFile, TheAutoSaveFileKeepsTheDocumentAndLoadsBack)
{
    CNoteClient& writer = Join(NOTETAKER_SINGLE);
    ViewOf(writer).SetText("Hello\nworld");
    writer.m_strPublishMsg = "Hi";
    for (const char* entry : {"a\n\nb", "n2", "", "after an empty one"})
        writer.m_aNetInfo.push_back(strcpy(new char[strlen(entry) + 1], entry));
    writer.m_SaveInfo.m_vecChangeInfoPdu = {Change("A", "0", "0", 4), Change("B"), Change("C", "0", "0", 6)};
    writer.m_bNeedAutoSave = 1;
    writer.AutoSaveXMLFile();  // no path yet
    writer.m_strAutoSavePath = m_strPath;
    EXPECT_EQ(writer.m_bNeedAutoSave, 1u);
    writer.m_bNeedAutoSave = 0;
    writer.AutoSaveXMLFile();  // not marked: nothing is written
    EXPECT_FALSE(CClientTempDir::Exists(m_strPath));
    writer.m_bNeedAutoSave = 1;
    writer.AutoSaveXMLFile();
    EXPECT_EQ(writer.m_bNeedAutoSave, 0u);
    CNoteSaveInfoPDU record;
    ASSERT_TRUE(record.LoadFile(m_strPath) && record.ParseXMLPDU());
    EXPECT_EQ(record.GetNoteShowMsg(), "Hello\r\nworld");  // CR LF kept
    EXPECT_EQ(record.GetChannalID_INT(), int(writer.m_nResourceId));
    EXPECT_EQ(NetInfos(record), (Texts{"a\n\nb", "n2"}));  // entries after an empty one are not written
    m_harness.Leave(writer);

    for (NOTETAKERTYPE type : {NOTETAKER_SINGLE, NOTETAKER_CLOSED_CAPTIONS}) {
        for (unsigned userType : {NOTE_USER_WRITER, NOTE_USER_READER}) {
            SCOPED_TRACE(std::to_string(type) + "/" + std::to_string(userType));
            const bool reader = userType == NOTE_USER_READER;
            CNoteClient& client = Join(type, userType);
            m_harness.SinkOf(client).m_vecCalls.clear();
            client.m_bFileNeedSave = 0;
            client.m_strShowMsg = "mine";
            ViewOf(client).SetPublishEnabled(false);
            ASSERT_TRUE(client.LoadXMLFile(client.m_SaveInfo, m_strPath.c_str()));
            if (reader && type == NOTETAKER_SINGLE) {  // a reader of a single note taker does not use the file
                EXPECT_EQ(client.m_strShowMsg + client.m_SaveInfo.GetNoteShowMsg(), "mine");
                EXPECT_TRUE(client.m_SaveInfo.m_vecChangeInfoPdu.empty() && client.m_aNetInfo.empty());
                continue;
            }
            EXPECT_EQ(client.m_strShowMsg + "|" + client.m_strOldMsg, "Hello\r\nworld|Hello\r\nworld");
            EXPECT_EQ(m_harness.PanelText(client), "Hello\nworld");
            EXPECT_EQ(client.m_strPublishMsg, reader ? "Hello\r\nworld" : "Hi");  // a reader's is the shown text
            EXPECT_EQ(NetInfo(client), (Texts{"a\r\nb", "n2"}));  // blank lines come back as CR LF
            EXPECT_EQ(Changes(client.m_SaveInfo), reader ? (Texts{"A/4", "C/6"}) : (Texts{"A/4", "B/0", "C/6"}));
            EXPECT_EQ(client.m_bNeedAutoSave, 1u);
            const Texts& calls = m_harness.SinkOf(client).m_vecCalls;
            EXPECT_EQ(Texts(calls.begin(), calls.begin() + std::min<size_t>(2, calls.size())),
                      (Texts{"NeedSave 1", "SaveEnabled 1"}));
            // Only the captioner's Publish is enabled.
            EXPECT_EQ(ViewOf(client).IsPublishEnabled(), !reader && type == NOTETAKER_CLOSED_CAPTIONS);
        }
    }
    CNoteClient& client = Join(NOTETAKER_SINGLE);
    EXPECT_FALSE(client.LoadXMLFile(client.m_SaveInfo, m_dir.File("missing.xml").c_str()));
    CClientTempDir::Write(m_strPath, "<notecom ver=\"1.0\" mtype=\"2\"><noteinfo><![CDATA[cut");
    EXPECT_FALSE(client.LoadXMLFile(client.m_SaveInfo, m_strPath.c_str()));
    EXPECT_EQ(m_harness.PanelText(client), "");
}

TEST_F(ClientFile, NeedSaveTellsHostAndPanelOnlyOnChange)
{
    CNoteClient& client = Join(NOTETAKER_SINGLE);
    client.m_bFileNeedSave = 0;
    Texts& calls = m_harness.SinkOf(client).m_vecCalls;
    calls.clear();
    for (bool flag : {false, true, true}) client.SetFileNeedSave(flag);
    EXPECT_TRUE(ViewOf(client).IsSaveEnabled());
    client.SetFileNeedSave(false);
    EXPECT_EQ(calls, (Texts{"NeedSave 1", "NeedSave 0"}));
    EXPECT_FALSE(ViewOf(client).IsSaveEnabled());
}

TEST_F(ClientFile, ExportNamesTheFileByNotepadAndRefusedOrNullFoldersWriteNothing)
{
    // With or without a slash after the folder.
    for (const auto& c : {std::make_pair(NOTETAKER_SINGLE, "/Notes.txt"),
                          std::make_pair(NOTETAKER_CLOSED_CAPTIONS, "Closed Captions.txt")}) {
        const std::string path = m_dir.File(c.second[0] == '/' ? c.second + 1 : c.second);
        CNoteClient& client = Join(c.first);
        m_harness.Type(client, "line one\nline two");
        client.SetFileNeedSave(true);
        client.WriteNoteFileToFolder((m_dir.Path() + (c.second[0] == '/' ? "/" : "")).c_str());
        EXPECT_EQ(client.m_strSaveFileName, path);
        EXPECT_EQ(CClientTempDir::Read(path), "line one\nline two");  // the panel's own line ends
        EXPECT_EQ(client.GetFileSaveState() + client.m_bNoFileSaveYet + client.m_bModifiedSinceFileSave, 0);
        unlink(path.c_str());
    }
    CNoteClient& client = Join(NOTETAKER_ALL_PARTICIPANTS);
    m_harness.Type(client, "text");
    client.SetFileNeedSave(true);
    client.WriteNoteFileToFolder(nullptr);
    Refused("Notes.txt");
    client.WriteNoteFileToFolder(m_dir.Path().c_str());
    EXPECT_EQ(client.m_strSaveFileName, "");
    EXPECT_EQ(client.GetFileSaveState(), 1);
    EXPECT_EQ(m_nAlerts, 1);
}

TEST_F(ClientFile, ASaveAsksOnceUnlessCancelledOrRefused)
{
    CNoteClient& client = Join(NOTETAKER_SINGLE);
    const std::string path = m_dir.File("minutes.txt"), good = m_dir.File("other.txt");
    m_harness.Type(client, "first");
    client.SetFileNeedSave(true);
    {
        CTelemetryLog telemetry;
        client.OnSave();  // no chooser: the dialog is cancelled
        EXPECT_EQ(client.OnSaveAs(), -1);
        EXPECT_EQ(client.m_strSaveFileName, "");
        EXPECT_EQ(client.GetFileSaveState(), 1);
        EXPECT_EQ(telemetry.m_vecActions, (std::vector<int>{2001, 2001}));
    }
    CScopedSaveChooser chooser(true, path);
    CTelemetryLog telemetry;
    client.OnSave();
    m_harness.Type(client, "first\nsecond");
    client.SetFileNeedSave(true);
    client.OnSave();  // a second save writes the same file without asking
    EXPECT_EQ(CClientTempDir::Read(path), "first\nsecond");
    EXPECT_EQ(ViewOf(client).DialogCount(), 3);
    EXPECT_EQ(client.GetFileSaveState(), 0);
    EXPECT_EQ(telemetry.m_vecActions, (std::vector<int>{2001, 2002, 2001, 2002}));
    for (const std::string& chosen : {good, Refused("also.txt")}) {  // a refused remembered file asks once
        client.m_strSaveFileName = Refused("gone.txt");
        chooser.Answer(true, chosen);
        client.OnSave();
        EXPECT_EQ(client.m_strSaveFileName, chosen == good ? good : "");
    }
    EXPECT_EQ(ViewOf(client).DialogCount(), 5);
    EXPECT_TRUE(CClientTempDir::Exists(good));
    chooser.Answer(true, path);  // Save As always asks and reports the dialog's result
    EXPECT_EQ(client.OnSaveAs(), 0);
    EXPECT_EQ(client.m_strSaveFileName, path);
}

TEST_F(ClientFile, TheAutoSavePathIsTheLastRealOne)
{
    CNoteClient& client = Join(NOTETAKER_SINGLE);
    for (const char* path : {"/tmp/auto.xml", "", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(client.SetAutoSaveFilePath(path), path && *path ? 1 : 0);
        EXPECT_EQ(client.m_strAutoSavePath, "/tmp/auto.xml");
    }
}

// --- meeting loss. Deliberately noon is written with am, and midnight as 00.

TEST_F(ClientFile, TheLossNoticeIsStampedAndARestoreAddsALine)
{
    CNoteClient& client = Join(NOTETAKER_CLOSED_CAPTIONS);
    ViewOf(client).SetText("Hello");
    client.MeetingLost(1);
    EXPECT_EQ(client.m_strShowMsg, "Hello");  // the text as it was before the notice
    g_nHour = 14;
    g_nMinute = 2;
    client.MeetingLost(0);
    const std::string lost = "09:30am " + Lost();
    const std::string restored = "02:02pm " + GetLocalizedString("Service restored.", kTessarinNoteBundleId, nullptr);
    EXPECT_EQ(m_harness.PanelText(client), "Hello\n" + lost + "\n\n" + restored + "\n");
    EXPECT_EQ(NetInfo(client), (Texts{lost, restored}));
    for (const auto& c : {std::make_tuple(0, 5, "00:05am "), std::make_tuple(12, 15, "12:15am "),
                          std::make_tuple(13, 0, "01:00pm "), std::make_tuple(23, 59, "11:59pm ")}) {
        g_nHour = std::get<0>(c);
        g_nMinute = std::get<1>(c);
        client.MeetingLost(1);
        EXPECT_EQ(std::string(client.m_aNetInfo.back()), std::get<2>(c) + Lost());
    }
    // Kind 5 only marks the client's own change; without a panel the note is just the notice.
    client.m_bSelfChange = 0;
    ViewOf(client).SetText("a\nb");
    client.MeetingLost(5);
    EXPECT_EQ(client.m_bSelfChange, 1u);
    EXPECT_EQ(client.m_strShowMsg + m_harness.PanelText(client), "a\r\nba\nb");
    EXPECT_EQ(client.m_aNetInfo.size(), 6u);
    void* panel = client.GetPanel();
    client.SetPanel(nullptr);
    client.MeetingLost(1);
    client.SetPanel(panel);
    EXPECT_EQ(client.m_strShowMsg, "");
}

TEST_F(ClientFile, AtALossEveryNotepadIsAutoSavedOnlyCaptionsGetANotice)
{
    for (NOTETAKERTYPE type : {NOTETAKER_CLOSED_CAPTIONS, NOTETAKER_ALL_PARTICIPANTS, NOTETAKER_SINGLE}) {
        SCOPED_TRACE(type);
        const bool captions = type == NOTETAKER_CLOSED_CAPTIONS;
        const Texts notices = captions ? Texts{"09:30am " + Lost()} : Texts{};
        CNoteClient& client = Join(type);
        client.m_strAutoSavePath = m_strPath;
        ViewOf(client).SetText("my\nnotes");
        client.m_bNeedAutoSave = captions ? 0 : 1;  // captions need nothing else: the notice is a change
        client.MeetingLost(1);
        EXPECT_EQ(client.m_bNeedAutoSave, 0u);
        EXPECT_EQ(NetInfo(client), notices);
        EXPECT_EQ(client.m_strShowMsg, "my\r\nnotes");
        CNoteSaveInfoPDU record;
        ASSERT_TRUE(record.LoadFile(m_strPath) && record.ParseXMLPDU());
        EXPECT_EQ(record.GetNoteShowMsg(), captions ? "my\r\nnotes\r\n09:30am " + Lost() + "\r\n" : "my\r\nnotes");
        EXPECT_EQ(NetInfos(record), notices);
        m_harness.Leave(client);
    }
}

}  // namespace
