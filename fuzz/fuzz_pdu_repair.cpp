// The "]]>" repair of a whole received PDU string, against its algorithm written out step by
// step (prefix copies and backward searches, quadratic, so only for inputs up to 16 KiB).
#include "FuzzTarget.h"

#include "xml/OrvNoteBaseXML.h"

#include <algorithm>

namespace {

long Last(const std::string& w, const char* needle)
{
    const size_t p = w.rfind(needle);
    return p == std::string::npos ? -1 : static_cast<long>(p);
}

std::string Prefix(const std::string& s, long n)
{
    return n <= 0 ? std::string() : s.substr(0, static_cast<size_t>(n));
}

void LiteralRepair(std::string& pdu)
{
    std::string w = pdu;
    for (;;) {
        const long a = Last(w, "abc"), b = Last(w, "]]>"), c = Last(w, "<![CDATA[");
        if (c == -1 || a == -1) return;
        bool progressed = false;
        if (a < c) {
            w = Prefix(pdu, a - 1);
            progressed = true;
        }
        if (b == -1 || b < c) {
            pdu.replace(static_cast<size_t>(a), 3, "]]>");
            w = Prefix(pdu, c - 1);
            progressed = true;
        }
        if (!progressed) return;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > 16 * 1024) return 0;
    std::string repaired = FuzzBytes(data, size);
    COrvNoteBaseXML().strPduToSafe(repaired);
    std::string literal = FuzzBytes(data, size);
    LiteralRepair(literal);
    FUZZ_CHECK(repaired == literal);
    return 0;
}
