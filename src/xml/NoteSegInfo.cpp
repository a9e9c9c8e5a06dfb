// Segment of a change PDU's text.
#include "xml/NoteSegInfo.h"

#include <cstdlib>
#include <sstream>

namespace {

bool FlagFromText(const std::string& text)
{
    return !text.empty() && atoi(text.c_str()) != 0;
}

}  // namespace

CNoteSegInfo::CNoteSegInfo() : m_bEndln(false), m_bSpecial(false) {}

void CNoteSegInfo::ReSet()
{
    m_strSegInfo.clear();
    m_bEndln = false;
    m_bSpecial = false;
    m_vecPos.clear();
}

void CNoteSegInfo::ResetPos()
{
    m_vecPos.clear();
}

void CNoteSegInfo::SetSegInfo(const std::string& text)
{
    // Built in one pass: the search after each match resumes past the old three bytes, so
    // no match can begin inside a replacement.
    m_strSegInfo.clear();
    m_strSegInfo.reserve(text.size());
    size_t from = 0;
    for (size_t p = text.find("]]>"); p != std::string::npos; p = text.find("]]>", p + 3)) {
        m_strSegInfo.append(text, from, p - from);
        m_strSegInfo += "]] >";
        from = p + 3;
    }
    m_strSegInfo.append(text, from, std::string::npos);
}

void CNoteSegInfo::SetSegInfo(std::string&& text)
{
    if (text.find("]]>") != std::string::npos) return SetSegInfo(static_cast<const std::string&>(text));
    m_strSegInfo.swap(text);
}

std::string CNoteSegInfo::TakeSegInfo()
{
    std::string text;
    text.swap(m_strSegInfo);
    return text;
}

std::string CNoteSegInfo::GetSegInfo() const
{
    return m_strSegInfo;
}

void CNoteSegInfo::SetEndln(bool endln)
{
    m_bEndln = endln;
}

void CNoteSegInfo::SetEndln(const std::string& text)
{
    m_bEndln = FlagFromText(text);
}

bool CNoteSegInfo::GetEndln() const
{
    return m_bEndln;
}

std::string CNoteSegInfo::GetEndlnStr() const
{
    return m_bEndln ? "1" : "0";
}

void CNoteSegInfo::SetSpecial(bool special)
{
    m_bSpecial = special;
}

void CNoteSegInfo::SetSpecial(const std::string& text)
{
    m_bSpecial = FlagFromText(text);
}

bool CNoteSegInfo::GetSpecial() const
{
    return m_bSpecial;
}

std::string CNoteSegInfo::GetSpecialStr() const
{
    return m_bSpecial ? "1" : "0";
}

void CNoteSegInfo::SetMsgPos(const NotePosList& pos)
{
    m_vecPos = pos;
}

NotePosList CNoteSegInfo::GetPosVec() const
{
    return m_vecPos;
}

std::string CNoteSegInfo::GetPosStr() const
{
    std::ostringstream os;
    for (int p : m_vecPos) os << p << ',';
    return os.str();
}
