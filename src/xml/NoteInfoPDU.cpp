// Note info PDU: root "notecom" with a "noteinfo" text and its "posnotemsg" list.
#include "xml/NoteInfoPDU.h"

CNoteInfoPDU::CNoteInfoPDU()
{
    m_bConvertCharset = 0;
    SetMainType(XMLPDU_NOTE_INFO);
}

CNoteInfoPDU::~CNoteInfoPDU() = default;

void CNoteInfoPDU::SetNoteMsg(const std::string& msg)
{
    m_strNoteMsg = msg;
}

std::string CNoteInfoPDU::GetNoteMsg() const
{
    return m_strNoteMsg;
}

bool CNoteInfoPDU::GenerateNoteMsgElem(TiXmlElement*& elem)
{
    if (m_strNoteMsg.empty()) return false;
    return GenerateTextElem(elem, m_strNoteMsg, m_vecPos);
}

// The document is not cleared first: callers generate once per object.
bool CNoteInfoPDU::GenerateXMLPDU()
{
    TiXmlElement* root = new TiXmlElement("notecom");
    LinkEndChild(root);
    GenerateVersionAndType(root);
    TiXmlElement* noteinfo = new TiXmlElement("noteinfo");
    if (GenerateNoteMsgElem(noteinfo)) {
        root->LinkEndChild(noteinfo);
        CreatePosElem(root, m_strPos, m_vecPos, "posnotemsg");
    } else {
        delete noteinfo;
    }
    return true;
}

bool CNoteInfoPDU::ParseXMLPDU(std::string pdu)
{
    if (pdu.empty()) return false;
    if (!ParseRepaired(pdu)) return false;  // pdu is this call's own copy
    TiXmlNode* node = FirstChild("notecom");
    TiXmlElement* root = node ? node->ToElement() : 0;
    if (!root || !CheckVersionAndType(root, XMLPDU_NOTE_INFO)) return false;
    TiXmlElement* noteinfo = root->FirstChildElement("noteinfo");
    if (!noteinfo) return true;
    GetPosElem(noteinfo, m_strPos, m_vecPos, "posnotemsg");
    m_strNoteMsg.clear();
    ParseTextElem(noteinfo, m_strNoteMsg, m_vecPos);
    return true;
}
