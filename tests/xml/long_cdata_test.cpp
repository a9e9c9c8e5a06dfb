// Long CDATA bodies are parsed around, not by the library: whatever the text, the document and
// the end of the parse must be the library's own, whether the bodies were lifted or not.
#include "xml/LongCdata.h"
#include "xml/OrvNoteXML.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Printed(const TiXmlDocument& doc)
{
    TiXmlPrinter printer;
    doc.Accept(&printer);
    return printer.Str() + (doc.Error() ? std::string("error: ") + doc.ErrorDesc() : "");
}

TEST(LongCdata, ParsesAsTheLibraryDoesWhereverTheSectionsLie)
{
    const std::string body(3000, 'x'), body2 = "a&b<c><![CDATA[" + std::string(2000, '\x01') + "]";
    const struct { std::string text; bool lifted, putBack; } cases[] = {
        {"<n a=\"1\"><s><![CDATA[" + body + "]]></s><s><![CDATA[short]]></s><s><![CDATA[" + body2 + "]]></s></n> junk",
         true, true},
        // A section outside the root, and markup holding marker bytes and a would-be placeholder.
        {"<![CDATA[" + body + "]]><n a=\"\x01\"><![CDATA[\x01" "1]]><![CDATA[" + body + "]]></n>",
         true, true},
        {"<n><![CDATA[" + body + "]]><![CDATA[\x01" "0]]></n>", true, true},
        // Placeholders longer than the bodies: nothing is lifted.
        {"<n a=\"" + std::string(1100, '\x01') + "\"><![CDATA[" + body.substr(0, 1100) + "]]></n>", false, false},
        // Sections the library does not read as CDATA: the text is parsed as it stands.
        {"<n><!-- <![CDATA[" + body + "]]> --><s/></n>", true, false},
        {"<n a=\"<![CDATA[" + body + "]]>\"/>", true, false},
        {"<n><!DOCTYPE <![CDATA[" + body + "]]> ><s/></n>", true, false},
        {"<n><s><![CDATA[" + body + "</s></n>", false, false},
        {"<n><s><![CDATA[" + body.substr(0, CLongCdata::kMinBodyBytes - 1) + "]]></s></n>", false, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text.substr(0, 60));
        std::string padded = c.text + std::string(16, '\0');
        TiXmlDocument library;
        const char* libraryEnd = library.Parse(padded.c_str());
        COrvNoteBaseXML ours;
        const char* ourEnd = ours.Parse(c.text.c_str());
        EXPECT_EQ(Printed(ours), Printed(library));
        EXPECT_EQ(ourEnd ? ourEnd - c.text.c_str() : -1, libraryEnd ? libraryEnd - padded.c_str() : -1);

        CLongCdata lift;
        std::string shorter;
        ASSERT_EQ(lift.Lift(c.text, shorter), c.lifted);
        if (!c.lifted) continue;
        EXPECT_LT(shorter.size() + 2000, c.text.size());
        TiXmlDocument partial;
        partial.Parse(shorter.c_str());
        EXPECT_EQ(lift.PutBack(partial, c.text), c.putBack);
    }
}

}  // namespace
