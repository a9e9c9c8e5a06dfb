// Long CDATA sections kept away from the XML library while it parses.
//
// The library copies a CDATA section into its text node one byte at a time and looks for the
// end marker at every byte: a caption history of megabytes costs it tens of milliseconds.
// Lift() makes a copy of the text in which the body of every long section is a short
// placeholder, and the library parses that copy; PutBack() then gives each text node that
// holds a whole placeholder the body it stands for, copied once.
//
// A placeholder is a run of 0x01 bytes longer than any run the rest of the text holds,
// followed by the section's number: only the section it replaced can come out of the parse
// as exactly that text. Where the library did not read a lifted section as CDATA (it sat in
// a comment, an attribute value or a broken tag), PutBack() changes nothing and returns
// false, and the caller parses the original text instead. Not thread-safe; one per parse.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

class TiXmlNode;

// The value of node itself: the library hands it out only as a copy, and texts run to
// megabytes.
std::string& MutableNodeValue(TiXmlNode& node);

class CLongCdata {
public:
    // Sections shorter than this are left in place: the library reads them quickly enough.
    static constexpr size_t kMinBodyBytes = 1024;

    // Builds into shorter the text with every long section's body replaced. False, with
    // shorter untouched, unless the long sections make up more than half the text.
    // text must stay unchanged and alive until PutBack() has run.
    bool Lift(const std::string& text, std::string& shorter);

    // Copies each body from text into the CDATA node of document that holds its placeholder.
    // False, with document unchanged, unless every placeholder is exactly one such node.
    bool PutBack(TiXmlNode& document, const std::string& text) const;

private:
    struct CSection {
        size_t bodyAt;          // in the original text
        size_t bodyLen;
    };

    std::string Placeholder(size_t index) const;

    std::vector<CSection> m_sections;
    size_t m_nMarkerLen = 0;
};
