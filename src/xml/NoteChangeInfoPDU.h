// One edit of the shared note as it travels between participants: where it applies (offset
// and removed length as text), the cache item that holds it, the sender, and its text cut
// into segments. Net-info markers steer the segmentation and are never transmitted.
#pragma once

#include "xml/NoteSegInfo.h"
#include "xml/OrvNoteBaseXML.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class CNoteChangeInfoPDU : public COrvNoteBaseXML {
public:
    CNoteChangeInfoPDU();
    CNoteChangeInfoPDU(const CNoteChangeInfoPDU&);
    CNoteChangeInfoPDU& operator=(const CNoteChangeInfoPDU&);
    // Takes the fields over; lists of changes grow by moving their entries. The source keeps
    // its document and is left valid but unspecified.
    CNoteChangeInfoPDU(CNoteChangeInfoPDU&& other) noexcept;
    ~CNoteChangeInfoPDU() override;

    // A copy of the change without its XML document (tree, name, parse state). Lists that keep
    // many changes hold such copies: a change's tree is rebuilt by GenerateXMLPDU whenever it
    // is printed, so copying it would only cost time and memory.
    CNoteChangeInfoPDU CopyWithoutDocument() const;

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
    // GetNoteMsg(), with the text moved out where it is one plain segment: the change is left
    // without its text.
    std::string TakeNoteMsg();
    // GetNoteMsg().empty(), without joining a long text.
    bool IsNoteMsgEmpty();
    // A hash of GetNoteMsg(), kept until the text changes.
    size_t GetNoteMsgHash();

    // Lists of many changes index them by both GetOffSet_INT values and GetNoteMsgHash. An
    // index marks each entry it has read; whenever the offsets or the text of a marked change
    // may change (a setter, a parse, an assignment) or a marked change is destroyed, the
    // process-wide IndexedKeyChanges() count grows, and every index reads its list again.
    // Copies are not marked.
    void MarkIndexed() { m_mark.m_bMarked = true; }
    static uint64_t IndexedKeyChanges();

    bool GenerateXMLPDU() override;
    bool ParseXMLPDU(std::string pdu) override;
    // As ParseXMLPDU, for a change whose fields alone are wanted: the texts are taken out of
    // the parsed document, which is then dropped.
    bool ParseFieldsOnly(std::string pdu);

    const std::vector<CNoteSegInfo>& GetSegments() const { return m_vecSegInfo; }

    // Text a received change may hold between tags, in comments and in unknown nodes.
    // Notepads write a change's text as CDATA: only an indented form's white space lies
    // between its tags, and they write neither comments nor unknown nodes.
    static constexpr size_t kMaxTextBetweenTags = 256u * 1024u;

protected:
    size_t MaxTextBytes() const override { return kMaxTextBetweenTags; }

private:
    // The mark of an indexed change. Its copy is unmarked; assigning to or destroying a
    // marked change counts as a key change.
    struct CIndexMark {
        CIndexMark() = default;
        CIndexMark(const CIndexMark&) {}
        CIndexMark& operator=(const CIndexMark&);
        ~CIndexMark();
        bool m_bMarked = false;
    };

    // The offsets or the text changed: the cached values follow and the indexes hear of it.
    void KeyChanged();
    bool ParseFields(std::string& pdu, bool takeTexts);

    std::string m_strOffset;
    std::string m_strOffsetLast;
    std::string m_strCacheId;
    std::string m_strUniqueId;
    std::vector<std::string> m_vecNetInfo;
    std::vector<CNoteSegInfo> m_vecSegInfo;
    // atoi of m_strOffset and m_strOffsetLast, kept with them: lists compare them often.
    int m_nOffset = 0;
    int m_nOffsetLast = 0;
    size_t m_nNoteMsgHash = 0;
    bool m_bNoteMsgHashValid = false;
    CIndexMark m_mark;
};
