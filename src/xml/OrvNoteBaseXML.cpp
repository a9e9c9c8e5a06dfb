// Header attributes, text and position elements, and the guarded parse of note PDUs.
#include "xml/OrvNoteBaseXML.h"

#include "boundscheck/boundscheck.h"
#include "xml/LongCdata.h"
#include "xml/XmlInputGuard.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <cstring>

namespace {

const char kRootName[] = "notecom";

// A text node that takes its value over instead of copying it: note texts run to hundreds
// of kilobytes.
class CMovedText : public TiXmlText {
public:
    explicit CMovedText(std::string& text) : TiXmlText("") { value.swap(text); }
};
const char kVersionText[] = "1.0";

}  // namespace

std::string savestr(const char* p)
{
    return p ? std::string(p) : std::string();
}

COrvNoteBaseXML::COrvNoteBaseXML()
    : m_nVersion(1), m_nReserved(0), m_bConvertCharset(1), m_bSafeLineBreaks(0)
{
    // Row and column tracking costs a sixth of every parse and nothing reads it.
    SetTabSize(0);
}

// No caller uses this form; the integers it does not set are zeroed rather than left random.
COrvNoteBaseXML::COrvNoteBaseXML(int nType, int nVersion)
    : m_nVersion(nVersion), m_nReserved(0), m_bConvertCharset(0), m_bSafeLineBreaks(0)
{
    SetTabSize(0);
    SetMainType(nType);
}

COrvNoteBaseXML::~COrvNoteBaseXML() = default;

void COrvNoteBaseXML::CopyPduSettings(const COrvNoteBaseXML& from)
{
    m_nVersion = from.m_nVersion;
    m_strMainType = from.m_strMainType;
    m_nReserved = from.m_nReserved;
    m_bConvertCharset = from.m_bConvertCharset;
    m_bSafeLineBreaks = from.m_bSafeLineBreaks;
}

const char* COrvNoteBaseXML::Parse(const char* p, TiXmlParsingData* data, TiXmlEncoding encoding)
{
    if (!p) return TiXmlDocument::Parse(p, data, encoding);
    const size_t len = strnlen(p, kMaxDocumentBytes + 1);
    if (len > kMaxDocumentBytes) return Refuse(encoding);
    std::string copy(p, len);
    const char* end = ParsePadded(copy, data, encoding);
    return end ? p + std::min(static_cast<size_t>(end - copy.c_str()), len) : 0;
}

bool COrvNoteBaseXML::ParseOwned(std::string& text)
{
    const size_t len = strnlen(text.c_str(), kMaxDocumentBytes + 1);
    if (len > kMaxDocumentBytes) {
        Refuse(TIXML_DEFAULT_ENCODING);
        return false;
    }
    text.resize(len);
    ParsePadded(text, 0, TIXML_DEFAULT_ENCODING);
    return !Error();
}

bool COrvNoteBaseXML::ParseRepaired(std::string& text)
{
    if (text.size() > kMaxDocumentBytes) {
        Refuse(TIXML_DEFAULT_ENCODING);
        return false;
    }
    strPduToSafe(text);
    return ParseOwned(text);
}

// The library reads a few bytes past the terminator on some malformed input (an unterminated
// CDATA section, a truncated multi-byte character): it always gets zero bytes to read there.
const char* COrvNoteBaseXML::ParsePadded(std::string& text, TiXmlParsingData* data,
                                         TiXmlEncoding encoding, size_t maxBytes)
{
    if (!IsXmlInputAcceptable(text.c_str(), text.size(), maxBytes, kMaxElementDepth,
                              MaxNodes(text.size()), MaxTextBytes())) {
        return Refuse(encoding);
    }
    CLongCdata lifted;
    std::string shorter;
    if (lifted.Lift(text, shorter)) {
        const size_t saved = text.size() - shorter.size();
        shorter.append(kXmlPadding, '\0');
        const char* end = TiXmlDocument::Parse(shorter.c_str(), data, encoding);
        // Every placeholder was read, so the parse ended after the last of them.
        if (lifted.PutBack(*this, text)) return end ? text.c_str() + (end - shorter.c_str()) + saved : 0;
        // A lifted section was no CDATA to the library: the text is parsed as it stands.
        Clear();
        ClearError();
    }
    text.append(kXmlPadding, '\0');
    return TiXmlDocument::Parse(text.c_str(), data, encoding);
}

size_t COrvNoteBaseXML::MaxNodes(size_t) const
{
    return kMaxPduNodes;
}

const char* COrvNoteBaseXML::Refuse(TiXmlEncoding encoding)
{
    Clear();
    ClearError();
    SetError(TIXML_ERROR_PARSING_ELEMENT, 0, 0, encoding);
    return 0;
}

// Reads the file as the library's LoadFile does, but bounded and byte for byte: the library
// would turn every CR LF into LF, which moves the escape offsets recorded in the document, so
// every saved change holding a line end (every caption line) would be dropped on reload.
bool COrvNoteBaseXML::LoadFile(const char* filename, TiXmlEncoding encoding)
{
    Clear();
    ClearError();
    if (!filename) {
        SetError(TIXML_ERROR_OPENING_FILE, 0, 0, encoding);
        return false;
    }
    SetValue(filename);
    std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(filename, "rb"), fclose);
    struct stat st;
    if (!file || fstat(fileno(file.get()), &st) != 0 || !S_ISREG(st.st_mode)) {
        SetError(TIXML_ERROR_OPENING_FILE, 0, 0, encoding);
        return false;
    }
    if (static_cast<unsigned long long>(st.st_size) > kMaxFileBytes) {
        SetError(TIXML_ERROR_OPENING_FILE, 0, 0, encoding);
        return false;
    }
    // Room for the padding from the start: the text is not copied again to make it.
    const size_t size = static_cast<size_t>(st.st_size);
    std::string text(size + kXmlPadding, '\0');
    text.resize(size);
    if (!text.empty() && fread(&text[0], 1, text.size(), file.get()) != text.size()) {
        SetError(TIXML_ERROR_OPENING_FILE, 0, 0, encoding);
        return false;
    }
    if (text.empty()) {
        SetError(TIXML_ERROR_DOCUMENT_EMPTY, 0, 0, encoding);
        return false;
    }
    const size_t len = strnlen(text.c_str(), text.size());
    text.resize(len);
    ParsePadded(text, 0, encoding, kMaxFileBytes);
    return !Error();
}

std::string COrvNoteBaseXML::PrintCompact() const
{
    TiXmlPrinter printer;
    printer.SetStreamPrinting();
    Accept(&printer);
    return printer.Str();
}

void COrvNoteBaseXML::SetMainType(int nType)
{
    // Every PDU constructor comes here: no stream, which costs more than the rest of it.
    m_strMainType = std::to_string(nType);
}

void COrvNoteBaseXML::SetMainType(const std::string& strType)
{
    m_strMainType = strType;
}

std::string COrvNoteBaseXML::GetMainType() const
{
    return m_strMainType;
}

int COrvNoteBaseXML::GetMainType_Int() const
{
    return m_strMainType.empty() ? 0 : atoi(m_strMainType.c_str());
}

int COrvNoteBaseXML::GetVersion() const
{
    return m_nVersion;
}

bool COrvNoteBaseXML::GenerateXMLPDU()
{
    return false;
}

bool COrvNoteBaseXML::ParseXMLPDU(std::string)
{
    return false;
}

int COrvNoteBaseXML::GetPDUType(std::string pdu)
{
    if (pdu.empty() || !ParseOwned(pdu)) return 0;
    TiXmlNode* node = FirstChild(kRootName);
    TiXmlElement* root = node ? node->ToElement() : 0;
    if (!root) return 0;
    const char* mtype = root->Attribute("mtype");
    if (!mtype) return 0;
    const int nType = atoi(mtype);
    return (nType >= XMLPDU_NOTE_INFO && nType <= XMLPDU_RESERVED) ? nType : 0;
}

bool COrvNoteBaseXML::CheckVersionAndType(TiXmlElement* root, XMLPDUType nType)
{
    if (!root) return false;
    const char* ver = root->Attribute("ver");
    const char* mtype = root->Attribute("mtype");
    if (!ver || !mtype) return false;
    int diff = 1;
    if (strcmp_s(ver, sizeof kVersionText, kVersionText, &diff) != 0 || diff != 0) return false;
    return atoi(mtype) == nType;
}

bool COrvNoteBaseXML::GenerateVersionAndType(TiXmlElement* root)
{
    root->SetAttribute("ver", kVersionText);
    root->SetAttribute("mtype", m_strMainType);
    return true;
}

bool COrvNoteBaseXML::GenerateTextElem(TiXmlElement*& elem, const std::string& text)
{
    if (text.empty()) return false;
    std::string copy = text;
    strToSafe(copy);
    LinkCdataText(elem, copy);
    return true;
}

bool COrvNoteBaseXML::GenerateTextElem(TiXmlElement*& elem, const std::string& text,
                                       NotePosList& pos)
{
    if (text.empty()) return false;
    std::string copy = text;
    strToSafe(copy, pos);
    LinkCdataText(elem, copy);
    return true;
}

void COrvNoteBaseXML::LinkCdataText(TiXmlElement* elem, std::string& escaped)
{
    TiXmlText* node = 0;
    if (m_bConvertCharset) {
        // Room for three output bytes per two input bytes plus the terminators.
        std::vector<char> converted(escaped.size() * 3 + 4, '\0');
        ASCII2UTF8(converted.data(), escaped.c_str());
        node = new TiXmlText(converted.data());
    } else {
        node = new CMovedText(escaped);
    }
    node->SetCDATA(true);
    elem->LinkEndChild(node);
}

void COrvNoteBaseXML::ParseTextElem(TiXmlElement*& elem, std::string& text)
{
    const char* pText = elem ? elem->GetText() : 0;
    if (!pText) return;
    // The conversion to the local character set is an empty routine, so a converted text
    // comes out empty.
    text = m_bConvertCharset ? std::string() : std::string(pText);
    strToRecover(text);
}

void COrvNoteBaseXML::ParseTextElem(TiXmlElement*& elem, std::string& text, NotePosList pos)
{
    const char* pText = elem ? elem->GetText() : 0;
    if (!pText) return;
    text = m_bConvertCharset ? std::string() : std::string(pText);
    strToRecover(text, pos);
}

bool COrvNoteBaseXML::CreatePosElem(TiXmlElement* pParent, std::string& posText, NotePosList pos,
                                    std::string name)
{
    TiXmlElement* elem = new TiXmlElement(name);
    posText.clear();
    for (int p : pos) {
        posText += std::to_string(p);
        posText += ',';
    }
    if (!GenerateTextElem(elem, posText)) {
        delete elem;
        return false;
    }
    pParent->LinkEndChild(elem);
    return true;
}

void COrvNoteBaseXML::GetPosElem(TiXmlElement* elem, std::string& posText, NotePosList& pos,
                                 std::string name)
{
    TiXmlNode* pNext = elem ? elem->NextSibling() : 0;
    if (pNext && pNext->ValueStr() == name) {
        posText.clear();
        TiXmlElement* posElem = pNext->ToElement();
        if (posElem) ParseTextElem(posElem, posText);
    }
    ParsePosList(posText, pos);
}

void COrvNoteBaseXML::ParsePosList(const std::string& posText, NotePosList& pos)
{
    pos.clear();
    size_t start = 0;
    for (;;) {
        const size_t comma = posText.find(',', start);
        if (comma == std::string::npos) break;
        if (comma > start) {
            // atol as the format was written with; the narrowing to int is the list's width.
            pos.push_back(static_cast<int>(strtol(posText.c_str() + start, 0, 10)));
        }
        start = comma + 1;
    }
}
