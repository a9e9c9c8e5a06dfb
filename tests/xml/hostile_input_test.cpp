// Received PDU strings and auto-save files can hold anything: each case here must end in a
// result, never in a crash, an out-of-bounds access or an unbounded allocation.
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
    out.reserve(s.size() * n);
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

TEST(HostileXml, DeepNestingIsRefusedBeforeTheLibrarySeesIt)
{
    const std::string deep = "<notecom ver=\"1.0\" mtype=\"3\">" + Repeat("<a>", 200000);
    CNoteChangeInfoPDU change;
    EXPECT_EQ(change.GetPDUType(deep), 0);
    EXPECT_FALSE(change.ParseXMLPDU(deep));
    CNoteSaveInfoPDU save;
    EXPECT_FALSE(save.ParseXMLPDU(deep));
    CNoteInfoPDU info;
    EXPECT_FALSE(info.ParseXMLPDU(deep));
    EXPECT_TRUE(change.Error());

    // Nesting hidden where a naive scanner would skip it: inside what looks like a CDATA
    // section but is an attribute value, after a closed comment, and in UTF-8 mode (chosen
    // by a byte-order mark or a declaration) where a lead byte swallows the "<!" of what
    // looks like a CDATA section or a comment.
    for (const std::string& hidden :
         {"<x t=\"<![CDATA[\">" + Repeat("<a>", 5000) + "]]>",
          "<x><!-- -->" + Repeat("<a>", 5000) + "-->",
          "\xEF\xBB\xBF<x>\xE0<![CDATA[" + Repeat("<a>", 5000),
          "<?xml version=\"1.0\"?><x>\xF0<!--" + Repeat("<a>", 5000)}) {
        EXPECT_GT(MeasureXmlDepth(hidden.c_str(), 1000000), COrvNoteBaseXML::kMaxElementDepth);
        CNoteChangeInfoPDU pdu;
        EXPECT_EQ(pdu.GetPDUType(hidden), 0);
    }
}

TEST(HostileXml, MarkupInsideTextIsNotNesting)
{
    // A note full of tags is text in a CDATA section and parses normally.
    const std::string text = Repeat("<b>", 50000);
    CNoteChangeInfoPDU change;
    change.SetNoteMsg(text);
    change.GenerateXMLPDU();
    CNoteChangeInfoPDU back;
    ASSERT_TRUE(back.ParseXMLPDU(change.PrintCompact()));
    EXPECT_EQ(back.GetNoteMsg(), text);
}

// Random documents of tricky pieces: the guard's depth must never be below the nesting the
// library really builds, or the guard could be walked around. The library keeps an element
// whose start tag failed, one level deeper than it ever recursed.
TEST(HostileXml, GuardNeverUnderestimatesTheLibrarysNesting)
{
    const char* pieces[] = {"<a>", "</a>", "<b x=\"1\">", "</b>", "<c/>", "<![CDATA[", "]]>",
                            "<!--", "-->", "<!x>", "<?xml version=\"1.0\"?>",
                            "<?xml encoding=\"ISO-8859-1\"?>", "'", "\"", "<d t=\"", "\">",
                            "<e t='", "'>", "\xEF\xBB\xBF", "\xE0", "\xF0\x9F", "&#x41;", "&lt;",
                            " ", "text", ">", "<", "/", "=", "<f g=h>", "<?x ?>", "\xC3\xA9",
                            "<?xml standalone=\"", "<?xml version='", "\"?>"};
    std::mt19937 rng(777);
    int exact = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string doc;
        const int n = 1 + static_cast<int>(rng() % 30);
        for (int k = 0; k < n; ++k) doc += pieces[rng() % (sizeof pieces / sizeof *pieces)];
        const int measured = MeasureXmlDepth(doc.c_str(), 1000);
        if (measured < 0) continue;  // refused as unclear
        std::string padded = doc + std::string(16, '\0');
        TiXmlDocument plain;
        plain.Parse(padded.c_str());
        const int real = DomDepth(&plain);
        ASSERT_GE(measured, real - 1) << "document: " << doc;
        exact += measured == real || measured == real - 1;
    }
    EXPECT_GT(exact, 10000);  // and it is mostly exact, so valid input is not over-refused
}

TEST(HostileXml, OversizedInputIsRefusedUnread)
{
    std::string huge(COrvNoteBaseXML::kMaxDocumentBytes + 1, ' ');
    huge.replace(0, 9, "<notecom>");
    CNoteSaveInfoPDU save;
    EXPECT_FALSE(save.ParseXMLPDU(huge));

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

    std::string text = "short";
    NotePosList pos = {-1, 3, 4, 5, 1 << 30};
    COrvNoteBaseXML base;
    base.strReplace(pos, text, "abc", "]]>", 1);
    EXPECT_EQ(text, "sho]]]]>");  // 3, 4 and 5 replace what remains; the others lie outside
}

TEST(HostileXml, MutatedDocumentsNeverCrash)
{
    CNoteSaveInfoPDU record;
    record.SetNoteShowMsg("show ]]> text\r\n\xC3\xA9");
    record.AddNetInfo("net");
    CNoteChangeInfoPDU change;
    change.SetNoteMsg("chg ]]> abc");
    record.m_vecChangeInfoPdu.push_back(change);
    record.GenerateXMLPDU();
    const std::string seed = record.PrintCompact();

    std::mt19937 rng(4242);
    const char bytes[] = "<>/![]\"'&;=abc\xEF\xBB\xBF\xE0\xF0 \r\n\0";
    for (int round = 0; round < 3000; ++round) {
        std::string doc = seed;
        const int edits = 1 + static_cast<int>(rng() % 8);
        for (int e = 0; e < edits && !doc.empty(); ++e) {
            const size_t at = rng() % doc.size();
            switch (rng() % 3) {
            case 0: doc[at] = bytes[rng() % (sizeof bytes - 1)]; break;
            case 1: doc.erase(at, rng() % 16); break;
            default: doc.insert(at, 1, bytes[rng() % (sizeof bytes - 1)]); break;
            }
        }
        CNoteSaveInfoPDU save;
        save.ParseXMLPDU(doc);
        for (const CNoteChangeInfoPDU& c : save.m_vecChangeInfoPdu) CNoteChangeInfoPDU(c).GetNoteMsg();
        CNoteChangeInfoPDU asChange;
        asChange.ParseXMLPDU(doc);
        asChange.GetNoteMsg();
        CNoteInfoPDU asInfo;
        asInfo.ParseXMLPDU(doc);
        EXPECT_LE(asInfo.GetPDUType(doc), 4);
    }
}

}  // namespace
