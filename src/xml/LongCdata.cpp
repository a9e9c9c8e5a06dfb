// Long CDATA bodies lifted out before the library parses and copied into its nodes after.
#include "xml/LongCdata.h"

#include "xml/XmlInputGuard.h"

#include <tinyxml.h>

#include <algorithm>
#include <cstring>

namespace {

const char kOpen[] = "<![CDATA[";
const char kClose[] = "]]>";
constexpr size_t kOpenLen = sizeof(kOpen) - 1;
constexpr size_t kCloseLen = sizeof(kClose) - 1;
constexpr char kMarker = '\x01';

// Longest run of marker bytes in [from, to).
size_t LongestMarkerRun(const char* from, const char* to)
{
    size_t longest = 0;
    while (from < to) {
        const char* run = static_cast<const char*>(memchr(from, kMarker, static_cast<size_t>(to - from)));
        if (!run) break;
        const char* end = run;
        while (end < to && *end == kMarker) ++end;
        longest = std::max(longest, static_cast<size_t>(end - run));
        from = end;
    }
    return longest;
}

// The next node of a depth-first walk of root's descendants, or null.
TiXmlNode* NextNode(TiXmlNode* node, const TiXmlNode* root)
{
    if (node->FirstChild()) return node->FirstChild();
    for (; node && node != root; node = node->Parent())
        if (node->NextSibling()) return node->NextSibling();
    return nullptr;
}

struct CNodeValue : TiXmlNode {
    static std::string& Of(TiXmlNode& node) { return node.*(&CNodeValue::value); }
};

}  // namespace

std::string& MutableNodeValue(TiXmlNode& node)
{
    return CNodeValue::Of(node);
}

std::string CLongCdata::Placeholder(size_t index) const
{
    return std::string(m_nMarkerLen, kMarker) + std::to_string(index);
}

bool CLongCdata::Lift(const std::string& text, std::string& shorter)
{
    m_sections.clear();
    const char* s = text.data();
    const size_t n = text.size();
    // Section by section as the library would meet them if each opener starts a section;
    // where one does not, the placeholder is not found afterwards.
    for (size_t at = 0; at < n;) {
        const void* open = memmem(s + at, n - at, kOpen, kOpenLen);
        if (!open) break;
        const size_t bodyAt = static_cast<size_t>(static_cast<const char*>(open) - s) + kOpenLen;
        const void* close = memmem(s + bodyAt, n - bodyAt, kClose, kCloseLen);
        if (!close) break;
        const size_t bodyEnd = static_cast<size_t>(static_cast<const char*>(close) - s);
        if (bodyEnd - bodyAt >= kMinBodyBytes) m_sections.push_back({bodyAt, bodyEnd - bodyAt});
        at = bodyEnd + kCloseLen;
    }
    if (m_sections.empty()) return false;

    size_t run = 0;
    size_t keptFrom = 0;
    for (const CSection& section : m_sections) {
        run = std::max(run, LongestMarkerRun(s + keptFrom, s + section.bodyAt));
        keptFrom = section.bodyAt + section.bodyLen;
    }
    run = std::max(run, LongestMarkerRun(s + keptFrom, s + n));
    m_nMarkerLen = run + 1;

    size_t size = n;
    for (size_t k = 0; k < m_sections.size(); ++k)
        size = size - m_sections[k].bodyLen + m_nMarkerLen + std::to_string(k).size();
    // Short of half the text, the copy costs more than the library's reading of the bodies.
    if (size > n / 2) {
        m_sections.clear();
        return false;
    }

    shorter.clear();
    shorter.reserve(size + kXmlPadding);
    keptFrom = 0;
    for (size_t k = 0; k < m_sections.size(); ++k) {
        shorter.append(s + keptFrom, m_sections[k].bodyAt - keptFrom);
        shorter += Placeholder(k);
        keptFrom = m_sections[k].bodyAt + m_sections[k].bodyLen;
    }
    shorter.append(s + keptFrom, n - keptFrom);
    return true;
}

bool CLongCdata::PutBack(TiXmlNode& document, const std::string& text) const
{
    std::vector<TiXmlText*> holders(m_sections.size(), nullptr);
    size_t found = 0;
    for (TiXmlNode* node = document.FirstChild(); node; node = NextNode(node, &document)) {
        // Only the section a placeholder replaced can come out as exactly its text; the
        // checks of kind and uniqueness cost nothing and do not rest on that alone.
        TiXmlText* textNode = node->ToText();
        if (!textNode || !textNode->CDATA()) continue;
        const std::string& value = textNode->ValueStr();
        if (value.size() <= m_nMarkerLen || value.size() > m_nMarkerLen + 20 ||
            value.find_first_not_of(kMarker) != m_nMarkerLen)
            continue;
        size_t index = 0;
        for (size_t i = m_nMarkerLen; i < value.size() && index < m_sections.size(); ++i)
            index = value[i] >= '0' && value[i] <= '9' ? index * 10 + size_t(value[i] - '0') : m_sections.size();
        if (index >= m_sections.size() || value != Placeholder(index)) continue;
        if (holders[index]) return false;
        holders[index] = textNode;
        ++found;
    }
    if (found != m_sections.size()) return false;
    for (size_t k = 0; k < m_sections.size(); ++k)
        MutableNodeValue(*holders[k]).assign(text, m_sections[k].bodyAt, m_sections[k].bodyLen);
    return true;
}
