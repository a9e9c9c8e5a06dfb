// Save PDU: the auto-save document and its XML form.
#include "xml/NoteSaveInfoPDU.h"

#include <cstdlib>
#include <sstream>

namespace {

std::string DecimalText(int value)
{
    std::ostringstream os;
    os << value;
    return os.str();
}

// Adds text as an ordinary (not CDATA) child; nothing for an empty text.
void LinkPlainTextElem(TiXmlElement* root, const char* name, const std::string& text)
{
    if (text.empty()) return;
    TiXmlElement* elem = new TiXmlElement(name);
    elem->LinkEndChild(new TiXmlText(text));
    root->LinkEndChild(elem);
}

void ReadPlainTextElem(TiXmlElement* root, const char* name, std::string& text)
{
    TiXmlElement* elem = root->FirstChildElement(name);
    const char* value = elem ? elem->GetText() : 0;
    if (value) text = value;
}

}  // namespace

CNoteSaveInfoPDU::CNoteSaveInfoPDU()
{
    ClearPdu();
    m_bConvertCharset = 0;
    SetMainType(XMLPDU_SAVE_INFO);
}

CNoteSaveInfoPDU::~CNoteSaveInfoPDU() = default;

void CNoteSaveInfoPDU::ClearPdu()
{
    m_strNoteShowMsg.clear();
    m_strPublishMsg.clear();
    m_strChannalID.clear();
    m_strUserType.clear();
    m_vecChangeInfoPdu.clear();
    m_strOldMsg.clear();
    m_vecShowMsgPos.clear();
    m_vecPublishMsgPos.clear();
    m_vecOldMsgPos.clear();
    m_strShowMsgPos.clear();
    m_strPublishMsgPos.clear();
    m_strOldMsgPos.clear();
    m_vecChangePos.clear();
    m_vecNetInfo.clear();
}

void CNoteSaveInfoPDU::ResetNetInfo()
{
    m_vecNetInfo.clear();
}

void CNoteSaveInfoPDU::SetNoteShowMsg(const std::string& msg) { m_strNoteShowMsg = msg; }
std::string CNoteSaveInfoPDU::GetNoteShowMsg() const { return m_strNoteShowMsg; }
void CNoteSaveInfoPDU::SetPublishMsg(const std::string& msg) { m_strPublishMsg = msg; }
std::string CNoteSaveInfoPDU::GetPublishMsg() const { return m_strPublishMsg; }
void CNoteSaveInfoPDU::SetOldMsg(const std::string& msg) { m_strOldMsg = msg; }
std::string CNoteSaveInfoPDU::GetOldMsg() const { return m_strOldMsg; }

void CNoteSaveInfoPDU::SetChannalID(int id) { m_strChannalID = DecimalText(id); }
void CNoteSaveInfoPDU::SetChannalID(const std::string& id) { m_strChannalID = id; }
std::string CNoteSaveInfoPDU::GetChannalID() const { return m_strChannalID; }

int CNoteSaveInfoPDU::GetChannalID_INT() const
{
    return m_strChannalID.empty() ? 0 : atoi(m_strChannalID.c_str());
}

void CNoteSaveInfoPDU::SetUserType(int nType) { m_strUserType = DecimalText(nType); }
void CNoteSaveInfoPDU::SetUserType(const std::string& strType) { m_strUserType = strType; }
std::string CNoteSaveInfoPDU::GetUserType() const { return m_strUserType; }

int CNoteSaveInfoPDU::GetUserType_INT() const
{
    return m_strUserType.empty() ? 0 : atoi(m_strUserType.c_str());
}

void CNoteSaveInfoPDU::AddNetInfo(const std::string& info)
{
    m_vecNetInfo.push_back(info);
}

int CNoteSaveInfoPDU::GetNetInfoCount_INT() const
{
    return static_cast<int>(m_vecNetInfo.size());
}

void CNoteSaveInfoPDU::GetNetInfo(int index, std::string& out) const
{
    out = (index >= 0 && static_cast<size_t>(index) < m_vecNetInfo.size())
              ? m_vecNetInfo[static_cast<size_t>(index)]
              : std::string();
}

void CNoteSaveInfoPDU::GenerateMsgElem(TiXmlElement* root, const char* name,
                                       const std::string& msg, std::string& posText,
                                       NotePosList& pos)
{
    TiXmlElement* elem = new TiXmlElement(name);
    if (!GenerateTextElem(elem, msg, pos)) {
        delete elem;
        return;
    }
    root->LinkEndChild(elem);
    CreatePosElem(root, posText, pos, "posnotemsg");
}

bool CNoteSaveInfoPDU::GenerateXMLPDU()
{
    Clear();
    TiXmlElement* root = new TiXmlElement("notecom");
    LinkEndChild(root);
    GenerateVersionAndType(root);

    GenerateMsgElem(root, "noteinfo", m_strNoteShowMsg, m_strShowMsgPos, m_vecShowMsgPos);
    GenerateMsgElem(root, "publish", m_strPublishMsg, m_strPublishMsgPos, m_vecPublishMsgPos);
    GenerateMsgElem(root, "olddatamsg", m_strOldMsg, m_strOldMsgPos, m_vecOldMsgPos);
    LinkPlainTextElem(root, "channalid", m_strChannalID);
    LinkPlainTextElem(root, "usertype", m_strUserType);

    // An empty entry ends the list: the ones after it are not written.
    for (const std::string& info : m_vecNetInfo) {
        TiXmlElement* elem = new TiXmlElement("netinfo");
        if (!GenerateTextElem(elem, info)) {
            delete elem;
            break;
        }
        root->LinkEndChild(elem);
    }

    m_vecChangePos.clear();
    for (const CNoteChangeInfoPDU& change : m_vecChangeInfoPdu) {
        CNoteChangeInfoPDU copy(change);
        copy.GenerateXMLPDU();
        TiXmlElement* elem = new TiXmlElement("changepdu");
        NotePosList pos;
        if (!GenerateTextElem(elem, copy.PrintCompact(), pos)) {
            delete elem;
            return true;
        }
        root->LinkEndChild(elem);
        std::string posText;
        CreatePosElem(root, posText, pos, "posnotemsg");
        m_vecChangePos.push_back(posText);
    }
    return true;
}

// Every change as written takes four nodes in some 290 bytes and a net info entry two in 50
// at the least, so no document written gets near one node for every 24 bytes.
size_t CNoteSaveInfoPDU::MaxNodes(size_t bytes) const
{
    return bytes / 24 + kMaxPduNodes;
}

bool CNoteSaveInfoPDU::ParseXMLPDU(std::string text)
{
    if (text.empty()) return false;
    ParseRepaired(text);  // text is this call's own copy
    return ParseXMLPDU();
}

void CNoteSaveInfoPDU::ParseMsgElem(TiXmlElement* root, const char* name, std::string& msg,
                                    std::string& posText, NotePosList& pos)
{
    TiXmlElement* elem = root->FirstChildElement(name);
    if (!elem) return;
    GetPosElem(elem, posText, pos, "posnotemsg");
    msg.clear();
    ParseTextElem(elem, msg, pos);
}

bool CNoteSaveInfoPDU::ParseXMLPDU()
{
    if (Error()) return false;
    TiXmlNode* node = FirstChild("notecom");
    TiXmlElement* root = node ? node->ToElement() : 0;
    if (!root || !CheckVersionAndType(root, XMLPDU_SAVE_INFO)) return false;

    ParseMsgElem(root, "noteinfo", m_strNoteShowMsg, m_strShowMsgPos, m_vecShowMsgPos);
    ParseMsgElem(root, "publish", m_strPublishMsg, m_strPublishMsgPos, m_vecPublishMsgPos);
    ParseMsgElem(root, "olddatamsg", m_strOldMsg, m_strOldMsgPos, m_vecOldMsgPos);
    ReadPlainTextElem(root, "channalid", m_strChannalID);
    ReadPlainTextElem(root, "usertype", m_strUserType);

    // Entries accumulate across parses and are taken as written, escaping included.
    for (TiXmlElement* elem = root->FirstChildElement("netinfo"); elem;
         elem = elem->NextSiblingElement("netinfo")) {
        const char* info = elem->GetText();
        if (!info) break;
        m_vecNetInfo.push_back(info);
    }

    m_vecChangeInfoPdu.clear();
    m_vecChangePos.clear();
    size_t count = 0;
    for (TiXmlElement* elem = root->FirstChildElement("changepdu"); elem;
         elem = elem->NextSiblingElement("changepdu"))
        ++count;
    m_vecChangeInfoPdu.reserve(count);
    for (TiXmlElement* elem = root->FirstChildElement("changepdu"); elem;
         elem = elem->NextSiblingElement("changepdu")) {
        std::string posText;
        NotePosList pos;
        GetPosElem(elem, posText, pos, "posnotemsg");
        std::string changeText;
        ParseTextElem(elem, changeText, pos);
        CNoteChangeInfoPDU change;
        if (change.ParseXMLPDU(changeText)) {
            // The fields only: the change's own document is rebuilt whenever it is printed.
            m_vecChangeInfoPdu.push_back(change.CopyWithoutDocument());
            m_vecChangePos.push_back(posText);
        }
    }
    return true;
}
