// The node budget of the input guard: the many small nodes of hostile markup cost the XML
// library far more memory than their bytes, so a received PDU may make a few thousand nodes and
// a save document one for every 24 of its bytes; the documents the classes write stay within.
#include "xml/OrvNoteXML.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Repeat(const std::string& s, size_t n)
{
    std::string out;
    for (size_t i = 0; i < n; ++i) out += s;
    return out;
}

const char kChangeHead[] = "<notecom ver=\"1.0\" mtype=\"3\" useruniqueid=\"7\" offset=\"0\" offsetlast=\"0\" cacheid=\"1\">";

TEST(GuardBudget, ManySmallNodesAreRefusedWrittenDocumentsAreNot)
{
    // A change of a thousand markers' segments as the class writes it.
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

    // The same size of markup as empty elements, or attributes, or both.
    for (const std::string& body : {Repeat("<b/>", 20000), "<b " + Repeat("x=\"\" ", 20000) + "/>",
                                    Repeat("<seginfo a=\"\" b=\"\"/>", 6000)}) {
        CNoteChangeInfoPDU hostile;
        EXPECT_FALSE(hostile.ParseXMLPDU(kChangeHead + body + "</notecom>"));
    }

    // A save document may have a node for every 24 bytes (the longest caption history, which
    // has far fewer, is loaded back in the client's tests), not one for every ten.
    CNoteSaveInfoPDU dense;
    const std::string head = "<notecom ver=\"1.0\" mtype=\"2\">";
    dense.Parse((head + Repeat("<netinfo/>", 100000) + "</notecom>").c_str());
    EXPECT_FALSE(dense.ParseXMLPDU());
}

}  // namespace
