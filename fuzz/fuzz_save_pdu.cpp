// A save PDU string (repaired, then parsed): the record it parses to is written as the
// auto-save file is (indented) and read back as the client reads its file (no repair), with
// the same fields and changes.
#include "FuzzTarget.h"

#include "xml/NoteSaveInfoPDU.h"

#include <vector>

namespace {

std::string Written(CNoteSaveInfoPDU& record)
{
    record.GenerateXMLPDU();
    TiXmlPrinter printer;
    printer.SetIndent("    ");
    record.Accept(&printer);
    return printer.Str();
}

std::vector<std::string> Changes(CNoteSaveInfoPDU& record)
{
    std::vector<std::string> texts;
    for (CNoteChangeInfoPDU& change : record.m_vecChangeInfoPdu) texts.push_back(change.GetNoteMsg());
    return texts;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    CNoteSaveInfoPDU record;
    if (!record.ParseXMLPDU(FuzzBytes(data, size))) return 0;
    const std::string file = Written(record);

    CNoteSaveInfoPDU back;
    back.Parse(file.c_str());
    FUZZ_CHECK(back.ParseXMLPDU());
    FUZZ_CHECK(Changes(back).size() == Changes(record).size());
    // Reading turns every "\n\n" into "\r\n", deliberately; texts without one come back as
    // they were.
    if (file.find("\n\n") != std::string::npos) return 0;
    FUZZ_CHECK(back.GetNoteShowMsg() == record.GetNoteShowMsg());
    FUZZ_CHECK(back.GetPublishMsg() == record.GetPublishMsg());
    FUZZ_CHECK(back.GetOldMsg() == record.GetOldMsg());
    FUZZ_CHECK(back.GetChannalID_INT() == record.GetChannalID_INT());
    FUZZ_CHECK(back.GetUserType_INT() == record.GetUserType_INT());
    FUZZ_CHECK(Changes(back) == Changes(record));
    // The channel id and user type are plain text, whose white space the library condenses
    // when it reads (" @0617" comes back as "@0617"); the client writes numbers there.
    if (back.GetChannalID() != record.GetChannalID() || back.GetUserType() != record.GetUserType()) return 0;
    FUZZ_CHECK(Written(back) == file);
    return 0;
}
