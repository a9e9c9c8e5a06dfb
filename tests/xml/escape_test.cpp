// Escaping of "]]>" and line breaks, position lists, and the header, text and position
// elements every PDU shares. The repair of received PDU strings is checked against its
// algorithm written out by the pdu_repair fuzz target.
#include "xml/OrvNoteXML.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

// Exposes the line-break switch, which only derived PDUs would otherwise set.
class CEscaper : public COrvNoteBaseXML {
public:
    explicit CEscaper(bool safeLineBreaks = false, bool convert = true)
    {
        m_bSafeLineBreaks = safeLineBreaks;
        m_bConvertCharset = convert;
    }
};

TEST(Escape, SafeAndRecoverWithAndWithoutPositions)
{
    struct { bool crlf; const char *in, *safe; NotePosList pos; } const safe[] = {{false, "a]]>b", "aabcb", {1}},
        {false, "x]]>]]>", "xabcabc", {1, 4}}, {false, "a\r\nb", "a\r\nb", {}}, {true, "a\r\n]]>", "a\n\nabc", {3}}};
    for (const auto& c : safe) {
        std::string s = c.in;
        NotePosList pos = {9};
        CEscaper(c.crlf).strToSafe(s, pos);
        EXPECT_EQ(s, c.safe);
        std::string plain = c.in;
        CEscaper(c.crlf).strToSafe(plain);
        EXPECT_EQ(plain, c.safe);
        EXPECT_EQ(pos, c.pos) << c.in;
        CEscaper().strToRecover(s, pos);
        EXPECT_EQ(s, c.in);
    }
    // Line breaks come back as CR LF even when never escaped; a stand-in without positions is
    // taken for "]]>"; recorded positions overwrite whatever stands there, up to the end.
    struct { const char* in; bool withPos; NotePosList pos; const char* out; } const recover[] = {{"a\n\nb", false, {}, "a\r\nb"},
        {"\n\n\n", false, {}, "\r\n\n"}, {"abc", false, {}, "]]>"}, {"abc", true, {}, "abc"}, {"xyab", true, {2}, "xy]]>"},
        {"p", true, {1, 5}, "p]]>"}, {"short", true, {-1, 3, 4, 5, 1 << 30}, "sho]]]]>"}};
    for (const auto& c : recover) {
        std::string s = c.in;
        c.withPos ? CEscaper().strToRecover(s, c.pos) : CEscaper().strToRecover(s);
        EXPECT_EQ(s, c.out) << c.in;
    }
}

TEST(Escape, SavestrAndConversions)
{
    EXPECT_EQ(savestr(nullptr), "");
    EXPECT_EQ(savestr("x"), "x");
    CEscaper x;
    char out[32];
    std::memset(out, 'z', sizeof out);
    EXPECT_EQ(x.ASCII2UTF8(out, "ab\xC3\xA9" "c"), 7);
    EXPECT_STREQ(out, "ab");
    EXPECT_EQ(x.ASCII2UTF8(out, "ab"), 3);
    EXPECT_EQ(x.ASCII2UTF8(out, "\xC3"), 3);  // a lone lead byte at the end stays in bounds
    unsigned short unit = 0;
    x.UTF8ToUnicode(&unit, "\xE2\x82\xAC");  // U+20AC, little-endian
    EXPECT_EQ(reinterpret_cast<unsigned char*>(&unit)[0], 0xAC);
    EXPECT_EQ(reinterpret_cast<unsigned char*>(&unit)[1], 0x20);
}

TEST(PduType, IsReadFromTheHeaderOnlyAndTheVersionMustBeOnePointZero)
{
    struct { const char* pdu; int type; } const cases[] = {{"", 0}, {"<notecom ver=\"1.0\" mtype=\"1\"/>", 1},
        {"<notecom ver=\"9\" mtype=\"3\"/>", 3},  // the version is not checked here
        {"<notecom mtype=\"4\"/>", 4}, {"<notecom ver=\"1.0\" mtype=\"5\"/>", 0}, {"<notecom ver=\"1.0\" mtype=\"0\"/>", 0},
        {"<notecom ver=\"1.0\"/>", 0}, {"<other mtype=\"1\"/>", 0}, {"<notecom mtype=\"1\">", 0}, {"plain text", 0}};
    for (const auto& c : cases) EXPECT_EQ(CNoteInfoPDU().GetPDUType(c.pdu), c.type) << c.pdu;

    CEscaper pdu;
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

TEST(PduElements, PositionsAreWrittenForNonEmptyListsAndReadFromTheNextSiblingOnly)
{
    CEscaper pdu(false, false);
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

    struct { const char *xml, *before; NotePosList pos; } const cases[] = {{"<r><t/><posnotemsg><![CDATA[5,9]]></posnotemsg></r>", "", {5}},
        {"<r><t/><posnotemsg><![CDATA[,,4,]]></posnotemsg></r>", "", {4}}, {"<r><t/><x/><posnotemsg><![CDATA[1,]]></posnotemsg></r>", "", {}},
        {"<r><t/><x/></r>", "8,", {8}}, {"<r><t/><posnotemsg/></r>", "8,", {}}};  // without a list the old text is re-read
    for (const auto& c : cases) {
        CEscaper reader(false, false);
        reader.Parse(c.xml);
        std::string text = c.before;
        NotePosList pos = {99};
        reader.GetPosElem(reader.RootElement()->FirstChildElement("t"), text, pos, "posnotemsg");
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

}  // namespace
