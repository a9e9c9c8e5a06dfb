// A resource message of a PKI meeting: the walk over its sealed records. Input: one byte for
// the message's kind (mod 4), then the payload. The walk ends with 0 or 1 and gives every
// opened buffer back.
#include "FuzzClient.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0) return 0;
    CFuzzClient& host = CFuzzClient::Get(NOTETAKER_SINGLE, NOTE_USER_READER, ARM_CONFERENCE_FLAG_PKI);
    ARMMsg_SessRscInd message;
    message.pszResourceName = "NoteTake";
    message.nLength = static_cast<std::uint32_t>(size - 1);
    message.pData = data + 1;  // exactly the payload: reading past it is caught
    message.nKind = data[0] % 4;
    const int result = host.Client().Handle_ArmMsg_SessRscInd(&message);
    FUZZ_CHECK(result == 0 || result == 1);
    FUZZ_CHECK(host.Service().m_setOpened.empty());
    return 0;
}
