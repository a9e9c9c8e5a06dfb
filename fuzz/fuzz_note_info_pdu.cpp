// A received note info PDU string (repaired, then parsed): what it parses to comes back
// unchanged through the form the class writes, unless the repair of received strings alters
// that form. (It does so, as specified, for a text with "]]>" and a later "abc": the repair
// cannot tell the escape from the word.)
#include "FuzzTarget.h"

#include "xml/NoteInfoPDU.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    CNoteInfoPDU info;
    if (!info.ParseXMLPDU(FuzzBytes(data, size))) return 0;
    const std::string text = info.GetNoteMsg();

    CNoteInfoPDU written;
    written.SetNoteMsg(text);
    written.GenerateXMLPDU();
    const std::string wire = written.PrintCompact();
    std::string repaired = wire;
    written.strPduToSafe(repaired);
    if (repaired != wire) return 0;
    CNoteInfoPDU back;
    FUZZ_CHECK(back.ParseXMLPDU(wire));
    FUZZ_CHECK(back.GetNoteMsg() == text);
    return 0;
}
