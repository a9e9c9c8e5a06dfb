// Which long CDATA bodies are parsed around the library, and when the library's reading of the
// text leaves them to it after all. That the documents are the library's own whatever the
// text is checked by the long_cdata fuzz target, whose corpus holds these texts.
#include "xml/LongCdata.h"

#include <tinyxml.h>

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Printed(const TiXmlDocument& doc)
{
    TiXmlPrinter printer;
    doc.Accept(&printer);
    return printer.Str();
}

TEST(LongCdata, LiftsLongSectionsAndPutsThemBackOnlyWhereTheLibraryReadThemAsCdata)
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
        CLongCdata lift;
        std::string shorter;
        ASSERT_EQ(lift.Lift(c.text, shorter), c.lifted);
        if (!c.lifted) continue;
        EXPECT_LT(shorter.size() + 2000, c.text.size());
        TiXmlDocument parsed;
        parsed.Parse(shorter.c_str());
        ASSERT_EQ(lift.PutBack(parsed, c.text), c.putBack);
        if (c.putBack) {
            EXPECT_NE(Printed(parsed).find(body), std::string::npos);
        }
    }
}

}  // namespace
