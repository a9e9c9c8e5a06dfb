// Change PDU: segmentation of the edit's text and its XML form.
#include "xml/NoteChangeInfoPDU.h"

#include "xml/LongCdata.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <utility>

namespace {

// Key changes of indexed changes, over the whole process.
std::atomic<uint64_t> g_indexedKeyChanges{0};

std::string DecimalText(int value)
{
    return std::to_string(value);
}

int IntOrZero(const std::string& text)
{
    return text.empty() ? 0 : atoi(text.c_str());
}

CNoteSegInfo MakeSegment(const std::string& text, bool special)
{
    CNoteSegInfo seg;
    seg.SetSegInfo(text);
    seg.SetSpecial(special);
    return seg;
}

// What GetText() gives (the first child's text, up to a zero byte), taken out of the node.
std::string TakeText(TiXmlElement& elem)
{
    TiXmlNode* child = elem.FirstChild();
    if (!child || !child->ToText()) return std::string();
    std::string text;
    text.swap(MutableNodeValue(*child));
    text.resize(strlen(text.c_str()));
    return text;
}

}  // namespace

CNoteChangeInfoPDU::CNoteChangeInfoPDU()
    : m_strOffset("0"), m_strOffsetLast("0"), m_strCacheId("0"), m_strUniqueId("0")
{
    m_bConvertCharset = 0;
    SetMainType(XMLPDU_CHANGE_INFO);
}

CNoteChangeInfoPDU::CNoteChangeInfoPDU(const CNoteChangeInfoPDU&) = default;
CNoteChangeInfoPDU& CNoteChangeInfoPDU::operator=(const CNoteChangeInfoPDU&) = default;

CNoteChangeInfoPDU::CNoteChangeInfoPDU(CNoteChangeInfoPDU&& other) noexcept
    : m_strOffset(std::move(other.m_strOffset)),
      m_strOffsetLast(std::move(other.m_strOffsetLast)),
      m_strCacheId(std::move(other.m_strCacheId)),
      m_strUniqueId(std::move(other.m_strUniqueId)),
      m_vecNetInfo(std::move(other.m_vecNetInfo)),
      m_vecSegInfo(std::move(other.m_vecSegInfo)),
      m_nOffset(other.m_nOffset),
      m_nOffsetLast(other.m_nOffsetLast),
      m_nNoteMsgHash(other.m_nNoteMsgHash),
      m_bNoteMsgHashValid(other.m_bNoteMsgHashValid)
{
    CopyPduSettings(other);
    // The XML library's nodes cannot change owner: a document, if there is one, is copied.
    if (other.FirstChild() || other.Error() || *other.Value() || other.TabSize() != TabSize() ||
        other.GetUserData())
        TiXmlDocument::operator=(other);
}

CNoteChangeInfoPDU::~CNoteChangeInfoPDU() = default;

CNoteChangeInfoPDU CNoteChangeInfoPDU::CopyWithoutDocument() const
{
    CNoteChangeInfoPDU copy;
    copy.CopyPduSettings(*this);
    copy.m_strOffset = m_strOffset;
    copy.m_strOffsetLast = m_strOffsetLast;
    copy.m_strCacheId = m_strCacheId;
    copy.m_strUniqueId = m_strUniqueId;
    copy.m_vecNetInfo = m_vecNetInfo;
    copy.m_vecSegInfo = m_vecSegInfo;
    copy.m_nOffset = m_nOffset;
    copy.m_nOffsetLast = m_nOffsetLast;
    copy.m_nNoteMsgHash = m_nNoteMsgHash;
    copy.m_bNoteMsgHashValid = m_bNoteMsgHashValid;
    return copy;
}

CNoteChangeInfoPDU::CIndexMark& CNoteChangeInfoPDU::CIndexMark::operator=(const CIndexMark&)
{
    if (m_bMarked) g_indexedKeyChanges.fetch_add(1, std::memory_order_relaxed);
    return *this;
}

CNoteChangeInfoPDU::CIndexMark::~CIndexMark()
{
    if (m_bMarked) g_indexedKeyChanges.fetch_add(1, std::memory_order_relaxed);
}

uint64_t CNoteChangeInfoPDU::IndexedKeyChanges()
{
    return g_indexedKeyChanges.load(std::memory_order_relaxed);
}

void CNoteChangeInfoPDU::KeyChanged()
{
    m_nOffset = IntOrZero(m_strOffset);
    m_nOffsetLast = IntOrZero(m_strOffsetLast);
    m_bNoteMsgHashValid = false;
    if (m_mark.m_bMarked) g_indexedKeyChanges.fetch_add(1, std::memory_order_relaxed);
}

void CNoteChangeInfoPDU::SetOffSet(int nValue, int which)
{
    SetOffSet(DecimalText(nValue), which);
}

void CNoteChangeInfoPDU::SetOffSet(const std::string& strValue, int which)
{
    (which == 0 ? m_strOffset : m_strOffsetLast) = strValue;
    KeyChanged();
}

std::string CNoteChangeInfoPDU::GetOffSet(int which) const
{
    return which == 0 ? m_strOffset : m_strOffsetLast;
}

int CNoteChangeInfoPDU::GetOffSet_INT(int which) const
{
    return which == 0 ? m_nOffset : m_nOffsetLast;
}

void CNoteChangeInfoPDU::SetCacheId(int id)
{
    m_strCacheId = DecimalText(id);
}

void CNoteChangeInfoPDU::SetCacheId(const std::string& id)
{
    m_strCacheId = id;
}

std::string CNoteChangeInfoPDU::GetCacheId() const
{
    return m_strCacheId;
}

int CNoteChangeInfoPDU::GetCacheId_INT() const
{
    return IntOrZero(m_strCacheId);
}

void CNoteChangeInfoPDU::SetUniqueId(int id)
{
    m_strUniqueId = DecimalText(id);
}

void CNoteChangeInfoPDU::SetUniqueId(const std::string& id)
{
    m_strUniqueId = id;
}

std::string CNoteChangeInfoPDU::GetUniqueId() const
{
    return m_strUniqueId;
}

int CNoteChangeInfoPDU::GetUniqueId_INT() const
{
    return IntOrZero(m_strUniqueId);
}

void CNoteChangeInfoPDU::AddNetInfo(const std::string& marker)
{
    m_vecNetInfo.push_back(marker);
}

void CNoteChangeInfoPDU::GetNetInfo(int index, std::string& out) const
{
    out = (index >= 0 && static_cast<size_t>(index) < m_vecNetInfo.size())
              ? m_vecNetInfo[static_cast<size_t>(index)]
              : std::string();
}

int CNoteChangeInfoPDU::GetNetInfoCount_INT() const
{
    return static_cast<int>(m_vecNetInfo.size());
}

void CNoteChangeInfoPDU::ResetNetInfo()
{
    m_vecNetInfo.clear();
}

// Each marker is searched from the start of the whole message. A marker that is missing
// adds the whole message as one more plain segment and ends the cut, even after earlier
// markers were cut out; the text is then carried twice, as the format has always done.
void CNoteChangeInfoPDU::SetNoteMsg(const std::string& msg)
{
    KeyChanged();
    m_vecSegInfo.clear();
    if (msg.empty()) return;
    long nNext = 0;
    for (const std::string& marker : m_vecNetInfo) {
        const size_t p = msg.find(marker);
        if (p == std::string::npos) {
            m_vecSegInfo.push_back(MakeSegment(msg, false));
            return;
        }
        if (p > 0) m_vecSegInfo.push_back(MakeSegment(msg.substr(0, p), false));
        m_vecSegInfo.push_back(MakeSegment(msg.substr(p, marker.size()), true));
        nNext = static_cast<long>(p + marker.size());
        if (static_cast<size_t>(nNext) >= msg.size()) return;
    }
    if (nNext >= 0 && static_cast<size_t>(nNext) < msg.size()) {
        m_vecSegInfo.push_back(MakeSegment(msg.substr(static_cast<size_t>(nNext)), false));
    }
}

std::string CNoteChangeInfoPDU::GetNoteMsg()
{
    std::string msg;
    for (const CNoteSegInfo& seg : m_vecSegInfo) {
        if (seg.GetSpecial()) continue;
        std::string text = seg.GetSegInfo();
        strToRecover(text, seg.GetPosVec());
        if (msg.empty())
            msg.swap(text);  // the usual single segment is not copied twice
        else
            msg += text;
        if (seg.GetEndln()) msg += "\r\n";
    }
    return msg;
}

std::string CNoteChangeInfoPDU::TakeNoteMsg()
{
    if (m_vecSegInfo.size() != 1 || m_vecSegInfo[0].GetSpecial()) return GetNoteMsg();
    CNoteSegInfo& seg = m_vecSegInfo[0];
    std::string text = seg.TakeSegInfo();
    KeyChanged();
    strToRecover(text, seg.GetPosVec());
    if (seg.GetEndln()) text += "\r\n";
    return text;
}

bool CNoteChangeInfoPDU::IsNoteMsgEmpty()
{
    // Recovering escapes never shortens a text to nothing.
    for (const CNoteSegInfo& seg : m_vecSegInfo)
        if (!seg.GetSpecial() && !seg.SegInfoText().empty()) return false;
    return GetNoteMsg().empty();
}

size_t CNoteChangeInfoPDU::GetNoteMsgHash()
{
    if (!m_bNoteMsgHashValid) {
        // The usual single plain segment is its own text: hashed where it lies.
        const CNoteSegInfo* only = m_vecSegInfo.size() == 1 ? &m_vecSegInfo[0] : nullptr;
        if (only && !only->GetSpecial() && !only->GetEndln() && only->GetPosVec().empty() &&
            only->SegInfoText().find("\n\n") == std::string::npos)
            m_nNoteMsgHash = std::hash<std::string>()(only->SegInfoText());
        else
            m_nNoteMsgHash = std::hash<std::string>()(GetNoteMsg());
        m_bNoteMsgHashValid = true;
    }
    return m_nNoteMsgHash;
}

bool CNoteChangeInfoPDU::GenerateXMLPDU()
{
    Clear();
    TiXmlElement* root = new TiXmlElement("notecom");
    LinkEndChild(root);
    GenerateVersionAndType(root);
    root->SetAttribute("useruniqueid", m_strUniqueId);
    root->SetAttribute("offset", m_strOffset);
    root->SetAttribute("offsetlast", m_strOffsetLast);
    root->SetAttribute("cacheid", m_strCacheId);
    for (const CNoteSegInfo& seg : m_vecSegInfo) {
        TiXmlElement* elem = new TiXmlElement("seginfo");
        elem->SetAttribute("endnewline", seg.GetEndlnStr());
        elem->SetAttribute("posnotemsg", seg.GetPosStr());
        elem->SetAttribute("special", seg.GetSpecialStr());
        GenerateTextElem(elem, seg.GetSegInfo());
        root->LinkEndChild(elem);
    }
    return true;
}

bool CNoteChangeInfoPDU::ParseXMLPDU(std::string pdu)
{
    return ParseFields(pdu, false);
}

bool CNoteChangeInfoPDU::ParseFieldsOnly(std::string pdu)
{
    const bool parsed = ParseFields(pdu, true);
    Clear();
    return parsed;
}

bool CNoteChangeInfoPDU::ParseFields(std::string& pdu, bool takeTexts)
{
    if (pdu.empty() || !ParseOwned(pdu)) return false;
    pdu = std::string();  // the document holds what is wanted of it
    TiXmlNode* node = FirstChild("notecom");
    TiXmlElement* root = node ? node->ToElement() : 0;
    if (!root || !CheckVersionAndType(root, XMLPDU_CHANGE_INFO)) return false;

    // From here on the offsets and the text change, however the parse ends.
    struct KeyChangedOnExit {
        CNoteChangeInfoPDU* pdu;
        ~KeyChangedOnExit() { pdu->KeyChanged(); }
    } keyChanged{this};
    m_strUniqueId = savestr(root->Attribute("useruniqueid"));
    m_strOffset = savestr(root->Attribute("offset"));
    m_strOffsetLast = savestr(root->Attribute("offsetlast"));
    m_strCacheId = savestr(root->Attribute("cacheid"));

    m_vecSegInfo.clear();
    for (TiXmlElement* elem = root->FirstChildElement("seginfo"); elem;
         elem = elem->NextSiblingElement("seginfo")) {
        CNoteSegInfo seg;
        seg.SetEndln(savestr(elem->Attribute("endnewline")));
        seg.SetSpecial(savestr(elem->Attribute("special")));
        seg.SetSegInfo(takeTexts ? TakeText(*elem) : savestr(elem->GetText()));
        const std::string posText = savestr(elem->Attribute("posnotemsg"));
        if (!posText.empty()) {
            NotePosList pos;
            ParsePosList(posText, pos);
            seg.SetMsgPos(pos);
        }
        m_vecSegInfo.push_back(std::move(seg));
    }
    return true;
}
