// Received PDU strings and auto-save files can hold anything: each case here must end in a
// result, never in a crash, an out-of-bounds access or an unbounded allocation (the fuzz targets
// try random mutations). The node budget: hostile markup's many small nodes cost the XML library
// far more memory than their bytes.
#include "xml/OrvNoteXML.h"
#include "xml/XmlInputGuard.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <random>
#include <string>

namespace {

std::string Repeat(const std::string& s, size_t n)
{
    std::string out;
    for (size_t i = 0; i < n; ++i) out += s;
    return out;
}

int DomDepth(const TiXmlNode* node)
{
    int deepest = 0;
    for (const TiXmlNode* c = node->FirstChild(); c; c = c->NextSibling()) {
        if (c->ToElement()) deepest = std::max(deepest, 1 + DomDepth(c));
    }
    return deepest;
}

TEST(HostileXml, DeepNestingIsRefusedBeforeTheLibrarySeesItMarkupInTextIsNot)
{
    const std::string deep = "<notecom ver=\"1.0\" mtype=\"3\">" + Repeat("<a>", 200000);
    CNoteChangeInfoPDU change;
    EXPECT_EQ(change.GetPDUType(deep), 0);
    EXPECT_FALSE(change.ParseXMLPDU(deep));
    EXPECT_TRUE(change.Error());
    EXPECT_FALSE(CNoteSaveInfoPDU().ParseXMLPDU(deep));
    EXPECT_FALSE(CNoteInfoPDU().ParseXMLPDU(deep));

    // Nesting hidden where a naive scanner would skip it: inside what looks like a CDATA
    // section but is an attribute value, after a closed comment, and in UTF-8 mode (chosen
    // by a byte-order mark or a declaration) where a lead byte swallows the "<!" of what
    // looks like a CDATA section or a comment.
    for (const std::string& hidden :
         {"<x t=\"<![CDATA[\">" + Repeat("<a>", 5000) + "]]>", "<x><!-- -->" + Repeat("<a>", 5000) + "-->",
          "\xEF\xBB\xBF<x>\xE0<![CDATA[" + Repeat("<a>", 5000), "<?xml version=\"1.0\"?><x>\xF0<!--" + Repeat("<a>", 5000)}) {
        EXPECT_GT(MeasureXmlDepth(hidden.c_str(), 1000000), COrvNoteBaseXML::kMaxElementDepth);
        EXPECT_EQ(CNoteChangeInfoPDU().GetPDUType(hidden), 0);
    }
    // A note full of tags is text in a CDATA section and parses normally.
    const std::string text = Repeat("<b>", 50000);
    change.SetNoteMsg(text);
    change.GenerateXMLPDU();
    CNoteChangeInfoPDU back;
    ASSERT_TRUE(back.ParseXMLPDU(change.PrintCompact()));
    EXPECT_EQ(back.GetNoteMsg(), text);
}

// Random documents of tricky pieces: the guard's depth must never be below the nesting the
// library really builds, or the guard could be walked around. The library keeps an element
// whose start tag failed, one level deeper than it ever recursed.
// A notepad writes a change's text as CDATA; as plain text the library reads it a character
// at a time, so only so much of it is taken.
TEST(HostileXml, AChangeHoldsLongTextOnlyAsCdata)
{
    const std::string head = "<notecom ver=\"1.0\" mtype=\"3\"><seginfo>", tail = "</seginfo></notecom>";
    const size_t limit = CNoteChangeInfoPDU::kMaxTextBetweenTags;
    CNoteChangeInfoPDU change;
    EXPECT_TRUE(change.ParseXMLPDU(head + std::string(limit, 'x') + tail));
    EXPECT_FALSE(change.ParseXMLPDU(head + std::string(limit + 1, 'x') + tail));
    EXPECT_TRUE(change.ParseXMLPDU(head + "<![CDATA[" + std::string(4 * limit, 'x') + "]]>" + tail));
    EXPECT_FALSE(change.ParseXMLPDU(head + "<!--" + std::string(limit, 'x') + "-->" + tail));
    EXPECT_FALSE(change.ParseXMLPDU(head + "<!x" + std::string(limit, 'x') + ">" + tail));
}

TEST(HostileXml, GuardNeverUnderestimatesTheLibrarysNesting)
{
    const char* pieces[] = {"<a>", "</a>", "<b x=\"1\">", "</b>", "<c/>", "<![CDATA[", "]]>", "<!--", "-->", "<!x>",
        "<?xml version=\"1.0\"?>", "<?xml encoding=\"ISO-8859-1\"?>", "'", "\"", "<d t=\"", "\">", "<e t='", "'>",
        "\xEF\xBB\xBF", "\xE0", "\xF0\x9F", "&#x41;", "&lt;", " ", "text", ">", "<", "/", "=", "<f g=h>", "<?x ?>",
        "\xC3\xA9", "<?xml standalone=\"", "<?xml version='", "\"?>"};
    std::mt19937 rng(777);
    int exact = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string doc;
        for (int k = 1 + static_cast<int>(rng() % 30); k > 0; --k) doc += pieces[rng() % (sizeof pieces / sizeof *pieces)];
        const int measured = MeasureXmlDepth(doc.c_str(), 1000);
        if (measured < 0) continue;  // refused as unclear
        TiXmlDocument plain;
        plain.Parse((doc + std::string(16, '\0')).c_str());
        const int real = DomDepth(&plain);
        ASSERT_GE(measured, real - 1) << "document: " << doc;
        exact += measured == real || measured == real - 1;
    }
    EXPECT_GT(exact, 10000);  // and it is mostly exact, so valid input is not over-refused
}

TEST(HostileXml, OversizedInputAndTooManyNodesAreRefused)
{
    std::string huge(COrvNoteBaseXML::kMaxDocumentBytes + 1, ' ');
    huge.replace(0, 9, "<notecom>");
    EXPECT_FALSE(CNoteSaveInfoPDU().ParseXMLPDU(huge));
    char path[] = "/tmp/notehugeXXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    // A sparse file: its size is refused before a byte is read or allocated.
    ASSERT_EQ(ftruncate(fd, static_cast<off_t>(COrvNoteBaseXML::kMaxFileBytes) + 1), 0);
    close(fd);
    CNoteSaveInfoPDU fromFile;
    EXPECT_FALSE(fromFile.LoadFile(path));
    EXPECT_FALSE(fromFile.ParseXMLPDU());
    std::remove(path);

    // A change of a thousand markers' segments as the class writes it stays within the budget;
    // the same size of markup as empty elements, or attributes, or both, does not.
    CNoteChangeInfoPDU marked;
    std::string text;
    for (int i = 0; i < 1000; ++i) {
        const std::string marker = "#" + std::to_string(i) + "#";
        marked.AddNetInfo(marker);
        text += "ab" + marker;
    }
    marked.SetNoteMsg(text + "end");
    marked.GenerateXMLPDU();
    CNoteChangeInfoPDU back;
    EXPECT_TRUE(back.ParseXMLPDU(marked.PrintCompact()));
    EXPECT_EQ(back.GetSegments().size(), 2001u);
    const std::string head = "<notecom ver=\"1.0\" mtype=\"3\" useruniqueid=\"7\" offset=\"0\" offsetlast=\"0\" cacheid=\"1\">";
    for (const std::string& body : {Repeat("<b/>", 20000), "<b " + Repeat("x=\"\" ", 20000) + "/>", Repeat("<seginfo a=\"\" b=\"\"/>", 6000)}) {
        EXPECT_FALSE(CNoteChangeInfoPDU().ParseXMLPDU(head + body + "</notecom>"));
    }
    // A save document may have a node for every 24 bytes, not one for every ten.
    CNoteSaveInfoPDU dense;
    dense.Parse(("<notecom ver=\"1.0\" mtype=\"2\">" + Repeat("<netinfo/>", 100000) + "</notecom>").c_str());
    EXPECT_FALSE(dense.ParseXMLPDU());
}

TEST(HostileXml, AbsurdPositionsAndAttributesAreClampedOrIgnored)
{
    CNoteInfoPDU info;
    ASSERT_TRUE(info.ParseXMLPDU(
        "<notecom ver=\"1.0\" mtype=\"1\"><noteinfo><![CDATA[xyzabc]]></noteinfo>"
        "<posnotemsg><![CDATA[-5,4,6,3,2147483647,99999999999999999999,-2147483648,]]>"
        "</posnotemsg></notecom>"));
    EXPECT_EQ(info.GetNoteMsg(), "xyz]]>]]>");  // 4, 6 and 3 lie within the growing text
    CNoteChangeInfoPDU change;
    ASSERT_TRUE(change.ParseXMLPDU(
        "<notecom ver=\"1.0\" mtype=\"3\" offset=\"99999999999999999999\" offsetlast=\"-x\">"
        "<seginfo posnotemsg=\"-1,1000000,3,\" endnewline=\"99999999999\">"
        "<![CDATA[ab]]></seginfo><seginfo><x/></seginfo></notecom>"));
    change.GetOffSet_INT(0);
    EXPECT_EQ(change.GetOffSet_INT(1), 0);
    EXPECT_EQ(change.GetNoteMsg(), "ab\r\n");
}

}  // namespace
