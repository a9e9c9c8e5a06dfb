// Files: the auto-save file written and loaded back as writer and reader, broken and foreign
// files, the need-save state; saving, exporting and publishing with the dialog and the privilege
// check; and a meeting's loss, with its time-stamped notices and auto-save.
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
    ClientFile() { NoteHostUI_SetWarningCallback([](void* n, const char*, const char*) { ++*static_cast<int*>(n); }, &m_nAlerts); }
    ~ClientFile() override { NoteHostUI_SetWarningCallback(nullptr, nullptr); }
    void SetUp() override { ASSERT_TRUE(m_dir.Ok()); }
    // A path the privilege check refuses: a folder where the file should be.
    std::string Refused(const std::string& name) const
    {
        mkdir(m_dir.File(name).c_str(), 0700);
        return m_dir.File(name);
    }
    // A single note taker's writer auto-saves its document to m_strPath: panel text, published
    // and base texts, net-info entries, delivered and undelivered changes.
    void WriteDocument(const Texts& netInfo = {"09:30am Service restored.", "n2"})
    {
        CNoteClient& writer = m_harness.Join(1, NOTETAKER_SINGLE, NOTE_USER_WRITER);
        ViewOf(writer).SetText("Hello\nworld");
        writer.m_strPublishMsg = "Hi";
        for (const std::string& entry : netInfo) writer.m_aNetInfo.push_back(strcpy(new char[entry.size() + 1], entry.c_str()));
        writer.m_SaveInfo.m_vecChangeInfoPdu = {Change("A", "0", "0", 4), Change("B"), Change("C", "0", "0", 6), Change("D")};
        writer.m_bNeedAutoSave = 1;
        writer.AutoSaveXMLFile();  // no path yet
        EXPECT_EQ(writer.m_bNeedAutoSave, 1u);
        writer.m_strAutoSavePath = m_strPath;
        writer.m_bNeedAutoSave = 0;
        writer.AutoSaveXMLFile();  // not marked: nothing is written
        EXPECT_FALSE(CClientTempDir::Exists(m_strPath));
        writer.m_bNeedAutoSave = 1;
        writer.AutoSaveXMLFile();
        EXPECT_EQ(writer.m_bNeedAutoSave, 0u);
        m_nWriterResourceId = writer.m_nResourceId;
        m_harness.Leave(writer);
    }
    CNoteClient& Load(unsigned userType, NOTETAKERTYPE type = NOTETAKER_SINGLE)
    {
        CNoteClient& client = m_harness.Join(2, type, userType);
        m_harness.SinkOf(client).m_vecCalls.clear();
        client.m_bFileNeedSave = 0;
        ViewOf(client).SetPublishEnabled(false);
        EXPECT_TRUE(client.LoadXMLFile(client.m_SaveInfo, m_strPath.c_str()));
        return client;
    }

    CClientTempDir m_dir;
    std::string m_strPath = m_dir.File("auto.xml");
    CClientHarness m_harness;
    unsigned m_nWriterResourceId = 0;
    int m_nAlerts = 0;
};

TEST_F(ClientFile, TheAutoSaveFileHoldsThePanelTextByteForByte)
{
    WriteDocument({"first", "", "third"});
    CNoteSaveInfoPDU record;
    ASSERT_TRUE(record.LoadFile(m_strPath) && record.ParseXMLPDU());
    EXPECT_EQ(record.GetNoteShowMsg(), "Hello\r\nworld");
    EXPECT_EQ(record.GetChannalID_INT(), int(m_nWriterResourceId));
    EXPECT_EQ(record.GetUserType_INT(), 1);
    EXPECT_EQ(NetInfos(record), (Texts{"first"}));  // entries after an empty one are not written
}

TEST_F(ClientFile, AWriterLoadsTheWholeDocumentAReaderOnlyWhatReachedTheCache)
{
    WriteDocument({"a\n\nb", "09:30am Service restored."});
    CNoteClient& writer = Load(NOTE_USER_WRITER);
    EXPECT_EQ(writer.m_strShowMsg + "|" + writer.m_strOldMsg + "|" + writer.m_strPublishMsg, "Hello\r\nworld|Hello\r\nworld|Hi");
    EXPECT_EQ(m_harness.PanelText(writer), "Hello\nworld");
    EXPECT_EQ(NetInfo(writer), (Texts{"a\r\nb", "09:30am Service restored."}));  // blank lines come back as CR LF
    EXPECT_EQ(Changes(writer.m_SaveInfo), (Texts{"A/4", "B/0", "C/6", "D/0"}));
    EXPECT_EQ(writer.m_bNeedAutoSave, 1u);
    const Texts& calls = m_harness.SinkOf(writer).m_vecCalls;
    ASSERT_GE(calls.size(), 2u);
    EXPECT_EQ(Texts(calls.begin(), calls.begin() + 2), (Texts{"NeedSave 1", "SaveEnabled 1"}));
    m_harness.Leave(writer);
    for (unsigned userType : {NOTE_USER_READER, NOTE_USER_WRITER}) {  // only the captioner's Publish is enabled
        CNoteClient& client = Load(userType, NOTETAKER_CLOSED_CAPTIONS);
        EXPECT_EQ(Changes(client.m_SaveInfo), userType == NOTE_USER_READER ? (Texts{"A/4", "C/6"})
                                                                           : (Texts{"A/4", "B/0", "C/6", "D/0"}));
        EXPECT_EQ(client.m_strPublishMsg, userType == NOTE_USER_READER ? "Hello\r\nworld" : "Hi");
        EXPECT_EQ(ViewOf(client).IsPublishEnabled(), userType == NOTE_USER_WRITER);
        m_harness.Leave(client);
    }
    // A reader of a single note taker does not use the file.
    CNoteClient& reader = m_harness.Join(2, NOTETAKER_SINGLE, NOTE_USER_READER);
    reader.m_strShowMsg = "mine";
    reader.m_aNetInfo.push_back(strcpy(new char[6], "stale"));
    ASSERT_TRUE(reader.LoadXMLFile(reader.m_SaveInfo, m_strPath.c_str()));
    EXPECT_EQ(reader.m_SaveInfo.GetNoteShowMsg() + reader.m_strShowMsg, "mine");
    EXPECT_TRUE(reader.m_SaveInfo.m_vecChangeInfoPdu.empty() && reader.m_aNetInfo.empty());
}

TEST_F(ClientFile, MissingBrokenAndForeignFilesAreNotLoaded)
{
    CNoteClient& client = m_harness.Join(2, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    ViewOf(client).SetText("untouched");
    client.m_strShowMsg = "show";
    EXPECT_FALSE(client.LoadXMLFile(client.m_SaveInfo, nullptr));
    EXPECT_FALSE(client.LoadXMLFile(client.m_SaveInfo, m_dir.File("missing.xml").c_str()));
    for (const std::string& content : {std::string("<notecom ver=\"1.0\" mtype=\"2\"><noteinfo><![CDATA[cut"),
                                       std::string("<notecom ver=\"1.0\" mtype=\"1\"><noteinfo></noteinfo></notecom>")}) {
        CClientTempDir::Write(m_strPath, content);
        EXPECT_FALSE(client.LoadXMLFile(client.m_SaveInfo, m_strPath.c_str())) << content;
    }
    EXPECT_EQ(client.m_strShowMsg + m_harness.PanelText(client), "showuntouched");
}

TEST_F(ClientFile, NeedSaveTellsHostAndPanelOnlyOnChange)
{
    CNoteClient& client = m_harness.Join(1, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    client.m_bFileNeedSave = 0;
    Texts& calls = m_harness.SinkOf(client).m_vecCalls;
    calls.clear();
    for (bool flag : {false, true, true}) client.SetFileNeedSave(flag);
    EXPECT_TRUE(ViewOf(client).IsSaveEnabled());
    client.SetFileNeedSave(false);
    EXPECT_EQ(calls, (Texts{"NeedSave 1", "NeedSave 0"}));
    EXPECT_FALSE(ViewOf(client).IsSaveEnabled());
}

// --- saving and exporting

TEST_F(ClientFile, ExportNamesTheFileByNotepadAndRefusedOrNullFoldersWriteNothing)
{
    const struct {
        NOTETAKERTYPE type;
        std::string folder, name;
    } cases[] = {{NOTETAKER_SINGLE, m_dir.Path() + "/", "Notes.txt"}, {NOTETAKER_CLOSED_CAPTIONS, m_dir.Path(), "Closed Captions.txt"}};
    unsigned userId = 1;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.folder + " " + c.name);
        CNoteClient& client = m_harness.Join(userId++, c.type, NOTE_USER_WRITER);
        m_harness.Type(client, "line one\nline two");
        client.SetFileNeedSave(true);
        CTelemetryLog telemetry;
        client.WriteNoteFileToFolder(c.folder.c_str());
        EXPECT_EQ(client.m_strSaveFileName, m_dir.File(c.name));
        EXPECT_EQ(CClientTempDir::Read(m_dir.File(c.name)), "line one\nline two");  // the panel's own line ends
        EXPECT_EQ(client.GetFileSaveState(), 0);
        EXPECT_EQ(client.m_bNoFileSaveYet + client.m_bModifiedSinceFileSave, 0);
        EXPECT_TRUE(telemetry.m_vecActions.empty());
        unlink(m_dir.File(c.name).c_str());
        m_harness.Leave(client);
    }
    CNoteClient& client = m_harness.Join(1, NOTETAKER_ALL_PARTICIPANTS, NOTE_USER_WRITER);
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
    CNoteClient& client = m_harness.Join(1, NOTETAKER_SINGLE, NOTE_USER_WRITER);
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
    // A refused remembered file asks once for another.
    const struct {
        std::string remembered, chosen, saved;
        std::vector<int> telemetry;
    } cases[] = {{Refused("gone.txt"), good, good, {2001, 2001, 2002}}, {Refused("gone.txt"), Refused("also.txt"), "", {2001, 2001}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.remembered + " then " + c.chosen);
        unlink(good.c_str());
        client.m_strSaveFileName = c.remembered;
        const int dialogs = ViewOf(client).DialogCount();
        chooser.Answer(true, c.chosen);
        CTelemetryLog log;
        client.OnSave();
        EXPECT_EQ(ViewOf(client).DialogCount() - dialogs, 1);
        EXPECT_EQ(client.m_strSaveFileName, c.saved);
        EXPECT_EQ(CClientTempDir::Exists(good), !c.saved.empty());
        EXPECT_EQ(log.m_vecActions, c.telemetry);
    }
    chooser.Answer(true, path);  // Save As always asks and reports the dialog's result
    EXPECT_EQ(client.OnSaveAs(), 0);
    EXPECT_EQ(client.m_strSaveFileName, path);
}

TEST_F(ClientFile, TheAutoSavePathAndThePublishStatus)
{
    CNoteClient& client = m_harness.Join(1, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    const struct {
        const char* path;
        int result;
        const char* kept;
    } steps[] = {{"/tmp/auto.xml", 1, "/tmp/auto.xml"}, {"", 0, "/tmp/auto.xml"}, {nullptr, 0, "/tmp/auto.xml"}};
    for (const auto& step : steps) {
        EXPECT_EQ(client.SetAutoSaveFilePath(step.path), step.result);
        EXPECT_EQ(client.m_strAutoSavePath, step.kept);
    }
    // Unpublished text of the writer, compared with CR LF line ends.
    for (const auto& c : {std::make_pair("a\nb", 0), std::make_pair("a\nbc", 1), std::make_pair("", 1)}) {
        ViewOf(client).SetText(c.first);
        client.m_strOldMsg = "a\r\nb";
        EXPECT_EQ(client.GetPublishStatus(), c.second) << c.first;
    }
    m_harness.Type(client, "to publish");
    client.m_bHasContent = 0;
    client.ToPublish();
    m_harness.Settle();
    EXPECT_EQ(client.GetPublishStatus(), 0);
    EXPECT_EQ(client.m_bHasContent, 1u);
    EXPECT_TRUE(ViewOf(client).IsPublishEnabled());
    client.SetUserType(NOTE_USER_READER);
    ViewOf(client).SetText("unpublished");
    EXPECT_EQ(client.GetPublishStatus(), 0);
}

// --- meeting loss

class ClientMeetingLoss : public ClientFile {
protected:
    CNoteClient& Join(NOTETAKERTYPE type)
    {
        g_nHour = 9;
        g_nMinute = 30;
        CNoteClient& client = m_harness.Join(1, type, NOTE_USER_WRITER);
        client.m_pfnNoticeClock = &FixedClock;
        client.m_strAutoSavePath = m_strPath;
        return client;
    }
};

// Deliberately noon is written with am, and midnight as 00.
TEST_F(ClientMeetingLoss, TheStampWritesNoonAsAmAndMidnightAsZeroAndARestoreAddsALine)
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
    EXPECT_EQ(client.m_strShowMsg, "Hello\r\n" + lost + "\r\n");
    for (const auto& c : {std::make_tuple(0, 5, "00:05am "), std::make_tuple(12, 15, "12:15am "),
                          std::make_tuple(13, 0, "01:00pm "), std::make_tuple(23, 59, "11:59pm ")}) {
        g_nHour = std::get<0>(c);
        g_nMinute = std::get<1>(c);
        client.MeetingLost(1);
        EXPECT_EQ(std::string(client.m_aNetInfo.back()), std::get<2>(c) + Lost());
    }
}

TEST_F(ClientMeetingLoss, EveryNotepadIsAutoSavedOnlyCaptionsGetANotice)
{
    for (NOTETAKERTYPE type : {NOTETAKER_CLOSED_CAPTIONS, NOTETAKER_ALL_PARTICIPANTS, NOTETAKER_SINGLE}) {
        SCOPED_TRACE(type);
        const bool captions = type == NOTETAKER_CLOSED_CAPTIONS;
        const Texts notices = captions ? Texts{"09:30am " + Lost()} : Texts{};
        CNoteClient& client = Join(type);
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

TEST_F(ClientMeetingLoss, KindFiveOnlyMarksTheClientsOwnChangeAndWithoutAPanelTheNoteIsTheNotice)
{
    CNoteClient& client = Join(NOTETAKER_CLOSED_CAPTIONS);
    client.m_bNeedAutoSave = 1;
    ViewOf(client).SetText("a\nb");
    client.MeetingLost(5);
    EXPECT_EQ(client.m_bSelfChange, 1u);
    EXPECT_EQ(client.m_strShowMsg, "a\r\nb");
    EXPECT_EQ(m_harness.PanelText(client), "a\nb");
    EXPECT_TRUE(client.m_aNetInfo.empty());
    EXPECT_FALSE(CClientTempDir::Exists(m_strPath));
    void* panel = client.GetPanel();
    client.SetPanel(nullptr);
    client.MeetingLost(1);
    client.SetPanel(panel);
    EXPECT_EQ(client.m_strShowMsg, "");
    EXPECT_EQ(NetInfo(client), (Texts{"09:30am " + Lost()}));
}

}  // namespace
