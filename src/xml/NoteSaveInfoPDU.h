// The whole saved state of a shared notepad: shown, published and base texts, channel id,
// the local user's role, network-information entries and the change PDUs that lead from the
// base text to the shown one. It is the auto-save document on disk.
#pragma once

#include "xml/NoteChangeInfoPDU.h"
#include "xml/OrvNoteBaseXML.h"

#include <string>
#include <vector>

class CNoteSaveInfoPDU : public COrvNoteBaseXML {
public:
    CNoteSaveInfoPDU();
    ~CNoteSaveInfoPDU() override;

    void ClearPdu();
    void ResetNetInfo();

    void SetNoteShowMsg(const std::string& msg);
    std::string GetNoteShowMsg() const;
    void SetPublishMsg(const std::string& msg);
    std::string GetPublishMsg() const;
    void SetOldMsg(const std::string& msg);
    std::string GetOldMsg() const;

    void SetChannalID(int id);
    void SetChannalID(const std::string& id);
    std::string GetChannalID() const;
    int GetChannalID_INT() const;

    void SetUserType(int type);
    void SetUserType(const std::string& type);
    std::string GetUserType() const;
    int GetUserType_INT() const;

    void AddNetInfo(const std::string& info);
    int GetNetInfoCount_INT() const;
    // out is "" for an index at or past the count; a negative index reads as out of range.
    void GetNetInfo(int index, std::string& out) const;

    bool GenerateXMLPDU() override;
    bool ParseXMLPDU(std::string text) override;
    // Reads the fields from the document already loaded (from a string or a file).
    virtual bool ParseXMLPDU();

    // The changes in order, reached directly by the client.
    std::vector<CNoteChangeInfoPDU> m_vecChangeInfoPdu;

protected:
    // A document of many changes is large and has many nodes; it is bounded by its size.
    size_t MaxNodes(size_t bytes) const override;

private:
    // Writes one text element and, when the escaping recorded offsets, its position element.
    void GenerateMsgElem(TiXmlElement* root, const char* name, const std::string& msg,
                         std::string& posText, NotePosList& pos);
    void ParseMsgElem(TiXmlElement* root, const char* name, std::string& msg,
                      std::string& posText, NotePosList& pos);

    std::string m_strNoteShowMsg;
    std::string m_strPublishMsg;
    std::string m_strChannalID;
    std::string m_strUserType;
    std::string m_strOldMsg;
    std::string m_strShowMsgPos;
    std::string m_strPublishMsgPos;
    std::string m_strOldMsgPos;
    std::vector<std::string> m_vecNetInfo;
    std::vector<std::string> m_vecChangePos;
    NotePosList m_vecShowMsgPos;
    NotePosList m_vecPublishMsgPos;
    NotePosList m_vecOldMsgPos;
};
