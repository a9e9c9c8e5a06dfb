// A received change PDU string: typed, parsed, joined back into text, and what it parses to
// must come back unchanged through the wire form the client writes.
#include "FuzzTarget.h"

#include "xml/NoteChangeInfoPDU.h"

namespace {

// The change written as the client writes it (compact form, fresh document).
std::string Wire(const CNoteChangeInfoPDU& change)
{
    CNoteChangeInfoPDU copy = change.CopyWithoutDocument();
    copy.GenerateXMLPDU();
    return copy.PrintCompact();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string input = FuzzBytes(data, size);
    CNoteChangeInfoPDU typed;
    const int type = typed.GetPDUType(input);
    FUZZ_CHECK(type >= 0 && type <= XMLPDU_RESERVED);

    CNoteChangeInfoPDU change;
    if (!change.ParseXMLPDU(input)) return 0;
    FUZZ_CHECK(type == XMLPDU_CHANGE_INFO);
    const std::string text = change.GetNoteMsg();
    change.GetOffSet_INT(0);
    change.GetOffSet_INT(1);
    change.GetCacheId_INT();

    // Written and read again, a change keeps its fields and its text; the second writing is
    // the first one byte for byte.
    const std::string wire = Wire(change);
    CNoteChangeInfoPDU back;
    FUZZ_CHECK(back.ParseXMLPDU(wire));
    FUZZ_CHECK(back.GetNoteMsg() == text);
    FUZZ_CHECK(back.GetOffSet(0) == change.GetOffSet(0) && back.GetOffSet(1) == change.GetOffSet(1));
    FUZZ_CHECK(back.GetCacheId() == change.GetCacheId() && back.GetUniqueId() == change.GetUniqueId());
    FUZZ_CHECK(Wire(back) == wire);
    return 0;
}
