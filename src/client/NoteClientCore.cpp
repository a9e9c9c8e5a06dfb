// CNoteClient: construction, Initialize, the instance registry, resource messages and teardown.
//
// Resource messages come from other machines: their payload is parsed in place, bounded by the
// length the host gives, and nothing in it can make the client loop, allocate without bound or
// read past the payload.
#include "client/CNoteClient.h"

#include "boundscheck/boundscheck.h"
#include "tessarinnote/notehostui.h"

#include <climits>
#include <cstring>
#include <memory>
#include <new>

std::vector<tagApeCltMap*> g_aApeCltMap;

namespace {

// Resource names compared with their terminator, so at most sizeof(name) bytes are read.
bool IsNoteResourceName(const char* name)
{
    return std::strncmp(name, RESOURCE_NOTE_TAKE, sizeof RESOURCE_NOTE_TAKE) == 0 ||
           std::strncmp(name, RESOURCE_CLOSED_CAPTION, sizeof RESOURCE_CLOSED_CAPTION) == 0;
}

// Routes one data unit of a resource message by the message's kind: 0, 2, 3 carry a whole text
// for RevData, 1 a change to report unless an own change is outstanding. A unit that parsed to
// sender 0 (a payload without a valid envelope, or a forged one) is not handed on: as on the
// direct route, such a PDU never reaches RevData, where it would wipe the note.
void DispatchResourcePdu(CNoteClient& client, CDataPdu& pdu, unsigned kind)
{
    switch (kind) {
    case 0:
    case 2:
    case 3:
        client.m_bLastWasChange = 0;
        if (pdu.GetUserFrom() != 0) client.RevData(&pdu);
        break;
    case 1:
        if (client.m_bSelfChange) break;
        client.m_bLastWasChange = 1;
        client.ChangeMessage();
        break;
    default:
        break;
    }
}

// Fills a data unit from bytes[0, length); lengths an int cannot hold leave it empty.
void FillPdu(CDataPdu& pdu, const unsigned char* bytes, unsigned length)
{
    if (!bytes || length > static_cast<unsigned>(INT_MAX - 1)) return;
    pdu.SerializeFromBuf(const_cast<unsigned char*>(bytes), static_cast<int>(length));
}

// Reads the decimal record length at text[*pos, end) as formatted integer input would: leading
// blanks skipped, an optional '+', then digits. False when there are no digits or the value
// does not fit an int; *pos then is past what was read.
bool ReadRecordLength(const char* text, unsigned end, unsigned* pos, unsigned* value)
{
    unsigned p = *pos;
    while (p < end && (text[p] == ' ' || (text[p] >= '\t' && text[p] <= '\r'))) ++p;
    if (p < end && text[p] == '+') ++p;
    unsigned long long n = 0;
    const unsigned first = p;
    while (p < end && text[p] >= '0' && text[p] <= '9') {
        n = n * 10 + static_cast<unsigned>(text[p] - '0');
        ++p;
        if (n > static_cast<unsigned long long>(INT_MAX)) {
            *pos = p;
            return false;
        }
    }
    *pos = p;
    if (p == first) return false;
    *value = static_cast<unsigned>(n);
    return true;
}

}  // namespace

int ArmRscCallBack(unsigned id, ARMMsgType type, void* msg)
{
    if (!msg) return 1;
    CNoteClient* client = nullptr;
    for (const tagApeCltMap* entry : g_aApeCltMap) {
        if (entry && entry->nId == id) {
            client = entry->pClient;
            break;
        }
    }
    if (type != ARM_MSG_SESS_RSC_IND) return 0;
    ARMMsg_SessRscInd* message = static_cast<ARMMsg_SessRscInd*>(msg);
    if (!message->pszResourceName) return 0;
    if (IsNoteResourceName(message->pszResourceName) && client) client->Handle_ArmMsg_SessRscInd(message);
    return 0;
}

CNoteClient::CNoteClient()
    : m_pArmService(nullptr),
      m_nUserType(0),
      m_nUserId(0),
      m_nResourceId(0),
      m_nApeUserId(0),
      m_conferenceHandle(0),
      m_sessionHandle(0),
      m_pHostSink(nullptr),
      m_bFileLoaded(false),
      m_bNeedSendAll(false),
      m_bWaitEnroll(0),  // only ever cleared; a defined value all the same
      m_nLastCacheId(0),
      m_nCacheCount(0),
      m_nSaveCacheHandle(0),
      m_szChangeCacheName{},
      m_nChangeCacheHandle(0),
      m_nNotePadType(0),
      m_bSelfChange(0),
      m_bStopSubscribe(0),
      m_pUI(nullptr),
      m_pParent(nullptr),
      m_nNBRStatus(0),
      m_bContentNotified(0),
      m_bTextChanged(0),
      m_nScrolltoEnd(0),
      m_bModifiedSinceFileSave(0),
      m_bNoFileSaveYet(1),  // nothing has been saved to a file yet
      m_bFileNeedSave(0),
      m_bAlive(1),
      m_bNeedAutoSave(0),
      m_nTextBufSize(BufSizeFor(kNotesMaxTextLen)),
      m_pTextBuf(nullptr),
      m_bLastWasChange(1),
      m_bSavedBefore(0),
      m_bHasContent(0),
      m_nMaxTextLen(kNotesMaxTextLen)
{
    ResetNetInfo();
    m_nMaxTextLen = kNotesMaxTextLen;
    m_nTextBufSize = BufSizeFor(m_nMaxTextLen);
    // Out of memory leaves no buffer: every user of m_pTextBuf checks for null.
    m_pTextBuf = NewTextBuf(m_nTextBufSize);
    m_SaveInfo.m_vecChangeInfoPdu.clear();
    InstallTimer(0.05, 0.05);
}

void CNoteClient::Initialize(_tagNoteData& data)
{
    MacInfoTrace2("note", "CATNoteClient::Initialize");
    m_pHostSink = data.pHostSink;
    m_pParent = data.pParentView;
    if (!m_pArmService) m_pArmService = data.pArmService;
    m_conferenceHandle = data.conferenceHandle;
    m_sessionHandle = data.sessionHandle;
    if (data.pszHostText1 && data.pszHostText1[0] != '\0') m_strHostText1 = data.pszHostText1;
    if (data.pszHostText2 && data.pszHostText2[0] != '\0') m_strHostText2 = data.pszHostText2;
    m_nUserId = data.nUserId;

    if (m_pArmService) {
        const int connected = m_pArmService->ArmService_Connect(static_cast<IArmNodeControllerSink*>(this), "", 0, 0, 0);
        // Already connected: the handshake runs on at once, inside this call.
        if (connected == ARM_ALREADY_CONNECTED) ConnectConfirm(0, 77);
        m_pArmService->ArmService_RegisterRscCallBack(m_nApeUserId, &ArmRscCallBack);
    }

    std::unique_ptr<tagApeCltMap> entry(new (std::nothrow) tagApeCltMap{m_nApeUserId, this});
    if (!entry) return;
    try {
        g_aApeCltMap.push_back(entry.get());
        entry.release();
    } catch (const std::bad_alloc&) {
        // Not registered: resource messages for this client are dropped.
    }
}

int CNoteClient::Handle_ArmMsg_SessRscInd(ARMMsg_SessRscInd* msg)
{
    if (!msg) return 1;
    if (!IsPKIMeeting()) {
        CDataPdu pdu;
        FillPdu(pdu, msg->pData, msg->nLength);
        DispatchResourcePdu(*this, pdu, msg->nKind);
        return 0;
    }

    // A PKI payload is a sequence of sealed records, each its decimal length followed at once
    // by its bytes. The text (up to its first NUL) is read as from a stream whose write
    // position stays at the text's end: the checks use that position, deliberately, so a
    // payload whose text fills the length yields no record, and a payload needs room after
    // its text for the largest record. The read position walks the text; the walk stops with
    // 1 when a check fails or the text holds no further record (where the stream's reads
    // would fail), so it always ends. Records dispatched before that stay applied; a record
    // that does not open is dropped.
    const char* text = reinterpret_cast<const char*>(msg->pData);
    const unsigned length = text ? msg->nLength : 0;
    const void* nul = length ? std::memchr(text, '\0', length) : nullptr;
    const unsigned textLen = nul ? static_cast<unsigned>(static_cast<const char*>(nul) - text) : length;
    const unsigned long long writePos = textLen;

    unsigned readPos = 0;
    while (writePos < length) {
        if (writePos + 4 > length) return 1;
        unsigned recordLen = 0;
        if (!ReadRecordLength(text, textLen, &readPos, &recordLen)) return 1;
        if (recordLen + writePos > length || recordLen > textLen - readPos) return 1;
        const unsigned char* record = reinterpret_cast<const unsigned char*>(text + readPos);
        readPos += recordLen;

        unsigned char* plain = nullptr;
        unsigned plainLen = 0;
        const int opened =
            m_pArmService->ArmService_Decrypt(m_conferenceHandle, recordLen, record, &plain, &plainLen, 0);
        if (opened == 0 && plain) {
            CDataPdu pdu;
            FillPdu(pdu, plain, plainLen);
            DispatchResourcePdu(*this, pdu, msg->nKind);
        }
        if (plain) m_pArmService->ArmService_FreeBuffer(plain);
    }
    return 0;
}

void CNoteClient::ResetNetInfo()
{
    for (char* info : m_aNetInfo) delete[] info;
    m_aNetInfo.clear();
}

CNoteClient::~CNoteClient()
{
    RemoveTimer();
    CancelSink(m_pUI);
    if (m_pUI) NotifyCocoaUI(m_pUI, NOTEUI_ABORT_SAVE_DIALOG, nullptr, nullptr, nullptr);

    // Every entry of this client goes (one per Initialize), so none is left dangling.
    for (auto it = g_aApeCltMap.begin(); it != g_aApeCltMap.end();) {
        if (*it && (*it)->pClient == this) {
            delete *it;
            it = g_aApeCltMap.erase(it);
        } else {
            ++it;
        }
    }

    if (m_pArmService) {
        if (m_nApeUserId != 0) {
            m_pArmService->ArmService_DetachUser(m_nApeUserId);
            m_nApeUserId = 0;
        }
        m_pArmService->ArmService_LeaveConference(0, m_conferenceHandle, static_cast<IArmConferenceSink*>(this));
        m_pArmService->ArmService_Disconnect(static_cast<IArmNodeControllerSink*>(this), 1);
        m_pArmService->ArmService_Release();
        m_pArmService = nullptr;
    }

    m_bAlive = 0;
    FreeTextBuf(m_pTextBuf);
    m_pTextBuf = nullptr;
    ResetNetInfo();

    if (m_pUI) {
        DestoryUI(m_pUI);
        m_pUI = nullptr;
    }
}

// ---------------------------------------------------------------- sink operations that do nothing

int CNoteClient::DisconnectIndication(short /*reason*/)
{
    return 0;
}

int CNoteClient::DisconnectConfirm(short /*result*/)
{
    return 0;
}

int CNoteClient::TransportStatusIndication(short /*status*/, unsigned /*reserved*/)
{
    return 0;
}

int CNoteClient::ConferenceLeaveIndication(unsigned short /*conference*/, char* /*name*/, short /*reason*/)
{
    return 0;
}

int CNoteClient::ConferenceRosterConfirm(unsigned short, short, short, ARMNodeRecord*)
{
    return 0;
}

int CNoteClient::ConferenceRosterChanged(unsigned short, short, short, short, ARMNodeRecord*)
{
    return 0;
}

int CNoteClient::ApeRosterConfirm(unsigned short, short, short, ARMApeRoster*)
{
    return 0;
}

int CNoteClient::ApeRosterChanged(unsigned short, short, short, short, ARMApeRoster*)
{
    return 0;
}

int CNoteClient::ConferenceRosterConfirm(unsigned, unsigned short, short, short, ARMNodeRecord*)
{
    return 0;
}

int CNoteClient::ConferenceRosterChanged(unsigned, unsigned short, short, short, short, ARMNodeRecord*)
{
    return 0;
}

int CNoteClient::ApeRosterConfirm(unsigned, unsigned short, short, short, ARMApeRoster*)
{
    return 0;
}

int CNoteClient::ApeRosterChanged(unsigned, unsigned short, short, short, short, ARMApeRoster*)
{
    return 0;
}

int CNoteClient::ApeTokenGrabConfirm(unsigned, short, unsigned short)
{
    return 0;
}

int CNoteClient::ApeTokenInhibitConfirm(unsigned, short, unsigned short)
{
    return 0;
}

int CNoteClient::ApeTokenGiveConfirm(unsigned, short, unsigned short)
{
    return 0;
}

int CNoteClient::ApeTokenGiveIndication(unsigned, unsigned, unsigned short)
{
    return 0;
}

int CNoteClient::ApeTokenPleaseIndication(unsigned, unsigned, unsigned short)
{
    return 0;
}

int CNoteClient::ApeTokenReleaseConfirm(unsigned, short, unsigned short)
{
    return 0;
}

int CNoteClient::ApeTokenTestConfirm(unsigned, short, unsigned short)
{
    return 0;
}

int CNoteClient::ApeDetachIndication(unsigned /*attachId*/, short /*reason*/)
{
    return 0;
}
