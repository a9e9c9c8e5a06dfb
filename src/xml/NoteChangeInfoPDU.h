// One edit of the shared note as it travels between participants: where it applies (offset
// and removed length as text), the cache item that holds it, the sender, and its text cut
// into segments. Net-info markers steer the segmentation and are never transmitted.
#pragma once

#include "xml/NoteSegInfo.h"
#include "xml/OrvNoteBaseXML.h"

#include <string>
#include <vector>

class CNoteChangeInfoPDU : public COrvNoteBaseXML {
public:
    CNoteChangeInfoPDU();
    ~CNoteChangeInfoPDU() override;

    // which 0 selects "offset", any other value "offsetlast".
    void SetOffSet(int value, int which);
    void SetOffSet(const std::string& value, int which);
    std::string GetOffSet(int which) const;
    int GetOffSet_INT(int which) const;

    void SetCacheId(int id);
    void SetCacheId(const std::string& id);
    std::string GetCacheId() const;
    int GetCacheId_INT() const;

    void SetUniqueId(int id);
    void SetUniqueId(const std::string& id);
    std::string GetUniqueId() const;
    int GetUniqueId_INT() const;

    void AddNetInfo(const std::string& marker);
    void GetNetInfo(int index, std::string& out) const;  // "" for an index out of range
    int GetNetInfoCount_INT() const;
    void ResetNetInfo();

    void SetNoteMsg(const std::string& msg);
    std::string GetNoteMsg();

    bool GenerateXMLPDU() override;
    bool ParseXMLPDU(std::string pdu) override;

    const std::vector<CNoteSegInfo>& GetSegments() const { return m_vecSegInfo; }

private:
    std::string m_strOffset;
    std::string m_strOffsetLast;
    std::string m_strCacheId;
    std::string m_strUniqueId;
    std::vector<std::string> m_vecNetInfo;
    std::vector<CNoteSegInfo> m_vecSegInfo;
};
