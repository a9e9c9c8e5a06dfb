// libFuzzer target: any byte string handed to the PDU parsers, as a received cache item or
// auto-save file would be. Build with clang: see fuzz/CMakeLists.txt.
#include "xml/OrvNoteXML.h"

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string input(reinterpret_cast<const char*>(data), size);
    CNoteChangeInfoPDU change;
    if (change.ParseXMLPDU(input)) change.GetNoteMsg();
    CNoteInfoPDU info;
    info.ParseXMLPDU(input);
    CNoteSaveInfoPDU save;
    if (save.ParseXMLPDU(input)) {
        for (const CNoteChangeInfoPDU& c : save.m_vecChangeInfoPdu) CNoteChangeInfoPDU(c).GetNoteMsg();
        save.GenerateXMLPDU();
        save.PrintCompact();
    }
    return 0;
}
