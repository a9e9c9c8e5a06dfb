// One piece of a change's text: the run of text, whether a line break follows it, whether it
// is a marker piece left out when the text is joined, and where "]]>" was escaped in it.
#pragma once

#include "xml/OrvNoteBaseXML.h"

#include <string>

class CNoteSegInfo {
public:
    CNoteSegInfo();

    void ReSet();
    void ResetPos();

    // Stores text with every "]]>" turned into "]] >", which is never undone.
    void SetSegInfo(const std::string& text);
    // As above, taking text over when it holds no "]]>".
    void SetSegInfo(std::string&& text);
    std::string GetSegInfo() const;
    const std::string& SegInfoText() const { return m_strSegInfo; }
    // The stored text, moved out: the segment is left without one.
    std::string TakeSegInfo();

    void SetEndln(bool endln);
    void SetEndln(const std::string& text);  // true for a non-empty text whose atoi is not 0
    bool GetEndln() const;
    std::string GetEndlnStr() const;

    void SetSpecial(bool special);
    void SetSpecial(const std::string& text);
    bool GetSpecial() const;
    std::string GetSpecialStr() const;

    void SetMsgPos(const NotePosList& pos);
    NotePosList GetPosVec() const;
    std::string GetPosStr() const;  // "4,9," for the offsets 4 and 9

private:
    std::string m_strSegInfo;
    bool m_bEndln;
    bool m_bSpecial;
    NotePosList m_vecPos;
};
