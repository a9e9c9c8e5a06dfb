// What the client's tests build and read on the wire: change PDUs, and packed cache items (u32
// dwLenOut: the text's length unpacked, 0 for a stored text; u32 dwRealLen: the body's length;
// then the body; both numbers little-endian).
#pragma once

#include "transport/NoteCmprs.h"
#include "xml/OrvNoteXML.h"

#include <cstdint>
#include <string>

inline std::string Le32(std::uint32_t v)
{
    std::string s(4, '\0');
    for (int i = 0; i < 4; ++i) s[i] = static_cast<char>(v >> (8 * i));
    return s;
}

inline std::uint32_t Le32At(const std::string& s, size_t at)
{
    std::uint32_t v = 0;
    for (int i = 3; i >= 0; --i) v = (v << 8) | static_cast<unsigned char>(s[at + i]);
    return v;
}

inline std::string Item(std::uint32_t lenOut, std::uint32_t realLen, const std::string& body)
{
    return Le32(lenOut) + Le32(realLen) + body;
}

// An item holding text as it is.
inline std::string PackedPlain(const std::string& text)
{
    return Item(0, static_cast<std::uint32_t>(text.size()), text);
}

inline std::string Deflated(const std::string& text)
{
    CCompressEngine engine;
    std::string out(text.size() + 64, '\0');
    unsigned long outLen = out.size();
    engine.Compress(reinterpret_cast<unsigned char*>(const_cast<char*>(text.data())),
                    reinterpret_cast<unsigned char*>(&out[0]), text.size(), &outLen);
    out.resize(outLen);
    return out;
}

// A change inserting text at offset after removing removed bytes (numbers as written in the
// PDU, so hostile spellings can be given).
inline CNoteChangeInfoPDU Change(const std::string& text, const std::string& offset = "0",
                                 const std::string& removed = "0", int cacheId = 0)
{
    CNoteChangeInfoPDU pdu;
    pdu.SetNoteMsg(text);
    pdu.SetOffSet(offset, 0);
    pdu.SetOffSet(removed, 1);
    pdu.SetCacheId(cacheId);
    return pdu;
}

inline std::string ChangeXml(const std::string& text)
{
    CNoteChangeInfoPDU pdu = Change(text);
    pdu.GenerateXMLPDU();
    return pdu.PrintCompact();
}

// The change PDU a packed item carries; an empty PDU when it carries none.
inline CNoteChangeInfoPDU UnpackChange(const std::string& item)
{
    CNoteChangeInfoPDU pdu;
    if (item.size() < 8 || Le32At(item, 4) > item.size() - 8) return pdu;
    const std::uint32_t lenOut = Le32At(item, 0);
    std::string body = item.substr(8, Le32At(item, 4));
    std::string text = body;
    if (lenOut != 0) {
        text.assign(lenOut, '\0');
        unsigned long textLen = lenOut;
        CCompressEngine engine;
        engine.Decompress(reinterpret_cast<unsigned char*>(&body[0]),
                          reinterpret_cast<unsigned char*>(&text[0]), body.size(), &textLen);
        text.resize(textLen);
    }
    pdu.ParseXMLPDU(text);
    return pdu;
}
