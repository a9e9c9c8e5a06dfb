// The three PDUs: their exact XML, the way back (compact and indented, through real files for
// the save document), segmentation by markers, and what a wrong or broken document leaves.
#include "xml/OrvNoteXML.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

std::string Indented(const TiXmlDocument& doc)
{
    TiXmlPrinter printer;
    doc.Accept(&printer);
    return printer.Str();
}

std::vector<std::string> SegmentTexts(const CNoteChangeInfoPDU& pdu)
{
    std::vector<std::string> texts;
    for (const CNoteSegInfo& seg : pdu.GetSegments()) texts.push_back((seg.GetSpecial() ? "*" : "") + seg.GetSegInfo());
    return texts;
}

TEST(NoteInfoPdu, PrintsExactlyAndReadsBack)
{
    CNoteInfoPDU pdu;
    pdu.SetNoteMsg("a]]>b\r\nc");
    ASSERT_TRUE(pdu.GenerateXMLPDU());
    EXPECT_EQ(pdu.PrintCompact(),
              "<notecom ver=\"1.0\" mtype=\"1\"><noteinfo><![CDATA[aabcb\r\nc]]></noteinfo>"
              "<posnotemsg><![CDATA[1,]]></posnotemsg></notecom>");
    for (const std::string& printed : {pdu.PrintCompact(), Indented(pdu)}) {
        CNoteInfoPDU back;
        ASSERT_TRUE(back.ParseXMLPDU(printed));
        EXPECT_EQ(back.GetNoteMsg(), "a]]>b\r\nc");
        EXPECT_EQ(back.GetPosList(), NotePosList({1}));
    }
    CNoteInfoPDU empty;
    EXPECT_TRUE(empty.GenerateXMLPDU());
    EXPECT_EQ(empty.PrintCompact(), "<notecom ver=\"1.0\" mtype=\"1\" />");

    // An empty text keeps the old one; a position list not right after the text is not seen;
    // a wrong type or nothing at all is refused.
    CNoteInfoPDU reader, wrong;
    reader.SetNoteMsg("kept");
    wrong.SetNoteMsg("kept");
    EXPECT_TRUE(reader.ParseXMLPDU(empty.PrintCompact()));
    EXPECT_FALSE(wrong.ParseXMLPDU("<notecom ver=\"1.0\" mtype=\"3\"><noteinfo>x</noteinfo></notecom>"));
    EXPECT_FALSE(wrong.ParseXMLPDU(""));
    EXPECT_EQ(reader.GetNoteMsg() + wrong.GetNoteMsg(), "keptkept");
    CNoteInfoPDU misplaced;
    ASSERT_TRUE(misplaced.ParseXMLPDU("<notecom ver=\"1.0\" mtype=\"1\"><noteinfo><![CDATA[aabcb]]></noteinfo><x/>"
                                      "<posnotemsg><![CDATA[1,]]></posnotemsg></notecom>"));
    EXPECT_EQ(misplaced.GetNoteMsg(), "aabcb");
}

TEST(ChangePdu, PrintsExactlyAndRoundTripsFieldsAndSegments)
{
    CNoteChangeInfoPDU pdu;
    pdu.SetUniqueId(7);
    pdu.SetOffSet(12, 0);
    pdu.SetOffSet(15, 1);
    pdu.SetCacheId(3);
    pdu.SetNoteMsg("Hi ]]> there");
    ASSERT_TRUE(pdu.GenerateXMLPDU());
    EXPECT_EQ(pdu.PrintCompact(),
              "<notecom ver=\"1.0\" mtype=\"3\" useruniqueid=\"7\" offset=\"12\" offsetlast=\"15\" "
              "cacheid=\"3\"><seginfo endnewline=\"0\" posnotemsg=\"\" special=\"0\">"
              "<![CDATA[Hi ]] > there]]></seginfo></notecom>");

    pdu.SetUniqueId(-42);
    pdu.SetOffSet(100000, 0);
    pdu.SetOffSet(0, 1);
    pdu.AddNetInfo("@m@");
    pdu.SetNoteMsg("x]]>y@m@tail\r\n");
    pdu.GenerateXMLPDU();
    for (const std::string& printed : {pdu.PrintCompact(), Indented(pdu)}) {
        CNoteChangeInfoPDU back;
        ASSERT_TRUE(back.ParseXMLPDU(printed)) << printed;
        EXPECT_EQ(back.GetUniqueId_INT(), -42);
        EXPECT_EQ(back.GetOffSet(0), "100000");
        EXPECT_EQ(back.GetOffSet_INT(1), 0);
        EXPECT_EQ(back.GetCacheId_INT(), 3);
        EXPECT_EQ(back.GetNetInfoCount_INT(), 0);  // markers are not transmitted
        EXPECT_EQ(SegmentTexts(back), SegmentTexts(pdu));
        EXPECT_EQ(back.GetNoteMsg(), "x]] >ytail\r\n");
    }
    // Copies are deep; moves keep fields and document.
    CNoteChangeInfoPDU copy(pdu);
    copy.SetNoteMsg("changed");
    copy.GenerateXMLPDU();
    EXPECT_EQ(pdu.PrintCompact().find("changed"), std::string::npos);
    copy.SetOffSet(3, 1);
    const std::string printed = copy.PrintCompact();
    CNoteChangeInfoPDU moved(std::move(copy));
    EXPECT_EQ(moved.PrintCompact(), printed);
    EXPECT_EQ(moved.GetOffSet_INT(1) + moved.GetMainType_Int(), 3 + 3);
}

TEST(ChangePdu, MarkersBecomeSpecialSegmentsLeftOutOfTheText)
{
    struct { std::vector<std::string> markers; std::string msg; std::vector<std::string> segments; std::string joined; } const cases[] = {
        {{"#tag#"}, "ab#tag#cd", {"ab", "*#tag#", "cd"}, "abcd"},
        {{}, "", {}, ""},
        {{"#tag#"}, "#tag#", {"*#tag#"}, ""},
        {{"X", "Y"}, "aXb", {"a", "*X", "aXb"}, "aaXb"},  // a missing later marker adds the whole message again
        {{"Y"}, "abc", {"abc"}, "abc"},  // only recorded offsets turn back into "]]>"
    };
    for (const auto& c : cases) {
        CNoteChangeInfoPDU pdu;
        for (const std::string& m : c.markers) pdu.AddNetInfo(m);
        pdu.SetNoteMsg(c.msg);
        EXPECT_EQ(SegmentTexts(pdu), c.segments) << c.msg;
        EXPECT_EQ(pdu.GetNoteMsg(), c.joined) << c.msg;
    }
}

// A received change's fields read without keeping its document, and the text's shortcuts
// (hash, emptiness, taking it out), agree with the text joined from a full parse.
TEST(ChangePdu, FieldsOnlyAndTextShortcutsAgreeWithTheJoinedText)
{
    const std::string head = "<notecom ver=\"1.0\" mtype=\"3\">";
    for (const std::string body : {"<seginfo><![CDATA[abc]]></seginfo>", "<seginfo><![CDATA[a\n\nb]]></seginfo>",
                                   "<seginfo endnewline=\"1\"><![CDATA[a]]></seginfo>",
                                   "<seginfo posnotemsg=\"1,\"><![CDATA[aabc]]></seginfo>",
                                   "<seginfo posnotemsg=\"0,\"/>", "<seginfo special=\"1\">#m#</seginfo>",
                                   "<seginfo>]]&gt;x&#0;y</seginfo>", ""}) {
        SCOPED_TRACE(body);
        CNoteChangeInfoPDU full, fields;
        ASSERT_TRUE(full.ParseXMLPDU(head + body + "</notecom>"));
        ASSERT_TRUE(fields.ParseFieldsOnly(head + body + "</notecom>"));
        EXPECT_EQ(fields.FirstChild(), nullptr);
        EXPECT_EQ(SegmentTexts(fields), SegmentTexts(full));
        const std::string joined = full.GetNoteMsg();
        EXPECT_EQ(fields.GetNoteMsgHash(), std::hash<std::string>()(joined));
        EXPECT_EQ(fields.IsNoteMsgEmpty(), joined.empty());
        EXPECT_EQ(fields.TakeNoteMsg(), joined);
    }
}

TEST(ChangePdu, SegmentAttributesEmptyTextsAndRefusals)
{
    CNoteChangeInfoPDU pdu;
    pdu.SetCacheId(5);
    for (const char* bad : {"<notecom ver=\"1.0\" mtype=\"1\" cacheid=\"7\"/>", "<notecom ver=\"2.0\" mtype=\"3\" cacheid=\"7\"/>", "", "<notecom"}) {
        EXPECT_FALSE(pdu.ParseXMLPDU(bad)) << bad;
    }
    EXPECT_EQ(pdu.GetCacheId_INT(), 5);
    pdu = CNoteChangeInfoPDU();
    ASSERT_TRUE(pdu.ParseXMLPDU(
        "<notecom ver=\"1.0\" mtype=\"3\" offset=\"5\">"
        "<seginfo endnewline=\"2\" posnotemsg=\"1,\" special=\"x\"><![CDATA[aabc]]></seginfo>"
        "<seginfo special=\"1\"><![CDATA[#m#]]></seginfo><seginfo endnewline=\"1\"/></notecom>"));
    EXPECT_EQ(pdu.GetUniqueId(), "");  // missing attributes read as empty, not "0"
    EXPECT_EQ(pdu.GetOffSet_INT(1), 0);
    EXPECT_EQ(pdu.GetOffSet_INT(0), 5);
    ASSERT_EQ(pdu.GetSegments().size(), 3u);
    EXPECT_TRUE(pdu.GetSegments()[0].GetEndln());
    EXPECT_FALSE(pdu.GetSegments()[0].GetSpecial());
    EXPECT_EQ(pdu.GetSegments()[0].GetPosVec(), NotePosList({1}));
    EXPECT_EQ(pdu.GetNoteMsg(), "a]]>\r\n\r\n");
    pdu.GenerateXMLPDU();  // an empty segment writes no CDATA child
    EXPECT_NE(pdu.PrintCompact().find("<seginfo endnewline=\"1\" posnotemsg=\"\" special=\"0\" />"), std::string::npos);

    CNoteSegInfo seg;
    seg.SetSegInfo("a]]>]]>b");
    EXPECT_EQ(seg.GetSegInfo(), "a]] >]] >b");
    for (const char* text : {"", "0", "x"}) {
        seg.SetEndln(std::string(text));
        EXPECT_FALSE(seg.GetEndln()) << text;
    }
    seg.SetEndln(std::string("2"));
    EXPECT_EQ(seg.GetEndlnStr(), "1");
    seg.SetMsgPos(NotePosList({-1}));
    EXPECT_EQ(seg.GetPosStr(), "-1,");
    seg.ReSet();
    EXPECT_TRUE(seg.GetPosVec().empty() && !seg.GetEndln() && seg.GetSegInfo().empty());
}

class SavePdu : public ::testing::Test {
protected:
    void SetUp() override
    {
        char dir[] = "/tmp/notexmlXXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        m_dir = dir;
        m_path = m_dir + "/autosave.xml";
    }
    void TearDown() override
    {
        std::remove(m_path.c_str());
        rmdir(m_dir.c_str());
    }
    static CNoteChangeInfoPDU Change(int cacheId, const std::string& text)
    {
        CNoteChangeInfoPDU change;
        change.SetCacheId(cacheId);
        change.SetUniqueId(77);
        change.SetNoteMsg(text);
        return change;
    }
    std::string m_dir, m_path;
};

// The file is read byte for byte: were CR LF folded into LF, the line ends of the texts would be
// lost and the escape offsets recorded after them would move, losing the changes.
TEST_F(SavePdu, EverythingSurvivesTheFile)
{
    CNoteSaveInfoPDU record;
    ASSERT_TRUE(record.GenerateXMLPDU());
    EXPECT_EQ(record.PrintCompact(), "<notecom ver=\"1.0\" mtype=\"2\" />");
    record.SetNoteShowMsg("one\r\nshow ]]> and abc\r\n");
    record.SetPublishMsg("Hi");
    record.SetOldMsg("]]>old");
    record.SetChannalID(1234);
    record.SetUserType(1);
    record.AddNetInfo("nb1");
    for (int i = 1; i <= 20; ++i) record.m_vecChangeInfoPdu.push_back(Change(i, "line " + std::to_string(i) + "\r\n]]> abc"));
    ASSERT_TRUE(record.GenerateXMLPDU());
    ASSERT_TRUE(record.SaveFile(m_path));

    CNoteSaveInfoPDU loaded;
    ASSERT_TRUE(loaded.LoadFile(m_path));
    std::vector<std::string> names;
    for (TiXmlElement* e = loaded.RootElement()->FirstChildElement(); e; e = e->NextSiblingElement()) names.push_back(e->ValueStr());
    ASSERT_EQ(names.size(), 8u + 2 * 20);  // each change with its positions
    names.resize(10);
    EXPECT_EQ(names, (std::vector<std::string>{"noteinfo", "posnotemsg", "publish", "olddatamsg", "posnotemsg",
                                               "channalid", "usertype", "netinfo", "changepdu", "posnotemsg"}));
    ASSERT_TRUE(loaded.ParseXMLPDU());
    EXPECT_EQ(loaded.GetNoteShowMsg(), "one\r\nshow ]]> and abc\r\n");
    EXPECT_EQ(loaded.GetPublishMsg(), "Hi");
    EXPECT_EQ(loaded.GetOldMsg(), "]]>old");
    EXPECT_EQ(loaded.GetChannalID_INT(), 1234);
    EXPECT_EQ(loaded.GetUserType_INT(), 1);
    std::string info;
    loaded.GetNetInfo(0, info);
    EXPECT_EQ(info, "nb1");
    loaded.GetNetInfo(5, info);
    EXPECT_EQ(info, "");
    ASSERT_EQ(loaded.m_vecChangeInfoPdu.size(), 20u);
    for (int i = 1; i <= 20; ++i) {
        const CNoteChangeInfoPDU& c = loaded.m_vecChangeInfoPdu[static_cast<size_t>(i - 1)];
        EXPECT_EQ(c.GetCacheId_INT(), i);
        // Segment text keeps "]] >": the rewriting is never undone.
        EXPECT_EQ(CNoteChangeInfoPDU(c).GetNoteMsg(), "line " + std::to_string(i) + "\r\n]] > abc");
    }
}

TEST_F(SavePdu, NetInfoStopsAtAnEmptyEntryBrokenChangesAreSkippedWrongTypesRefused)
{
    CNoteSaveInfoPDU record;
    for (const char* info : {"one", "", "three"}) record.AddNetInfo(info);
    record.m_vecChangeInfoPdu.push_back(Change(1, "c"));
    record.GenerateXMLPDU();
    const std::string printed = record.PrintCompact();
    EXPECT_EQ(printed.find("three"), std::string::npos);
    CNoteSaveInfoPDU twice;
    ASSERT_TRUE(twice.ParseXMLPDU(printed));
    ASSERT_TRUE(twice.ParseXMLPDU(printed));
    EXPECT_EQ(twice.GetNetInfoCount_INT(), 2);  // accumulates on reparse
    EXPECT_EQ(twice.m_vecChangeInfoPdu.size(), 1u);
    twice.ResetNetInfo();
    EXPECT_EQ(twice.GetNetInfoCount_INT(), 0);

    CNoteSaveInfoPDU wrong;
    wrong.SetNoteShowMsg("kept");
    EXPECT_FALSE(wrong.ParseXMLPDU("<notecom ver=\"1.0\" mtype=\"1\"><noteinfo>x</noteinfo></notecom>"));
    EXPECT_FALSE(wrong.ParseXMLPDU(std::string()));
    EXPECT_EQ(wrong.GetNoteShowMsg(), "kept");
    CNoteSaveInfoPDU mixed;
    ASSERT_TRUE(mixed.ParseXMLPDU(
        "<notecom ver=\"1.0\" mtype=\"2\"><noteinfo><![CDATA[xabc]]></noteinfo><channalid>1</channalid>"
        "<posnotemsg><![CDATA[1,]]></posnotemsg><changepdu><![CDATA[not a pdu]]></changepdu>"
        "<changepdu><![CDATA[<notecom ver=\"1.0\" mtype=\"3\" cacheid=\"4\"/>]]></changepdu></notecom>"));
    EXPECT_EQ(mixed.GetNoteShowMsg(), "xabc");  // positions separated from their text are not used
    ASSERT_EQ(mixed.m_vecChangeInfoPdu.size(), 1u);
    EXPECT_EQ(mixed.m_vecChangeInfoPdu[0].GetCacheId_INT(), 4);
}

}  // namespace
