// Any XML string, parsed with long CDATA bodies taken round the library: the document and the
// end of the parse must be the library's own. Each 0x02 byte of the input stands for 1,100
// bytes of 'x', so that sections long enough to be lifted are cheap to make.
#include "FuzzTarget.h"

#include "xml/OrvNoteBaseXML.h"
#include "xml/XmlInputGuard.h"

namespace {

std::string Printed(const TiXmlDocument& doc)
{
    TiXmlPrinter printer;
    doc.Accept(&printer);
    return printer.Str() + (doc.Error() ? std::string("\nerror: ") + doc.ErrorDesc() : std::string());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string text;
    for (size_t i = 0; i < size && data[i]; ++i) {
        if (data[i] == 2)
            text.append(1100, 'x');
        else
            text += static_cast<char>(data[i]);
    }
    // The library alone is safe only on what the guard lets through.
    if (!IsXmlInputAcceptable(text.c_str(), text.size(), COrvNoteBaseXML::kMaxDocumentBytes,
                              COrvNoteBaseXML::kMaxElementDepth, COrvNoteBaseXML::kMaxPduNodes))
        return 0;
    const std::string padded = text + std::string(kXmlPadding, '\0');
    TiXmlDocument library;
    const char* libraryEnd = library.Parse(padded.c_str());
    COrvNoteBaseXML ours;
    const char* ourEnd = ours.Parse(text.c_str());
    FUZZ_CHECK(Printed(ours) == Printed(library));
    FUZZ_CHECK((ourEnd ? ourEnd - text.c_str() : -1) == (libraryEnd ? libraryEnd - padded.c_str() : -1));
    return 0;
}
