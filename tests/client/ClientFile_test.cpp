// The auto-save file: writing the document, loading it into a fresh client as writer and as
// reader, broken and foreign files; and the need-save state.
#include "ClientHarness.h"
#include "ClientTempDir.h"
#include "ClientWire.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

// "text/cacheid" of each change of a record.
std::vector<std::string> Changes(CNoteSaveInfoPDU& record)
{
    std::vector<std::string> changes;
    for (CNoteChangeInfoPDU& pdu : record.m_vecChangeInfoPdu)
        changes.push_back(pdu.GetNoteMsg() + "/" + std::to_string(pdu.GetCacheId_INT()));
    return changes;
}

class FileTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(m_dir.Ok()); }

    // A writer of a single note taker's notepad whose document is auto-saved to m_strPath:
    // panel text, published and base texts, net-info entries, delivered and undelivered changes.
    void WriteDocument(const std::vector<std::string>& netInfo = {"09:30am Service restored.", "n2"})
    {
        CNoteClient& writer = m_harness.Join(1, NOTETAKER_SINGLE, NOTE_USER_WRITER);
        ViewOf(writer).SetText("Hello\nworld");
        writer.m_strPublishMsg = "Hi";
        writer.m_strOldMsg = "Hel";
        for (const std::string& entry : netInfo) {
            char* copy = new char[entry.size() + 1];
            std::memcpy(copy, entry.c_str(), entry.size() + 1);
            writer.m_aNetInfo.push_back(copy);
        }
        writer.m_SaveInfo.m_vecChangeInfoPdu = {Change("A", "0", "0", 4), Change("B"), Change("C", "0", "0", 6),
                                                Change("D")};
        writer.m_strAutoSavePath = m_strPath;
        writer.m_bNeedAutoSave = 0;
        writer.AutoSaveXMLFile();  // not marked: nothing is written
        EXPECT_FALSE(CClientTempDir::Exists(m_strPath));
        writer.m_bNeedAutoSave = 1;
        writer.AutoSaveXMLFile();
        EXPECT_EQ(0u, writer.m_bNeedAutoSave);
        m_nWriterResourceId = writer.m_nResourceId;
        m_harness.Leave(writer);
    }

    CClientTempDir m_dir;
    std::string m_strPath = m_dir.File("auto.xml");
    CClientHarness m_harness;
    unsigned m_nWriterResourceId = 0;
};

TEST_F(FileTest, AutoSaveNeedsAPathAndWritesThePanelTextByteForByte)
{
    CNoteClient& writer = m_harness.Join(1, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    ViewOf(writer).SetText("line\nnext");
    writer.m_bNeedAutoSave = 1;
    writer.AutoSaveXMLFile();  // no path yet
    EXPECT_EQ(1u, writer.m_bNeedAutoSave);

    WriteDocument({"first", "", "third"});
    CNoteSaveInfoPDU record;
    ASSERT_TRUE(record.LoadFile(m_strPath));
    ASSERT_TRUE(record.ParseXMLPDU());
    EXPECT_EQ("Hello\r\nworld", record.GetNoteShowMsg());  // CR LF kept
    EXPECT_EQ(static_cast<int>(m_nWriterResourceId), record.GetChannalID_INT());
    EXPECT_EQ(1, record.GetUserType_INT());
    // Net-info entries after an empty one are not written.
    ASSERT_EQ(1, record.GetNetInfoCount_INT());
    std::string entry;
    record.GetNetInfo(0, entry);
    EXPECT_EQ("first", entry);
}

TEST_F(FileTest, WriterLoadsTheWholeDocument)
{
    WriteDocument();
    CNoteClient& client = m_harness.Join(2, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    m_harness.SinkOf(client).m_vecCalls.clear();
    client.m_bFileNeedSave = 0;

    ASSERT_TRUE(client.LoadXMLFile(client.m_SaveInfo, m_strPath.c_str()));
    // The file reader folds CR LF into LF.
    EXPECT_EQ("Hello\r\nworld", client.m_strShowMsg);
    EXPECT_EQ("Hello\r\nworld", client.m_strOldMsg);
    EXPECT_EQ("Hi", client.m_strPublishMsg);
    EXPECT_EQ("Hello\nworld", m_harness.PanelText(client));
    EXPECT_EQ((std::vector<std::string>{"09:30am Service restored.", "n2"}), NetInfo(client));
    EXPECT_EQ((std::vector<std::string>{"A/4", "B/0", "C/6", "D/0"}), Changes(client.m_SaveInfo));
    EXPECT_EQ(static_cast<int>(m_nWriterResourceId), client.m_SaveInfo.GetChannalID_INT());
    EXPECT_EQ(1u, client.m_bNeedAutoSave);
    EXPECT_EQ(1, client.m_bFileNeedSave);
    const std::vector<std::string>& calls = m_harness.SinkOf(client).m_vecCalls;
    ASSERT_GE(calls.size(), 2u);
    EXPECT_EQ("NeedSave 1", calls[0]);
    EXPECT_EQ("SaveEnabled 1", calls[1]);
}

TEST_F(FileTest, ReaderDropsTheChangesThatNeverReachedTheCache)
{
    WriteDocument();
    for (NOTETAKERTYPE type : {NOTETAKER_ALL_PARTICIPANTS, NOTETAKER_CLOSED_CAPTIONS}) {
        CNoteClient& reader = m_harness.Join(2, type, NOTE_USER_READER);
        ASSERT_TRUE(reader.LoadXMLFile(reader.m_SaveInfo, m_strPath.c_str()));
        EXPECT_EQ((std::vector<std::string>{"A/4", "C/6"}), Changes(reader.m_SaveInfo)) << type;
        EXPECT_EQ("Hello\r\nworld", reader.m_strPublishMsg) << type;  // a reader's is the shown text
        m_harness.Leave(reader);
    }
}

TEST_F(FileTest, ReaderOfASingleNoteTakerDoesNotUseTheFile)
{
    WriteDocument();
    CNoteClient& reader = m_harness.Join(2, NOTETAKER_SINGLE, NOTE_USER_READER);
    reader.m_aNetInfo.push_back(new char[6]{'s', 't', 'a', 'l', 'e', 0});
    reader.m_strShowMsg = "mine";
    ASSERT_TRUE(reader.LoadXMLFile(reader.m_SaveInfo, m_strPath.c_str()));
    EXPECT_EQ("", reader.m_SaveInfo.GetNoteShowMsg());
    EXPECT_EQ(0, reader.m_SaveInfo.GetNetInfoCount_INT());
    EXPECT_TRUE(reader.m_SaveInfo.m_vecChangeInfoPdu.empty());
    EXPECT_EQ("mine", reader.m_strShowMsg);
    EXPECT_TRUE(reader.m_aNetInfo.empty());
}

TEST_F(FileTest, NetInfoBlankLinesComeBackAsCrLf)
{
    WriteDocument({"a\n\nb", "x\n\n\ny", "plain"});
    CNoteClient& client = m_harness.Join(2, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    ASSERT_TRUE(client.LoadXMLFile(client.m_SaveInfo, m_strPath.c_str()));
    EXPECT_EQ((std::vector<std::string>{"a\r\nb", "x\r\n\ny", "plain"}), NetInfo(client));
}

TEST_F(FileTest, OnlyTheCaptionerLoadingTextEnablesPublish)
{
    WriteDocument();
    unsigned userId = 2;
    for (unsigned userType : {NOTE_USER_WRITER, NOTE_USER_READER}) {
        CNoteClient& client = m_harness.Join(userId++, NOTETAKER_CLOSED_CAPTIONS, userType);
        ViewOf(client).SetPublishEnabled(false);
        ASSERT_TRUE(client.LoadXMLFile(client.m_SaveInfo, m_strPath.c_str()));
        EXPECT_EQ(userType == NOTE_USER_WRITER, ViewOf(client).IsPublishEnabled());
    }
}

TEST_F(FileTest, MissingBrokenAndForeignFilesAreNotLoaded)
{
    CNoteClient& client = m_harness.Join(2, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    ViewOf(client).SetText("untouched");
    client.m_strShowMsg = "show";
    EXPECT_FALSE(client.LoadXMLFile(client.m_SaveInfo, nullptr));
    EXPECT_FALSE(client.LoadXMLFile(client.m_SaveInfo, m_dir.File("missing.xml").c_str()));
    const std::vector<std::string> contents = {
        "",
        "<notecom ver=\"1.0\" mtype=\"2\"><noteinfo><![CDATA[cut",
        std::string("\x00\xff\xfe<\x01garbage", 12),
        "<notecom ver=\"1.0\" mtype=\"1\"><noteinfo><![CDATA[other kind]]></noteinfo></notecom>",
        "<notecom ver=\"2.0\" mtype=\"2\"><noteinfo><![CDATA[other version]]></noteinfo></notecom>",
        std::string(200, '<') + "notecom>",
    };
    for (size_t i = 0; i < contents.size(); ++i) {
        CClientTempDir::Write(m_strPath, contents[i]);
        EXPECT_FALSE(client.LoadXMLFile(client.m_SaveInfo, m_strPath.c_str())) << i;
    }
    EXPECT_EQ("show", client.m_strShowMsg);
    EXPECT_EQ("untouched", m_harness.PanelText(client));
}

TEST_F(FileTest, NeedSaveTellsHostAndPanelOnlyOnChange)
{
    CNoteClient& client = m_harness.Join(1, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    client.m_bFileNeedSave = 0;
    ViewOf(client).SetSaveEnabled(false);
    std::vector<std::string>& calls = m_harness.SinkOf(client).m_vecCalls;
    calls.clear();

    client.SetFileNeedSave(false);
    EXPECT_TRUE(calls.empty());
    client.SetFileNeedSave(true);
    client.SetFileNeedSave(true);
    EXPECT_EQ((std::vector<std::string>{"NeedSave 1"}), calls);
    EXPECT_TRUE(ViewOf(client).IsSaveEnabled());
    EXPECT_EQ(1, client.GetFileSaveState());
    client.SetFileNeedSave(false);
    EXPECT_EQ((std::vector<std::string>{"NeedSave 1", "NeedSave 0"}), calls);
    EXPECT_FALSE(ViewOf(client).IsSaveEnabled());
}

}  // namespace
