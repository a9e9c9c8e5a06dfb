// Nesting measurement that steps through the text exactly as the XML library's parser does.
#include "xml/XmlInputGuard.h"

#include <cctype>
#include <cstring>
#include <string>

namespace {

// Bytes per character that the library steps over in UTF-8 mode, by lead byte.
int Utf8Step(unsigned char c)
{
    if (c >= 0xC2 && c <= 0xDF) return 2;
    if (c >= 0xE0 && c <= 0xEF) return 3;
    if (c >= 0xF0 && c <= 0xF4) return 4;
    return 1;
}

bool IsSpace(unsigned char c)
{
    return isspace(c) || c == '\n' || c == '\r';
}

bool IsNameStart(unsigned char c)
{
    return c >= 127 || isalpha(c) || c == '_';
}

bool IsNameChar(unsigned char c)
{
    return c >= 127 || isalnum(c) || c == '_' || c == '-' || c == '.' || c == ':';
}

class CXmlDepthMeter {
public:
    CXmlDepthMeter(const unsigned char* text, size_t len, int stopAbove, size_t maxNodes)
        : m_s(text), m_len(len), m_stopAbove(stopAbove), m_maxNodes(maxNodes)
    {
    }

    int Run();
    bool TooManyNodes() const { return m_nodes > m_maxNodes; }
    size_t TextBytes() const { return m_textBytes; }

private:
    enum Result { kStop, kGoOn };

    unsigned char At(size_t k) const { return k < m_len ? m_s[k] : 0; }
    unsigned char Cur() const { return At(m_i); }
    void Advance(size_t n) { m_i = m_i + n > m_len ? m_len : m_i + n; }
    bool Matches(const char* lit, bool ignoreCase) const;
    void SkipSpace();
    bool SkipPast(const char* terminator);
    // SkipPast, counting what it skips as text the library reads a character at a time.
    bool SkipCounted(const char* terminator);
    bool ReadName();
    Result ReadAttribute(std::string* value);
    Result ReadDeclaration();
    Result ReadNode();

    const unsigned char* m_s;
    size_t m_len;
    int m_stopAbove;
    size_t m_maxNodes;
    size_t m_nodes = 0;  // nodes the library would make so far
    size_t m_textBytes = 0;  // of text between tags, comments and unknown nodes
    size_t m_i = 0;
    bool m_utf8 = false;
    bool m_encodingKnown = false;
    bool m_unsure = false;
    int m_depth = 0;
    int m_maxDepth = 0;
};

bool CXmlDepthMeter::Matches(const char* lit, bool ignoreCase) const
{
    for (size_t k = 0; lit[k]; ++k) {
        unsigned char c = At(m_i + k);
        if (ignoreCase && c < 128) c = static_cast<unsigned char>(tolower(c));
        if (c != static_cast<unsigned char>(lit[k])) return false;
    }
    return true;
}

void CXmlDepthMeter::SkipSpace()
{
    for (;;) {
        const unsigned char c = Cur();
        if (!c) return;
        if (m_utf8 && c == 0xEF && ((At(m_i + 1) == 0xBB && At(m_i + 2) == 0xBF) ||
                                    (At(m_i + 1) == 0xBF && (At(m_i + 2) == 0xBE ||
                                                             At(m_i + 2) == 0xBF)))) {
            Advance(3);
        } else if (IsSpace(c)) {
            Advance(1);
        } else {
            return;
        }
    }
}

// Moves past the next occurrence of terminator; false when the text ends first.
bool CXmlDepthMeter::SkipPast(const char* terminator)
{
    const size_t n = std::strlen(terminator);
    const void* found = m_i < m_len ? memmem(m_s + m_i, m_len - m_i, terminator, n) : 0;
    if (!found) {
        m_i = m_len;
        return false;
    }
    m_i = static_cast<size_t>(static_cast<const unsigned char*>(found) - m_s) + n;
    return true;
}

bool CXmlDepthMeter::SkipCounted(const char* terminator)
{
    const size_t from = m_i;
    const bool found = SkipPast(terminator);
    m_textBytes += m_i - from;
    return found;
}

bool CXmlDepthMeter::ReadName()
{
    if (!IsNameStart(Cur())) return false;
    while (IsNameChar(Cur())) Advance(1);
    return true;
}

CXmlDepthMeter::Result CXmlDepthMeter::ReadAttribute(std::string* value)
{
    ++m_nodes;
    SkipSpace();
    if (!ReadName() || !Cur()) return kStop;
    SkipSpace();
    if (Cur() != '=') return kStop;
    Advance(1);
    SkipSpace();
    const unsigned char quote = Cur();
    if (!quote) return kStop;
    if (quote == '\'' || quote == '"') {
        Advance(1);
        while (Cur() && Cur() != quote) {
            const unsigned char c = Cur();
            if (value) value->push_back(static_cast<char>(c));
            Advance(m_utf8 ? Utf8Step(c) : 1);
        }
        if (!Cur()) return kStop;
        Advance(1);
    } else {
        while (Cur() && !IsSpace(Cur()) && Cur() != '/' && Cur() != '>') {
            if (Cur() == '\'' || Cur() == '"') return kStop;
            if (value) value->push_back(static_cast<char>(Cur()));
            Advance(1);
        }
    }
    return Cur() ? kGoOn : kStop;
}

CXmlDepthMeter::Result CXmlDepthMeter::ReadDeclaration()
{
    Advance(5);  // "<?xml"
    std::string encoding;
    while (Cur()) {
        if (Cur() == '>') {
            Advance(1);
            if (!m_encodingKnown && m_depth == 0) {
                // An entity in the encoding name would be decoded by the library first.
                if (encoding.find('&') != std::string::npos) m_unsure = true;
                for (char& c : encoding) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
                m_utf8 = encoding.empty() || encoding.compare(0, 5, "utf-8") == 0 ||
                         encoding.compare(0, 4, "utf8") == 0;
                m_encodingKnown = true;
            }
            return kGoOn;
        }
        SkipSpace();
        // Some library versions assert on the end of the text here: never let it get there.
        if (!Cur()) {
            m_unsure = true;
            return kStop;
        }
        if (Matches("encoding", true)) {
            encoding.clear();
            if (ReadAttribute(&encoding) == kStop) return kStop;
        } else if (Matches("version", true) || Matches("standalone", true)) {
            if (ReadAttribute(0) == kStop) return kStop;
        } else {
            while (Cur() && Cur() != '>' && !IsSpace(Cur())) Advance(1);
        }
    }
    return kStop;
}

// One node starting at '<', at the current depth. An element's start tag opens a level.
CXmlDepthMeter::Result CXmlDepthMeter::ReadNode()
{
    ++m_nodes;
    if (Matches("<?xml", true)) return ReadDeclaration();
    if (Matches("<!--", false)) {
        Advance(4);
        return SkipCounted("-->") ? kGoOn : kStop;
    }
    if (Matches("<![CDATA[", false)) {
        Advance(9);
        return SkipPast("]]>") ? kGoOn : kStop;
    }
    if (!Matches("<!", false) && (IsNameStart(At(m_i + 1)))) {
        Advance(1);
        SkipSpace();
        if (!ReadName() || !Cur()) return kStop;
        for (;;) {
            SkipSpace();
            if (!Cur()) return kStop;
            if (Cur() == '/') {
                Advance(1);
                if (Cur() != '>') return kStop;
                Advance(1);
                return kGoOn;
            }
            if (Cur() == '>') {
                Advance(1);
                ++m_depth;
                if (m_depth > m_maxDepth) m_maxDepth = m_depth;
                return kGoOn;
            }
            if (ReadAttribute(0) == kStop) return kStop;
        }
    }
    // Anything else up to the next '>' is a node the library keeps as unknown.
    Advance(1);
    return SkipCounted(">") ? kGoOn : kStop;
}

int CXmlDepthMeter::Run()
{
    m_utf8 = m_encodingKnown = At(0) == 0xEF && At(1) == 0xBB && At(2) == 0xBF;
    SkipSpace();
    while (Cur()) {
        if (m_unsure) return -1;
        if (m_maxDepth > m_stopAbove || m_nodes > m_maxNodes) break;
        if (m_depth == 0) {
            if (Cur() != '<') break;
            if (ReadNode() == kStop) break;
        } else if (Cur() != '<') {
            // Text up to the next '<', stepped as the library steps characters.
            ++m_nodes;
            const size_t textAt = m_i;
            if (!m_utf8) {
                const void* lt = memchr(m_s + m_i, '<', m_len - m_i);
                m_i = lt ? static_cast<size_t>(static_cast<const unsigned char*>(lt) - m_s) : m_len;
            }
            while (Cur() && Cur() != '<') Advance(IsSpace(Cur()) || !m_utf8 ? 1 : Utf8Step(Cur()));
            m_textBytes += m_i - textAt;
            if (!Cur()) break;
            continue;
        } else if (At(m_i + 1) == '/') {
            // An end tag closes the open element; a wrong name stops the library there.
            if (!SkipPast(">")) break;
            --m_depth;
        } else if (ReadNode() == kStop) {
            break;
        }
        SkipSpace();
    }
    return m_unsure ? -1 : m_maxDepth;
}

}  // namespace

int MeasureXmlDepth(const char* text, int stopAbove)
{
    CXmlDepthMeter meter(reinterpret_cast<const unsigned char*>(text), std::strlen(text),
                         stopAbove, static_cast<size_t>(-1));
    return meter.Run();
}

bool IsXmlInputAcceptable(const char* text, size_t len, size_t maxBytes, int maxDepth,
                          size_t maxNodes, size_t maxTextBytes)
{
    if (len > maxBytes) return false;
    CXmlDepthMeter meter(reinterpret_cast<const unsigned char*>(text), len, maxDepth, maxNodes);
    const int depth = meter.Run();
    return depth >= 0 && depth <= maxDepth && !meter.TooManyNodes() && meter.TextBytes() <= maxTextBytes;
}
