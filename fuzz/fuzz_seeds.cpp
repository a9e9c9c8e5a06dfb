// Writes seed inputs for every fuzz target into OUTDIR/<target>/: the documented examples of
// each format, and what the product itself writes in a short meeting on the in-process
// conference (packed cache items, change PDUs, auto-save files). Run by hand; the seeds are
// then merged into the committed corpora. Usage: fuzz_seeds OUTDIR
#include "ScriptedArmService.h"

#include "conference/DataUnits.h"
#include "xml/NoteInfoPDU.h"
#include "xml/NoteSaveInfoPDU.h"

#include <sys/stat.h>
#include <zlib.h>

#include <fstream>
#include <iostream>

namespace {

std::string g_strOut;
int g_nSeeds = 0;

void Seed(const std::string& target, const std::string& bytes)
{
    const std::string dir = g_strOut + "/" + target;
    mkdir(dir.c_str(), 0755);
    std::ofstream(dir + "/seed" + std::to_string(++g_nSeeds), std::ios::binary) << bytes;
}

std::string Indented(const TiXmlDocument& doc)
{
    TiXmlPrinter printer;
    printer.SetIndent("    ");
    doc.Accept(&printer);
    return printer.Str();
}

std::string Change(const std::string& text, int offset, int removed, int cacheId, int uid,
                   const std::string& marker = "")
{
    CNoteChangeInfoPDU pdu;
    if (!marker.empty()) pdu.AddNetInfo(marker);
    pdu.SetNoteMsg(text);
    pdu.SetOffSet(offset, 0);
    pdu.SetOffSet(removed, 1);
    pdu.SetCacheId(cacheId);
    pdu.SetUniqueId(uid);
    pdu.GenerateXMLPDU();
    return pdu.PrintCompact();
}

std::string Le32(unsigned v)
{
    return std::string{char(v), char(v >> 8), char(v >> 16), char(v >> 24)};
}

// A cache-item input: the scenario byte, then each item behind its control byte and length.
std::string Items(unsigned char scenario, const std::vector<std::pair<unsigned char, std::string>>& items)
{
    std::string input(1, char(scenario));
    for (const auto& item : items)
        input += std::string{char(item.first), char(item.second.size()), char(item.second.size() >> 8)} + item.second;
    return input;
}

std::string Packed(const std::string& text)
{
    std::string body(compressBound(text.size()), '\0');
    uLongf len = body.size();
    compress2(reinterpret_cast<Bytef*>(&body[0]), &len, reinterpret_cast<const Bytef*>(text.data()), text.size(), 3);
    body.resize(len);
    return Le32(static_cast<unsigned>(text.size())) + Le32(static_cast<unsigned>(len)) + body;
}

void FormatExamples()
{
    const std::string hi = Change("Hi ]]> there", 12, 15, 3, 7);
    const std::string tagged = Change("ab#tag#cd", 0, 0, 0, 7, "#tag#");
    for (const std::string& pdu : {hi, tagged, Change("hello world\r\n", 40, 0, 9, 11), Change("", 0, 5, 2, 11),
                                   std::string("<notecom ver=\"1.0\" mtype=\"3\" useruniqueid=\"7\" offset=\"12\" "
                                               "offsetlast=\"15\" cacheid=\"3\"><seginfo endnewline=\"1\" "
                                               "posnotemsg=\"0,4,\" special=\"0\"><![CDATA[abcxabc]]></seginfo>"
                                               "</notecom>")}) {
        Seed("change_pdu", pdu);
        Seed("pdu_repair", pdu);
    }
    for (const std::string& text : {std::string("hello"), std::string("a]]>b\r\nc"), std::string("x]]>]]>abc")}) {
        CNoteInfoPDU info;
        info.SetNoteMsg(text);
        info.GenerateXMLPDU();
        Seed("note_info_pdu", info.PrintCompact());
        Seed("pdu_repair", info.PrintCompact());
    }
    CNoteSaveInfoPDU save;
    save.SetNoteShowMsg("Hello");
    save.SetPublishMsg("Hi");
    save.SetChannalID(1234);
    save.SetUserType(1);
    save.AddNetInfo("nb1");
    CNoteChangeInfoPDU change;
    change.ParseXMLPDU(hi);
    save.m_vecChangeInfoPdu.push_back(change);
    save.GenerateXMLPDU();
    for (const std::string& doc : {Indented(save), save.PrintCompact()}) {
        Seed("save_pdu", doc);
        Seed("save_file", doc);
        Seed("pdu_repair", doc);
    }

    Seed("data_unit", BuildDataUnitEnvelope(5, 6, 0, ""));
    Seed("data_unit", BuildDataUnitEnvelope(5, 6, 0, "ab") + BuildDataUnitEnvelope(7, 8, 1, "cde"));
    Seed("data_unit", BuildDataUnitEnvelope(5, 6, -1, "text") + std::string(13, 'x'));

    const std::string stored(100, 'q');
    Seed("cache_item", Items(1, {{0x11, Le32(0) + Le32(100) + stored}, {0x21, std::string(8, '\0')}}));
    Seed("cache_item", Items(3, {{0x01, Packed(Change("line one\r\n", 0, 0, 0, 33))},
                                 {0x15, Packed(Change("line two\r\n", 10, 0, 0, 33))},
                                 {0x21, Packed(Change("line three\r\n", 20, 0, 0, 33))}}));
    Seed("cache_item", Items(0, {{0x11, Packed(Change("whole note", 0, 4, 0, 33))}, {0x00, ""}, {0x09, ""}}));

    for (const char* text : {"x\r\n\r\ny", "a\rb\nc\r\n", "/Users/a/Notes.txt", "/a.b/c", "file.txt", "/tmp/"}) {
        Seed("lineends", std::string{char(1 + 3 * 1), '\r', '\n', '\n'} + text);
        Seed("lineends", std::string{char(0 + 3 * 2), 'a', 'a', 'b'} + text);
    }
}

// A short meeting of each kind on the in-process conference: what goes into the cache, and
// the auto-save files written when the meeting is lost.
void Meetings()
{
    CClientTraceCapture quiet;
    char dir[] = "/tmp/note_seeds_XXXXXX";
    if (!mkdtemp(dir)) return;
    for (NOTETAKERTYPE type : {NOTETAKER_CLOSED_CAPTIONS, NOTETAKER_SINGLE}) {
        CClientHarness harness;
        const std::string path = std::string(dir) + "/auto" + std::to_string(type) + ".xml";
        CNoteClient& writer = harness.Join(11, type, NOTE_USER_WRITER, path);
        CNoteClient& reader = harness.Join(12, type, NOTE_USER_READER);
        CRecordedService recorded(reader);
        CRecordedService recordedWriter(writer);
        if (type == NOTETAKER_CLOSED_CAPTIONS) {
            for (const char* line : {"Good morning ]]> everyone", "", "abc and ]]> again", "end"})
                TypeLine(harness, writer, line);
        } else {
            harness.Type(writer, "Notes\nwith ]]> and abc\n\nthe end");
            harness.Publish(writer);
        }
        writer.MeetingLost(1);
        writer.MeetingLost(2);
        harness.Settle();
        std::ifstream in(path, std::ios::binary);
        const std::string file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        Seed("save_file", file);
        Seed("save_pdu", file);
        std::vector<std::pair<unsigned char, std::string>> items;
        for (const auto& put : recordedWriter.Puts()) {
            items.push_back({0x11, put.strBytes});
            uLongf len = 1 << 16;
            std::string xml(len, '\0');
            const std::string body = put.strBytes.substr(8);
            if (uncompress(reinterpret_cast<Bytef*>(&xml[0]), &len, reinterpret_cast<const Bytef*>(body.data()),
                           body.size()) == Z_OK)
                Seed("change_pdu", xml.substr(0, len));
        }
        Seed("cache_item", Items(type == NOTETAKER_CLOSED_CAPTIONS ? 1 : 0, items));
        std::string sealed;
        for (const auto& put : recordedWriter.Puts()) {
            const std::string record = CScriptedArmService::Seal(BuildDataUnitEnvelope(11, 0, 0, put.strBytes));
            sealed += std::to_string(record.size()) + record;
        }
        Seed("pki_walk", std::string(1, '\0') + sealed + std::string(sealed.size() + 1, '\0'));
    }
    remove((std::string(dir) + "/auto3.xml").c_str());
    remove((std::string(dir) + "/auto2.xml").c_str());
    rmdir(dir);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: fuzz_seeds OUTDIR\n";
        return 2;
    }
    g_strOut = argv[1];
    mkdir(g_strOut.c_str(), 0755);
    FormatExamples();
    Meetings();
    std::cout << g_nSeeds << " seeds written to " << g_strOut << "\n";
    return 0;
}
