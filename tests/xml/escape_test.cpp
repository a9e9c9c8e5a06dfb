// Escaping of "]]>" and line breaks, position lists, and the repair of received PDU strings.
#include "xml/OrvNoteBaseXML.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

namespace {

// Exposes the line-break switch, which only derived PDUs would otherwise set.
class CEscaper : public COrvNoteBaseXML {
public:
    explicit CEscaper(bool safeLineBreaks = false) { m_bSafeLineBreaks = safeLineBreaks; }
};

TEST(Escape, SafeAndRecoverWithAndWithoutPositions)
{
    CEscaper x;
    std::string s = "a]]>b";
    NotePosList pos;
    x.strToSafe(s, pos);
    EXPECT_EQ(s, "aabcb");
    EXPECT_EQ(pos, NotePosList({1}));

    s = "x]]>]]>";
    x.strToSafe(s, pos);
    EXPECT_EQ(s, "xabcabc");
    EXPECT_EQ(pos, NotePosList({1, 4}));

    s = "abc";
    x.strToRecover(s);
    EXPECT_EQ(s, "]]>");  // a typed "abc" is lost without positions
    s = "abc";
    x.strToRecover(s, NotePosList());
    EXPECT_EQ(s, "abc");
    s = "xxabc";
    x.strToRecover(s, NotePosList({2}));
    EXPECT_EQ(s, "xx]]>");
    s = "abcd";
    NotePosList at1 = {1};
    x.strReplace(at1, s, "abc", "]]>", 1);  // overwrites whatever stands there
    EXPECT_EQ(s, "a]]>");
    s = "xyab";
    x.strToRecover(s, NotePosList({2}));  // the bytes that remain are replaced
    EXPECT_EQ(s, "xy]]>");
    s = "p";
    x.strToRecover(s, NotePosList({1, 5}));  // at the end it appends; past it, nothing
    EXPECT_EQ(s, "p]]>");
}

TEST(Escape, LineBreaksComeBackAsCrLfEvenWhenNeverEscaped)
{
    CEscaper plain;
    std::string s = "a\r\nb";
    plain.strToSafe(s);
    EXPECT_EQ(s, "a\r\nb");
    s = "a\n\nb";
    plain.strToRecover(s);
    EXPECT_EQ(s, "a\r\nb");
    s = "\n\n\n";
    plain.strToRecover(s);
    EXPECT_EQ(s, "\r\n\n");

    CEscaper safe(true);
    s = "a\r\n]]>";
    NotePosList pos;
    safe.strToSafe(s, pos);
    EXPECT_EQ(s, "a\n\nabc");
    EXPECT_EQ(pos, NotePosList({3}));
    safe.strToRecover(s, pos);
    EXPECT_EQ(s, "a\r\n]]>");
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
    x.UTF8ToUnicode(&unit, "\xE2\x82\xAC");  // U+20AC
    const unsigned char* bytes = reinterpret_cast<unsigned char*>(&unit);
    EXPECT_EQ(bytes[0], 0xAC);
    EXPECT_EQ(bytes[1], 0x20);
}

// The repair exactly as first written: prefixes copied on every pass, and the scan ends at a
// pass that changes nothing.
void LiteralPduToSafe(std::string& pdu)
{
    std::string w = pdu;
    for (;;) {
        const int a = static_cast<int>(w.rfind("abc"));
        const int b = static_cast<int>(w.rfind("]]>"));
        const int c = static_cast<int>(w.rfind("<![CDATA["));
        if (c == -1 || a == -1) break;
        bool progressed = false;
        if (a < c) {
            w = a <= 0 ? std::string() : pdu.substr(0, static_cast<size_t>(a - 1));
            progressed = true;
        }
        if (b == -1 || b < c) {
            pdu.replace(static_cast<size_t>(a), 3, "]]>");
            w = c <= 0 ? std::string() : pdu.substr(0, static_cast<size_t>(c - 1));
            progressed = true;
        }
        if (!progressed) break;
    }
}

TEST(PduToSafe, MatchesTheLiteralAlgorithmOnRandomDocuments)
{
    const char* pieces[] = {"abc", "]]>", "<![CDATA[", "x", "a", "]", "<", "bc", "ab", "\n"};
    std::mt19937 rng(12345);
    CEscaper x;
    for (int round = 0; round < 3000; ++round) {
        std::string pdu;
        const int n = static_cast<int>(rng() % 24);
        for (int k = 0; k < n; ++k) pdu += pieces[rng() % (sizeof pieces / sizeof *pieces)];
        std::string expected = pdu;
        LiteralPduToSafe(expected);
        std::string actual = pdu;
        x.strPduToSafe(actual);
        ASSERT_EQ(actual, expected) << "input: " << pdu;
    }
}

}  // namespace
