// The change PDU: segmentation by markers, its exact XML form and the way back.
#include "xml/NoteChangeInfoPDU.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::vector<std::string> SegmentTexts(const CNoteChangeInfoPDU& pdu)
{
    std::vector<std::string> texts;
    for (const CNoteSegInfo& seg : pdu.GetSegments()) {
        texts.push_back((seg.GetSpecial() ? "*" : "") + seg.GetSegInfo());
    }
    return texts;
}

TEST(ChangePdu, WorkedExamplePrintsExactly)
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
}

TEST(ChangePdu, MarkersBecomeSpecialSegmentsLeftOutOfTheText)
{
    struct Case {
        std::vector<std::string> markers;
        std::string msg;
        std::vector<std::string> segments;
        std::string joined;
    } cases[] = {
        {{"#tag#"}, "ab#tag#cd", {"ab", "*#tag#", "cd"}, "abcd"},
        {{}, "", {}, ""},
        {{"#tag#"}, "#tag#", {"*#tag#"}, ""},
        {{}, "one\r\ntwo", {"one\r\ntwo"}, "one\r\ntwo"},
        // A missing later marker adds the whole message again, as it always has.
        {{"X", "Y"}, "aXb", {"a", "*X", "aXb"}, "aaXb"},
        {{"Y"}, "abc", {"abc"}, "abc"},  // only recorded offsets turn back into "]]>"
    };
    for (const Case& c : cases) {
        CNoteChangeInfoPDU pdu;
        for (const std::string& m : c.markers) pdu.AddNetInfo(m);
        pdu.SetNoteMsg(c.msg);
        EXPECT_EQ(SegmentTexts(pdu), c.segments) << c.msg;
        EXPECT_EQ(pdu.GetNoteMsg(), c.joined) << c.msg;
    }
}

TEST(ChangePdu, RoundTripKeepsFieldsAndSegments)
{
    CNoteChangeInfoPDU pdu;
    pdu.SetUniqueId(-42);
    pdu.SetOffSet(100000, 0);
    pdu.SetOffSet(0, 1);
    pdu.SetCacheId(9);
    pdu.AddNetInfo("@m@");
    pdu.SetNoteMsg("x]]>y@m@tail\r\n");
    pdu.GenerateXMLPDU();

    for (const std::string& printed : {pdu.PrintCompact(), [&] {
             TiXmlPrinter p;
             pdu.Accept(&p);
             return p.Str();
         }()}) {
        CNoteChangeInfoPDU back;
        ASSERT_TRUE(back.ParseXMLPDU(printed)) << printed;
        EXPECT_EQ(back.GetUniqueId_INT(), -42);
        EXPECT_EQ(back.GetOffSet(0), "100000");
        EXPECT_EQ(back.GetOffSet_INT(1), 0);
        EXPECT_EQ(back.GetCacheId_INT(), 9);
        EXPECT_EQ(back.GetNetInfoCount_INT(), 0);  // markers are not transmitted
        EXPECT_EQ(SegmentTexts(back), SegmentTexts(pdu));
        EXPECT_EQ(back.GetNoteMsg(), "x]] >ytail\r\n");
    }
}

TEST(ChangePdu, SegmentAttributesAndEmptyTexts)
{
    CNoteChangeInfoPDU pdu;
    ASSERT_TRUE(pdu.ParseXMLPDU(
        "<notecom ver=\"1.0\" mtype=\"3\" offset=\"5\">"
        "<seginfo endnewline=\"2\" posnotemsg=\"1,\" special=\"x\"><![CDATA[aabc]]></seginfo>"
        "<seginfo special=\"1\"><![CDATA[#m#]]></seginfo>"
        "<seginfo endnewline=\"1\"/>"
        "</notecom>"));
    EXPECT_EQ(pdu.GetUniqueId(), "");  // missing attributes read as empty, not "0"
    EXPECT_EQ(pdu.GetOffSet_INT(1), 0);
    EXPECT_EQ(pdu.GetOffSet_INT(0), 5);
    ASSERT_EQ(pdu.GetSegments().size(), 3u);
    EXPECT_TRUE(pdu.GetSegments()[0].GetEndln());
    EXPECT_FALSE(pdu.GetSegments()[0].GetSpecial());
    EXPECT_EQ(pdu.GetSegments()[0].GetPosVec(), NotePosList({1}));
    EXPECT_EQ(pdu.GetNoteMsg(), "a]]>\r\n\r\n");

    // An empty segment writes no CDATA child and reads back empty.
    pdu.GenerateXMLPDU();
    EXPECT_NE(pdu.PrintCompact().find("<seginfo endnewline=\"1\" posnotemsg=\"\" special=\"0\" />"),
              std::string::npos);
}

TEST(ChangePdu, RefusesOtherTypesAndKeepsFields)
{
    CNoteChangeInfoPDU pdu;
    pdu.SetCacheId(5);
    EXPECT_FALSE(pdu.ParseXMLPDU("<notecom ver=\"1.0\" mtype=\"1\" cacheid=\"7\"/>"));
    EXPECT_FALSE(pdu.ParseXMLPDU("<notecom ver=\"2.0\" mtype=\"3\" cacheid=\"7\"/>"));
    EXPECT_FALSE(pdu.ParseXMLPDU(""));
    EXPECT_FALSE(pdu.ParseXMLPDU("<notecom"));
    EXPECT_EQ(pdu.GetCacheId_INT(), 5);
}

TEST(ChangePdu, CopiesAreDeepAndMovesKeepEverything)
{
    CNoteChangeInfoPDU pdu;
    pdu.SetNoteMsg("original");
    pdu.GenerateXMLPDU();
    CNoteChangeInfoPDU copy(pdu);
    copy.SetNoteMsg("changed");
    copy.GenerateXMLPDU();
    EXPECT_NE(pdu.PrintCompact().find("original"), std::string::npos);
    EXPECT_NE(copy.PrintCompact().find("changed"), std::string::npos);
    EXPECT_EQ(pdu.GetNoteMsg(), "original");

    // Lists of changes grow by moving their entries: fields and document go along.
    copy.SetOffSet(3, 1);
    const std::string printed = copy.PrintCompact();
    CNoteChangeInfoPDU moved(std::move(copy));
    EXPECT_EQ(moved.PrintCompact(), printed);
    EXPECT_EQ(moved.GetOffSet_INT(1) + moved.GetMainType_Int(), 3 + 3);
}

TEST(SegInfo, FlagsPositionsAndRewriting)
{
    CNoteSegInfo seg;
    seg.SetSegInfo("a]]>]]>b");
    EXPECT_EQ(seg.GetSegInfo(), "a]] >]] >b");
    for (const char* text : {"", "0", "x"}) {
        seg.SetEndln(std::string(text));
        EXPECT_FALSE(seg.GetEndln()) << text;
    }
    seg.SetEndln(std::string("2"));
    EXPECT_TRUE(seg.GetEndln());
    EXPECT_EQ(seg.GetEndlnStr(), "1");
    EXPECT_EQ(seg.GetPosStr(), "");
    seg.SetMsgPos(NotePosList({-1}));
    EXPECT_EQ(seg.GetPosStr(), "-1,");
    seg.ReSet();
    EXPECT_TRUE(seg.GetPosVec().empty());
    EXPECT_FALSE(seg.GetEndln());
    EXPECT_EQ(seg.GetSegInfo(), "");
}

}  // namespace
