// The save PDU: the auto-save document, written and read back through real files.
#include "xml/NoteSaveInfoPDU.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

class SavePdu : public ::testing::Test {
protected:
    void SetUp() override
    {
        char dir[] = "/tmp/notexmlXXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        m_path = std::string(dir) + "/autosave.xml";
        m_dir = dir;
    }
    void TearDown() override
    {
        std::remove(m_path.c_str());
        rmdir(m_dir.c_str());
    }
    std::string m_dir, m_path;
};

std::vector<std::string> ChildNames(TiXmlElement* root)
{
    std::vector<std::string> names;
    for (TiXmlElement* e = root->FirstChildElement(); e; e = e->NextSiblingElement()) {
        names.push_back(e->ValueStr());
    }
    return names;
}

CNoteChangeInfoPDU MakeChange(int cacheId, const std::string& text)
{
    CNoteChangeInfoPDU change;
    change.SetCacheId(cacheId);
    change.SetUniqueId(77);
    change.SetOffSet(3, 0);
    change.SetNoteMsg(text);
    return change;
}

TEST_F(SavePdu, WorkedExampleSurvivesTheFile)
{
    CNoteSaveInfoPDU record;
    ASSERT_TRUE(record.GenerateXMLPDU());
    EXPECT_EQ(record.PrintCompact(), "<notecom ver=\"1.0\" mtype=\"2\" />");
    record.SetChannalID(-5);
    EXPECT_EQ(record.GetChannalID(), "-5");
    record.SetNoteShowMsg("Hello");
    record.SetPublishMsg("Hi");
    record.SetChannalID(1234);
    record.SetUserType(1);
    record.AddNetInfo("nb1");
    record.m_vecChangeInfoPdu.push_back(MakeChange(5, "change text"));
    ASSERT_TRUE(record.GenerateXMLPDU());
    ASSERT_TRUE(record.SaveFile(m_path));

    CNoteSaveInfoPDU loaded;
    loaded.SetOldMsg("untouched");
    ASSERT_TRUE(loaded.LoadFile(m_path));
    EXPECT_EQ(ChildNames(loaded.RootElement()),
              (std::vector<std::string>{"noteinfo", "publish", "channalid", "usertype", "netinfo",
                                        "changepdu", "posnotemsg"}));
    ASSERT_TRUE(loaded.ParseXMLPDU());
    EXPECT_EQ(loaded.GetNoteShowMsg(), "Hello");
    EXPECT_EQ(loaded.GetPublishMsg(), "Hi");
    EXPECT_EQ(loaded.GetOldMsg(), "untouched");
    EXPECT_EQ(loaded.GetChannalID_INT(), 1234);
    EXPECT_EQ(loaded.GetUserType_INT(), 1);
    std::string info;
    loaded.GetNetInfo(0, info);
    EXPECT_EQ(info, "nb1");
    loaded.GetNetInfo(5, info);
    EXPECT_EQ(info, "");
    ASSERT_EQ(loaded.m_vecChangeInfoPdu.size(), 1u);
    EXPECT_EQ(loaded.m_vecChangeInfoPdu[0].GetCacheId_INT(), 5);
    EXPECT_EQ(loaded.m_vecChangeInfoPdu[0].GetNoteMsg(), "change text");
}

// The file is read byte for byte: were CR LF folded into LF, the line ends of the texts would be
// lost and the escape offsets recorded after them would move, losing the changes.
TEST_F(SavePdu, EscapedTextsLineEndsAndManyChangesRoundTripThroughAFile)
{
    CNoteSaveInfoPDU record;
    record.SetNoteShowMsg("one\r\nshow ]]> and abc\r\n");
    record.SetOldMsg("]]>old");
    for (int i = 1; i <= 20; ++i) {
        record.m_vecChangeInfoPdu.push_back(MakeChange(i, "line " + std::to_string(i) + "\r\n]]> abc"));
    }
    ASSERT_TRUE(record.GenerateXMLPDU());
    ASSERT_TRUE(record.SaveFile(m_path));

    CNoteSaveInfoPDU loaded;
    ASSERT_TRUE(loaded.LoadFile(m_path));
    ASSERT_TRUE(loaded.ParseXMLPDU());
    EXPECT_EQ(loaded.GetNoteShowMsg(), "one\r\nshow ]]> and abc\r\n");
    EXPECT_EQ(loaded.GetOldMsg(), "]]>old");
    ASSERT_EQ(loaded.m_vecChangeInfoPdu.size(), 20u);
    for (int i = 1; i <= 20; ++i) {
        const CNoteChangeInfoPDU& c = loaded.m_vecChangeInfoPdu[static_cast<size_t>(i - 1)];
        EXPECT_EQ(c.GetCacheId_INT(), i);
        // Segment text keeps "]] >": the rewriting is never undone.
        EXPECT_EQ(CNoteChangeInfoPDU(c).GetNoteMsg(), "line " + std::to_string(i) + "\r\n]] > abc");
    }
}

TEST_F(SavePdu, NetInfoStopsAtAnEmptyEntryAndAccumulatesOnReparse)
{
    CNoteSaveInfoPDU record;
    record.AddNetInfo("one");
    record.AddNetInfo("");
    record.AddNetInfo("three");
    record.m_vecChangeInfoPdu.push_back(MakeChange(1, "c"));
    record.GenerateXMLPDU();
    const std::string printed = record.PrintCompact();
    EXPECT_EQ(printed.find("three"), std::string::npos);

    CNoteSaveInfoPDU twice;
    ASSERT_TRUE(twice.ParseXMLPDU(printed));
    ASSERT_TRUE(twice.ParseXMLPDU(printed));
    EXPECT_EQ(twice.GetNetInfoCount_INT(), 2);
    EXPECT_EQ(twice.m_vecChangeInfoPdu.size(), 1u);
    twice.ResetNetInfo();
    EXPECT_EQ(twice.GetNetInfoCount_INT(), 0);
}

TEST_F(SavePdu, RejectsWrongTypesAndSkipsBrokenChanges)
{
    CNoteSaveInfoPDU record;
    record.SetNoteShowMsg("kept");
    EXPECT_FALSE(record.ParseXMLPDU("<notecom ver=\"1.0\" mtype=\"1\"><noteinfo>x</noteinfo></notecom>"));
    EXPECT_FALSE(record.ParseXMLPDU(std::string()));
    EXPECT_EQ(record.GetNoteShowMsg(), "kept");

    CNoteSaveInfoPDU mixed;
    ASSERT_TRUE(mixed.ParseXMLPDU(
        "<notecom ver=\"1.0\" mtype=\"2\">"
        "<changepdu><![CDATA[not a pdu]]></changepdu>"
        "<changepdu><![CDATA[<notecom ver=\"1.0\" mtype=\"3\" cacheid=\"4\"/>]]></changepdu>"
        "</notecom>"));
    ASSERT_EQ(mixed.m_vecChangeInfoPdu.size(), 1u);
    EXPECT_EQ(mixed.m_vecChangeInfoPdu[0].GetCacheId_INT(), 4);
}

TEST_F(SavePdu, PositionsSeparatedFromTheirTextAreNotUsed)
{
    CNoteSaveInfoPDU record;
    ASSERT_TRUE(record.ParseXMLPDU(
        "<notecom ver=\"1.0\" mtype=\"2\"><noteinfo><![CDATA[xabc]]></noteinfo>"
        "<channalid>1</channalid><posnotemsg><![CDATA[1,]]></posnotemsg></notecom>"));
    EXPECT_EQ(record.GetNoteShowMsg(), "xabc");
}

}  // namespace
