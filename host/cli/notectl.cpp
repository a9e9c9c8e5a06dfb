// notectl: the headless command-line participant. For now it shows the note formats: it
// builds a change PDU and an auto-save document, prints them and reads them back.
#include "xml/OrvNoteXML.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace {

int Demo()
{
    CNoteChangeInfoPDU change;
    change.SetUniqueId(7);
    change.SetOffSet(12, 0);
    change.SetOffSet(15, 1);
    change.SetCacheId(3);
    change.SetNoteMsg("Hi ]]> there");
    change.GenerateXMLPDU();
    const std::string changeText = change.PrintCompact();
    std::printf("change PDU (%zu bytes):\n%s\n\n", changeText.size(), changeText.c_str());

    CNoteChangeInfoPDU parsed;
    if (!parsed.ParseXMLPDU(changeText)) {
        std::fprintf(stderr, "notectl: the change PDU did not parse back\n");
        return 1;
    }
    std::printf("parsed back: offset %d, offsetlast %d, cache id %d, text \"%s\"\n\n",
                parsed.GetOffSet_INT(0), parsed.GetOffSet_INT(1), parsed.GetCacheId_INT(),
                parsed.GetNoteMsg().c_str());

    CNoteSaveInfoPDU record;
    record.SetNoteShowMsg("Hello");
    record.SetPublishMsg("Hi");
    record.SetChannalID(1234);
    record.SetUserType(1);
    record.AddNetInfo("nb1");
    record.m_vecChangeInfoPdu.push_back(change);
    record.GenerateXMLPDU();
    TiXmlPrinter printer;
    record.Accept(&printer);
    std::printf("auto-save document:\n%s\n", printer.CStr());

    CNoteSaveInfoPDU loaded;
    loaded.Parse(printer.CStr());
    if (!loaded.ParseXMLPDU()) {
        std::fprintf(stderr, "notectl: the auto-save document did not parse back\n");
        return 1;
    }
    std::printf("read back: show \"%s\", publish \"%s\", channel %d, user type %d, %zu change(s)\n",
                loaded.GetNoteShowMsg().c_str(), loaded.GetPublishMsg().c_str(),
                loaded.GetChannalID_INT(), loaded.GetUserType_INT(),
                loaded.m_vecChangeInfoPdu.size());
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::strcmp(argv[1], "demo") == 0) return Demo();
    std::fprintf(stderr, "usage: notectl demo\n");
    return 2;
}
