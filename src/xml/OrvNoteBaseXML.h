// Common base of the note PDUs: each PDU is its own TinyXML document. The base writes and
// checks the "notecom" header, carries text as escaped CDATA with position lists, and guards
// every parse so that hostile strings and files never reach the XML library unchecked.
#pragma once

#include <tinyxml.h>

#include <string>
#include <vector>

// Byte offsets at which "]]>" was escaped in a text.
typedef std::vector<int> NotePosList;

// Main types, the wire values of "mtype".
enum XMLPDUType {
    XMLPDU_NOTE_INFO = 1,
    XMLPDU_SAVE_INFO = 2,
    XMLPDU_CHANGE_INFO = 3,
    XMLPDU_RESERVED = 4
};

// A string copy of p, or "" for null; used for every attribute read from XML.
std::string savestr(const char* p);

class COrvNoteBaseXML : public TiXmlDocument {
public:
    // Largest document accepted from a string (a received PDU), and the deepest element
    // nesting. Valid documents nest two levels; a received change is a few megabytes at most.
    static constexpr size_t kMaxDocumentBytes = 64u * 1024u * 1024u;
    static constexpr int kMaxElementDepth = 32;
    // Largest file accepted (the auto-save document). A captions document holds a change per
    // Return: a history of 409,600 empty lines is written as about 120 MB, the largest a
    // captions or note-taker notepad writes (the note taker's holds one change). Twice that,
    // so that such a document always loads back; loading takes time and memory in proportion.
    static constexpr size_t kMaxFileBytes = 256u * 1024u * 1024u;
    // Nodes a received PDU may make the library build: a change takes five a segment, and
    // holds a handful of segments.
    static constexpr size_t kMaxPduNodes = 16384;

    COrvNoteBaseXML();
    COrvNoteBaseXML(int type, int version);
    virtual ~COrvNoteBaseXML();

    // Every parse, from a string or through LoadFile, passes this guard first: oversized or
    // too deeply nested input is refused with a document error and an empty document.
    const char* Parse(const char* p, TiXmlParsingData* data = 0,
                      TiXmlEncoding encoding = TIXML_DEFAULT_ENCODING) override;
    // As the library's LoadFile, but refuses a file larger than kMaxFileBytes unread.
    bool LoadFile(const char* filename, TiXmlEncoding encoding = TIXML_DEFAULT_ENCODING);
    bool LoadFile(const std::string& filename, TiXmlEncoding encoding = TIXML_DEFAULT_ENCODING)
    {
        return LoadFile(filename.c_str(), encoding);
    }

    // The document in the library's compact stream form (no indentation, no line breaks).
    std::string PrintCompact() const;

    void SetMainType(int type);
    void SetMainType(const std::string& type);
    std::string GetMainType() const;
    int GetMainType_Int() const;

    virtual int GetVersion() const;
    virtual bool GenerateXMLPDU();
    virtual bool ParseXMLPDU(std::string pdu);
    // The main type (1 to 4) of a received PDU string, or 0. Parses into this document.
    virtual int GetPDUType(std::string pdu);

    bool CheckVersionAndType(TiXmlElement* root, XMLPDUType type);
    bool GenerateVersionAndType(TiXmlElement* root);
    bool GenerateTextElem(TiXmlElement*& elem, const std::string& text);
    bool GenerateTextElem(TiXmlElement*& elem, const std::string& text, NotePosList& pos);
    void ParseTextElem(TiXmlElement*& elem, std::string& text);
    void ParseTextElem(TiXmlElement*& elem, std::string& text, NotePosList pos);
    bool CreatePosElem(TiXmlElement* parent, std::string& posText, NotePosList pos,
                       std::string name);
    void GetPosElem(TiXmlElement* elem, std::string& posText, NotePosList& pos,
                    std::string name);

    // Escaping of "]]>" for CDATA sections, and the optional CR LF rewriting.
    bool strReplace(std::string& s, std::string from, std::string to);
    // usePositions 0: replace everywhere and record the offsets; else replace at pos only.
    bool strReplace(NotePosList& pos, std::string& s, std::string from, std::string to,
                    int usePositions);
    void strToSafe(std::string& s);
    void strToSafe(std::string& s, NotePosList& pos);
    void strToRecover(std::string& s);
    void strToRecover(std::string& s, NotePosList pos);
    // Puts "]]>" back where a serialised PDU's CDATA section lacks its terminator.
    void strPduToSafe(std::string& pdu);

    // Character conversion; only ASCII2UTF8 and UTF8ToUnicode do anything.
    int ASCII2UTF8(char* dst, const char* src);
    void UTF8ToUnicode(unsigned short* dst, const char* src);
    void UTF8ToASCII(char* dst, const char* src);
    void ASCII2Unicode(unsigned short* dst, const char* src);
    void Unicode2UTF8(char* dst, const unsigned short* src);
    void UnicodeToASCII(char* dst, unsigned short c);

    // Splits a comma list ("3,17,40,") into integers; text after the last comma is ignored.
    static void ParsePosList(const std::string& posText, NotePosList& pos);

protected:
    // Most nodes the library may build for a document of bytes bytes of this PDU.
    virtual size_t MaxNodes(size_t bytes) const;
    // Most bytes of text between tags, comments and unknown nodes; no limit by default.
    virtual size_t MaxTextBytes() const { return static_cast<size_t>(-1); }
    // Parses a text this object may change (it is cut at its first zero byte and padded);
    // false when the guard refuses it or the library reports an error.
    bool ParseOwned(std::string& text);
    // As ParseOwned, after strPduToSafe has repaired the text; an oversized text is refused
    // before the repair walks it.
    bool ParseRepaired(std::string& text);
    // Adds an already escaped text to elem as one CDATA node; escaped is taken over.
    void LinkCdataText(TiXmlElement* elem, std::string& escaped);
    // Takes over the PDU settings below (version, main type, conversions) of from; the
    // document itself is left alone.
    void CopyPduSettings(const COrvNoteBaseXML& from);

    int m_nVersion;
    std::string m_strMainType;
    int m_nReserved;
    int m_bConvertCharset;
    int m_bSafeLineBreaks;

private:
    // REQUIRES: text no longer than maxBytes.
    const char* ParsePadded(std::string& text, TiXmlParsingData* data, TiXmlEncoding encoding,
                            size_t maxBytes = kMaxDocumentBytes);
    const char* Refuse(TiXmlEncoding encoding);
};
