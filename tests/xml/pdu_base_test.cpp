// The common header, type detection and the text and position elements of every PDU.
#include "xml/OrvNoteXML.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// Reaches the element helpers the way a PDU class does, with conversion off.
class CPlainPdu : public COrvNoteBaseXML {
public:
    CPlainPdu() { m_bConvertCharset = 0; }
};

TEST(PduType, IsReadFromTheHeaderOnly)
{
    struct Case { const char* pdu; int type; } cases[] = {
        {"", 0},
        {"<notecom ver=\"1.0\" mtype=\"1\"/>", 1},
        {"<notecom ver=\"9\" mtype=\"3\"/>", 3},  // the version is not checked here
        {"<notecom mtype=\"4\"/>", 4},
        {"<notecom ver=\"1.0\" mtype=\"5\"/>", 0},
        {"<notecom ver=\"1.0\" mtype=\"0\"/>", 0},
        {"<notecom ver=\"1.0\"/>", 0},
        {"<other mtype=\"1\"/>", 0},
        {"<notecom mtype=\"1\">", 0},  // unterminated
        {"plain text", 0},
    };
    for (const Case& c : cases) {
        CNoteInfoPDU any;
        EXPECT_EQ(any.GetPDUType(c.pdu), c.type) << c.pdu;
    }
}

TEST(PduType, VersionMustBeExactlyOnePointZero)
{
    CPlainPdu pdu;
    for (const char* ver : {"1.00", "2.0", "1.", "", "1.0 "}) {
        TiXmlElement root("notecom");
        root.SetAttribute("ver", ver);
        root.SetAttribute("mtype", "3");
        EXPECT_FALSE(pdu.CheckVersionAndType(&root, XMLPDU_CHANGE_INFO)) << ver;
    }
    TiXmlElement root("notecom");
    root.SetAttribute("ver", "1.0");
    EXPECT_FALSE(pdu.CheckVersionAndType(&root, XMLPDU_CHANGE_INFO));  // no mtype
    root.SetAttribute("mtype", "3x");
    EXPECT_TRUE(pdu.CheckVersionAndType(&root, XMLPDU_CHANGE_INFO));  // atoi reads 3
    EXPECT_FALSE(pdu.CheckVersionAndType(&root, XMLPDU_SAVE_INFO));
}

TEST(PduElements, PositionElementsAreWrittenOnlyForNonEmptyLists)
{
    CPlainPdu pdu;
    TiXmlElement parent("p");
    std::string posText = "stale";
    EXPECT_FALSE(pdu.CreatePosElem(&parent, posText, NotePosList(), "posnotemsg"));
    EXPECT_EQ(parent.FirstChild(), nullptr);
    EXPECT_TRUE(pdu.CreatePosElem(&parent, posText, NotePosList({7, -2}), "posnotemsg"));
    EXPECT_EQ(posText, "7,-2,");
    ASSERT_NE(parent.FirstChildElement("posnotemsg"), nullptr);
    EXPECT_STREQ(parent.FirstChildElement("posnotemsg")->GetText(), "7,-2,");

    TiXmlElement* elem = &parent;
    EXPECT_FALSE(pdu.GenerateTextElem(elem, ""));
}

TEST(PduElements, PositionListsAreReadFromTheNextSiblingOnly)
{
    struct Case { const char* xml; const char* before; NotePosList pos; } cases[] = {
        {"<r><t/><posnotemsg><![CDATA[5,9]]></posnotemsg></r>", "", {5}},
        {"<r><t/><posnotemsg><![CDATA[,,4,]]></posnotemsg></r>", "", {4}},
        {"<r><t/><x/><posnotemsg><![CDATA[1,]]></posnotemsg></r>", "", {}},
        {"<r><t/><x/></r>", "8,", {8}},  // the old text is kept and re-read
        {"<r><t/><posnotemsg/></r>", "8,", {}},
    };
    for (const Case& c : cases) {
        CPlainPdu pdu;
        pdu.Parse(c.xml);
        TiXmlElement* t = pdu.RootElement()->FirstChildElement("t");
        std::string posText = c.before;
        NotePosList pos = {99};
        pdu.GetPosElem(t, posText, pos, "posnotemsg");
        EXPECT_EQ(pos, c.pos) << c.xml;
    }
}

TEST(PduElements, ConvertedTextStopsAtTheFirstNonAsciiByteAndReadsBackEmpty)
{
    COrvNoteBaseXML converting;  // the base converts by default
    TiXmlElement* elem = new TiXmlElement("t");
    converting.LinkEndChild(elem);
    EXPECT_TRUE(converting.GenerateTextElem(elem, "ok\xC3\xA9rest"));
    EXPECT_STREQ(elem->GetText(), "ok");
    std::string text = "before";
    converting.ParseTextElem(elem, text);
    EXPECT_EQ(text, "");
}

TEST(NoteInfoPdu, WorkedExamplesPrintExactly)
{
    CNoteInfoPDU pdu;
    pdu.SetNoteMsg("a]]>b\r\nc");
    ASSERT_TRUE(pdu.GenerateXMLPDU());
    EXPECT_EQ(pdu.PrintCompact(),
              "<notecom ver=\"1.0\" mtype=\"1\"><noteinfo><![CDATA[aabcb\r\nc]]></noteinfo>"
              "<posnotemsg><![CDATA[1,]]></posnotemsg></notecom>");
    TiXmlPrinter indented;
    pdu.Accept(&indented);
    for (const std::string& printed : {pdu.PrintCompact(), indented.Str()}) {
        CNoteInfoPDU back;
        ASSERT_TRUE(back.ParseXMLPDU(printed));
        EXPECT_EQ(back.GetNoteMsg(), "a]]>b\r\nc");
        EXPECT_EQ(back.GetPosList(), NotePosList({1}));
    }

    CNoteInfoPDU hello;
    hello.SetNoteMsg("hello");
    hello.GenerateXMLPDU();
    EXPECT_EQ(hello.PrintCompact(),
              "<notecom ver=\"1.0\" mtype=\"1\"><noteinfo><![CDATA[hello]]></noteinfo></notecom>");
}

TEST(NoteInfoPdu, EmptyTextMisplacedPositionsAndWrongType)
{
    CNoteInfoPDU empty;
    empty.GenerateXMLPDU();
    EXPECT_EQ(empty.PrintCompact(), "<notecom ver=\"1.0\" mtype=\"1\" />");
    CNoteInfoPDU reader;
    reader.SetNoteMsg("kept");
    EXPECT_TRUE(reader.ParseXMLPDU(empty.PrintCompact()));
    EXPECT_EQ(reader.GetNoteMsg(), "kept");

    // A position list not right after the text is not seen: the stand-in stays.
    CNoteInfoPDU misplaced;
    ASSERT_TRUE(misplaced.ParseXMLPDU(
        "<notecom ver=\"1.0\" mtype=\"1\"><noteinfo><![CDATA[aabcb]]></noteinfo><x/>"
        "<posnotemsg><![CDATA[1,]]></posnotemsg></notecom>"));
    EXPECT_EQ(misplaced.GetNoteMsg(), "aabcb");

    CNoteInfoPDU wrong;
    wrong.SetNoteMsg("kept");
    EXPECT_FALSE(wrong.ParseXMLPDU("<notecom ver=\"1.0\" mtype=\"3\"><noteinfo>x</noteinfo></notecom>"));
    EXPECT_FALSE(wrong.ParseXMLPDU(""));
    EXPECT_EQ(wrong.GetNoteMsg(), "kept");
}

}  // namespace
