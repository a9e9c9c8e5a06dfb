// CNoteClient: one per plug-in instance. It joins the conference through the host's service,
// owns the change cache and the whole document (m_SaveInfo, also the auto-save file), sends
// the writer's edits, applies everybody's, and talks to its panel through numbered UI
// messages. It is the sink of every conference callback and ticks every 50 ms.
//
// Threads: everything (callbacks, ticks, panel messages) runs on the host's main loop; nothing
// is locked. The implementation is split by concern:
//   NoteClientCore.cpp      construction, Initialize, registry, resource messages, teardown
//   NoteClientConference.cpp  connect, join, attach, enrol, cache handles, subscription
//   NoteClientReceive.cpp   data units, cache deliveries
//   NoteClientTransfer.cpp  packing PDUs into memory handles, resending the document
//   NoteClientMeeting.cpp   meeting loss and service notices
//   NoteClientFile.cpp      auto-save file load and write, need-save state
//   NoteClientSend.cpp      local edit detection and sending
//   NoteClientApply.cpp     applying remote changes
//   NoteClientSave.cpp      save, save-as, export, publish
//   NoteClientUI.cpp        UI messages, tick, roles, notepad type
#pragma once

#include "client/SaveListIndex.h"
#include "tessarinnote/armservice.h"
#include "tessarinnote/armsinks.h"
#include "tessarinnote/notedata.h"
#include "tessarinnote/uiinterface.h"
#include "transport/DataPdu.h"
#include "transport/NoteCmprs.h"
#include "transport/NtTimer.h"
#include "xml/OrvNoteXML.h"

#include <string>
#include <vector>

class CNoteClient;

// One entry of the instance registry: the attach id at Initialize and its client.
struct tagApeCltMap {
    unsigned nId;
    CNoteClient* pClient;
};

// Every initialised client, in registration order. The one global of the plug-in.
extern std::vector<tagApeCltMap*> g_aApeCltMap;

// Registered with the service: routes a session-resource message to the client registered
// under id. 1 for a null msg, else 0.
int ArmRscCallBack(unsigned id, ARMMsgType type, void* msg);

class CNoteClient : public CNtTimer,
                    public IArmConferenceSink,
                    public IArmNodeControllerSink,
                    public IArmApeSink,
                    public IArmSharedDataSink,
                    public IArmAllocHandleSink,
                    public INoteCommSinkForNoteUI {
public:
    // Text limits in characters, and the work buffer that follows them (6 bytes a character).
    static constexpr unsigned kNotesMaxTextLen = 81920;
    static constexpr unsigned kCaptionsMaxTextLen = 409600;
    static constexpr unsigned BufSizeFor(unsigned maxTextLen) { return maxTextLen * 6 | 1; }

    CNoteClient();
    ~CNoteClient() override;

    // --- core (NoteClientCore.cpp)
    void Initialize(_tagNoteData& data);
    void ResetNetInfo();
    int Handle_ArmMsg_SessRscInd(ARMMsg_SessRscInd* msg);
    void SetPanel(void* panel) { m_pUI = panel; }
    void* GetPanel() const { return m_pUI; }
    void* GetParentView() const { return m_pParent; }

    // --- conference handshake (NoteClientConference.cpp)
    int ConnectConfirm(short result, unsigned reserved) override;
    int ConferenceJoinConfirm(unsigned short conference, char* name, short result,
                              unsigned reserved) override;
    int ApeAttachConfirm(unsigned attachId, short result, unsigned reserved) override;
    int ApeEnrollConfirm(unsigned attachId, short result, short count,
                         ARMSessionResource* resources) override;
    int AllocNameHandleConfirm(unsigned attachId, unsigned count, NameHandles* names,
                               unsigned reserved) override;
    int ApeCacheActionConfirmEx(unsigned attachId, unsigned cacheHandle, tagCacheAction action,
                                unsigned itemId, unsigned reserved, short result) override;
    bool Enroll();
    void AllocAllCacheHandles();
    void SubscribeChangeNoteCache();
    void RequestAllNoteData();
    void SetAllCaches();
    void CheckNoteCacheStatus();
    bool IsPKIMeeting();

    // --- receive path (NoteClientReceive.cpp)
    int ApeDataIndication(unsigned attachId, unsigned fromId, unsigned channel, short priority,
                          unsigned char* data, unsigned length) override;
    int RevData(CDataPdu* pdu);
    int SharedDataReceivedEx(unsigned first, unsigned cacheId, unsigned cacheHandle,
                             unsigned memHandle, short result, tagCacheAction action,
                             unsigned putter, unsigned reserved, short reserved2) override;
    int HandleChangeInfoCache(unsigned cacheId, unsigned entityId, const char* text,
                              tagCacheAction action, short result);

    // --- full-document transfer (NoteClientTransfer.cpp)
    unsigned CompressPdu(const char* text);
    int DecompressPdu(unsigned handle);
    unsigned GetATMemHandle(unsigned* size, void* data);
    int ParseATMemHandle(unsigned handle, char* out, unsigned* size);
    void SendAllBlockPdu(int all);
    // Zeroes the work buffer: only the bytes written since it was last zeroed, which gives the
    // same all-zero buffer without a pass over megabytes per received item.
    void ClearTextBuf();
    // The work buffer's memory: zero-filled by calloc, so pages nobody writes are never touched
    // (the buffer runs to megabytes). Null when memory runs out; freed with FreeTextBuf.
    static char* NewTextBuf(size_t size);
    static void FreeTextBuf(char* buffer);

    // --- meeting loss (NoteClientMeeting.cpp)
    int MeetingLost(int kind);

    // --- document file (NoteClientFile.cpp)
    bool LoadXMLFile(CNoteSaveInfoPDU& record, const char* path);
    void AutoSaveXMLFile();
    void SetFileNeedSave(bool needSave);
    unsigned GetNoteTextLength();

    // --- edit sending (NoteClientSend.cpp)
    void SetNoteTextData(const std::string& text);
    unsigned char ChangeMessage();
    int CompareMsg(std::string& newText, int& removedLen);
    // CompareMsg without its text: the offset and removedLen as CompareMsg finds them for a
    // new text of newLen bytes, and the part [start, start + keep) of it that CompareMsg keeps.
    int MeasureEdit(size_t newLen, int& removedLen, size_t& start, size_t& keep);
    void SendChangeInfoPDU(int bPressEnter);

    // --- applying remote changes (NoteClientApply.cpp)
    int CheckChangePduEqual(CNoteChangeInfoPDU& a, CNoteChangeInfoPDU& b);
    void AddChangePduToSavePdu(CNoteChangeInfoPDU pdu);
    int SetSavePduCacheID(CNoteChangeInfoPDU& pdu, unsigned cacheId);
    // A new change's text is taken out of pdu, which the caller drops afterwards.
    int HandleChangeMsg(CNoteChangeInfoPDU& pdu, int apply);

    // --- save, export, publish (NoteClientSave.cpp)
    int GetPasteStatus();
    int GetPublishStatus();
    void ToPublish();
    void OnSave();
    int OnSaveAs();
    void SetLastFileSaveContent();
    int SetAutoSaveFilePath(const char* path);
    void WriteNoteFileToFolder(const char* folder);

    // --- UI messages, tick, roles (NoteClientUI.cpp)
    int HandleUIMessage(int nMsg, void* pIn, void* pOut) override;
    void OnTick() override;
    int SetUserType(int userType);
    int SetNotepadType(NOTETAKERTYPE type);
    void SetCtrl();
    int SetNBRStatus(unsigned long status, unsigned long unused1 = 0, unsigned long unused2 = 0);
    signed char GetFileSaveState() const { return static_cast<signed char>(m_bFileNeedSave); }

    // --- sink operations that do nothing (NoteClientCore.cpp)
    int DisconnectIndication(short reason) override;
    int DisconnectConfirm(short result) override;
    int TransportStatusIndication(short status, unsigned reserved) override;
    int ConferenceLeaveIndication(unsigned short conference, char* name, short reason) override;
    int ConferenceRosterConfirm(unsigned short, short, short, ARMNodeRecord*) override;
    int ConferenceRosterChanged(unsigned short, short, short, short, ARMNodeRecord*) override;
    int ApeRosterConfirm(unsigned short, short, short, ARMApeRoster*) override;
    int ApeRosterChanged(unsigned short, short, short, short, ARMApeRoster*) override;
    int ConferenceRosterConfirm(unsigned, unsigned short, short, short, ARMNodeRecord*) override;
    int ConferenceRosterChanged(unsigned, unsigned short, short, short, short,
                                ARMNodeRecord*) override;
    int ApeRosterConfirm(unsigned, unsigned short, short, short, ARMApeRoster*) override;
    int ApeRosterChanged(unsigned, unsigned short, short, short, short, ARMApeRoster*) override;
    int ApeTokenGrabConfirm(unsigned, short, unsigned short) override;
    int ApeTokenInhibitConfirm(unsigned, short, unsigned short) override;
    int ApeTokenGiveConfirm(unsigned, short, unsigned short) override;
    int ApeTokenGiveIndication(unsigned, unsigned, unsigned short) override;
    int ApeTokenPleaseIndication(unsigned, unsigned, unsigned short) override;
    int ApeTokenReleaseConfirm(unsigned, short, unsigned short) override;
    int ApeTokenTestConfirm(unsigned, short, unsigned short) override;
    int ApeDetachIndication(unsigned attachId, short reason) override;

    // State, in declaration order; public so that the panel bridge and tests can read it as
    // the client's other files do.
    IArmService* m_pArmService;
    unsigned m_nUserType;
    unsigned m_nUserId;
    unsigned m_nResourceId;
    unsigned m_nApeUserId;
    unsigned m_conferenceHandle;
    unsigned m_sessionHandle;
    INoteHostSink* m_pHostSink;
    bool m_bFileLoaded;
    bool m_bNeedSendAll;
    unsigned m_bWaitEnroll;
    unsigned m_nLastCacheId;
    unsigned m_nCacheCount;
    unsigned m_nSaveCacheHandle;
    char m_szChangeCacheName[64];
    unsigned m_nChangeCacheHandle;
    CNoteSaveInfoPDU m_SaveInfo;
    std::vector<std::string> m_aBlocks;  // kept empty; no operation uses it
    unsigned m_nNotePadType;
    unsigned m_bSelfChange;
    unsigned m_bStopSubscribe;
    void* m_pUI;
    void* m_pParent;
    // edit sending, applying, tick and file-save tracking
    unsigned long m_nNBRStatus;
    int m_bContentNotified;
    unsigned char m_bTextChanged;
    std::string m_strRecvMsg;
    int m_nScrolltoEnd;
    std::string m_strLastFileSaveContent;
    int m_bModifiedSinceFileSave;
    int m_bNoFileSaveYet;
    unsigned char m_bFileNeedSave;
    unsigned m_bAlive;
    std::string m_strAutoSavePath;
    std::string m_strSaveFileName;
    std::string m_strHostText1;
    std::string m_strHostText2;
    unsigned m_bNeedAutoSave;
    std::string m_strOldMsg;
    std::string m_strShowMsg;
    std::string m_strPublishMsg;
    unsigned m_nTextBufSize;
    char* m_pTextBuf;  // m_nTextBufSize bytes, owned (NewTextBuf)
    unsigned m_bLastWasChange;
    unsigned m_bSavedBefore;
    unsigned m_bHasContent;
    std::vector<char*> m_aNetInfo;  // each new[]'d, owned; freed by ResetNetInfo
    CCompressEngine m_CompressEngine;
    unsigned m_nMaxTextLen;
    // The local wall-clock hour (0-23) and minute stamped on service notices; null reads the
    // system clock. Tests set it to fix the time.
    void (*m_pfnNoticeClock)(int* hour, int* minute) = nullptr;
    unsigned m_nTextBufDirty = 0;  // leading bytes of m_pTextBuf that may be non-zero
    CSaveListIndex m_SaveListIndex;  // over m_SaveInfo.m_vecChangeInfoPdu, for SetSavePduCacheID
    // Texts run to hundreds of kilobytes, and fresh memory costs a page fault every 4 KB: these
    // buffers keep theirs between calls. The last text sent to the panel (converted), the
    // panel's text as GetNoteTextLength measures it, and the text a send shares next (it
    // trades places with m_strOldMsg).
    std::string m_strPanelText;
    std::string m_strMeasureText;
    std::string m_strNextOld;
};
