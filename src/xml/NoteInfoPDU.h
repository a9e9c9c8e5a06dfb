// A whole note text in one PDU, with the offsets at which "]]>" was escaped in it.
#pragma once

#include "xml/OrvNoteBaseXML.h"

#include <string>

class CNoteInfoPDU : public COrvNoteBaseXML {
public:
    CNoteInfoPDU();
    ~CNoteInfoPDU() override;

    void SetNoteMsg(const std::string& msg);
    std::string GetNoteMsg() const;

    bool GenerateXMLPDU() override;
    bool ParseXMLPDU(std::string pdu) override;
    bool GenerateNoteMsgElem(TiXmlElement*& elem);

    const NotePosList& GetPosList() const { return m_vecPos; }

private:
    std::string m_strNoteMsg;
    std::string m_strPos;
    NotePosList m_vecPos;
};
