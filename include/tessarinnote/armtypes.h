// Records, codes and constants shared by the plug-in and the conference service that hosts it.
// Every record here crosses the plug-in boundary, so its layout is fixed and asserted.
#pragma once

#include <cstddef>
#include <cstdint>

// Results of service operations. 0 always means success.
enum ARMResult : int {
    ARM_OK = 0,
    ARM_REFUSED = 19,             // a stale cache update, or a connect to be retried
    ARM_ALREADY_JOINED = 1201,    // JoinConference on a service that already joined
    ARM_ALREADY_CONNECTED = 1215  // Connect on a service that is already connected
};

// What a cache delivery (SharedDataReceivedEx) or a put confirm (ApeCacheActionConfirmEx)
// reports. The client applies ADDED, UPDATED and REPLAYED and only records RECORDED and KNOWN.
enum tagCacheAction : int {
    CACHE_ACTION_SUBSCRIBED = 0,  // subscription or resynchronisation: carries the newest id
    CACHE_ACTION_ADDED = 1,       // a new item (the newest one for a late joiner)
    CACHE_ACTION_UPDATED = 2,     // the newest item replaced in place (result 19: refused)
    CACHE_ACTION_CLEARED = 3,     // the cache was cleared (the notepad type changed)
    CACHE_ACTION_RECORDED = 4,    // an item recorded, not shown (never sent by our conferences)
    CACHE_ACTION_KNOWN = 5,       // history delivered to a late joiner: recorded, not shown
    CACHE_ACTION_REPLAYED = 6,    // an item to apply again (never sent by our conferences)
    CACHE_ACTION_CLOSED = 7       // the meeting closed the notepad: stop subscribing
};

// Put modes and flags of ArmService_PutCacheItem.
enum : unsigned {
    CACHE_MODE_APPEND = 1,           // captions: every put appends
    CACHE_MODE_REPLACE_NEWEST = 2,   // notes: replace the newest item, or append when 0 / empty
    CACHE_FLAG_RECORD_A = 0x10,      // with RECORD_B: the item belongs to the meeting recording
    CACHE_FLAG_RECORD_B = 0x80,
    CACHE_FLAG_BASE = 0x1000000,     // set on every put the client makes
    CACHE_FLAG_CLEAR = 0x2000000     // with handle 0: clear the cache
};

// ArmService_QueryConference: the query for the meeting's flags, and the PKI flag.
constexpr unsigned ARM_QUERY_CONFERENCE_FLAGS = 0xFFFFFF1Au;
constexpr std::uint64_t ARM_CONFERENCE_FLAG_PKI = 4;

// The in/out record of that query.
struct ARMConferenceQuery {
    std::uint64_t conferenceHandle;  // in
    std::uint64_t flags;             // out: ARM_CONFERENCE_FLAG_PKI for a PKI meeting
};
static_assert(offsetof(ARMConferenceQuery, flags) == 8, "flag word is the second 64-bit word");

// The session resource records of ApeEnrollConfirm. The fifth 32-bit word of the first record
// is the session resource id: one non-zero id per meeting and notepad session.
struct ARMSessionResource {
    std::uint32_t nResourceType;
    std::uint32_t nSessionHandle;
    std::uint32_t nAttachId;
    std::uint32_t nReserved;
    std::uint32_t nResourceId;
};
static_assert(offsetof(ARMSessionResource, nResourceId) == 16, "resource id is the fifth word");

// One cache name and its handle (0 in a request; the allocated handle in the confirm).
struct NameHandles {
    char szName[64];  // zero-filled after the text
    std::uint32_t nHandle;
};
static_assert(sizeof(NameHandles) == 68 && offsetof(NameHandles, nHandle) == 64,
              "NameHandles is 64 name bytes and a handle");

#pragma pack(push, 1)

// The capability record handed to ArmService_Enroll.
struct ARMCapability {
    std::uint16_t nCount;        // 1
    std::uint16_t nUnused;
    const char* pszKey;          // "c_session_id"
    std::uint64_t nValue;        // 1
};
static_assert(sizeof(ARMCapability) == 20 && offsetof(ARMCapability, pszKey) == 4 &&
                  offsetof(ARMCapability, nValue) == 12,
              "capability record layout");

// The session-resource message the host hands to the registered resource callback.
struct ARMMsg_SessRscInd {
    const char* pszResourceName;  // RESOURCE_NOTE_TAKE or RESOURCE_CLOSED_CAPTION
    std::uint32_t nLength;        // payload bytes
    const unsigned char* pData;   // CDataPdu envelopes, or sealed records in a PKI meeting
    std::uint32_t nKind;          // 0, 2, 3: whole text; 1: a change to fetch
};
static_assert(sizeof(ARMMsg_SessRscInd) == 24 && offsetof(ARMMsg_SessRscInd, nLength) == 8 &&
                  offsetof(ARMMsg_SessRscInd, pData) == 12 &&
                  offsetof(ARMMsg_SessRscInd, nKind) == 20,
              "session-resource message layout");

#pragma pack(pop)

constexpr char RESOURCE_NOTE_TAKE[] = "NoteTake";
constexpr char RESOURCE_CLOSED_CAPTION[] = "ClosedCaption";
constexpr char CAPABILITY_SESSION_ID[] = "c_session_id";

// Message types of the resource callback; only the session-resource indication is defined.
enum ARMMsgType : int { ARM_MSG_SESS_RSC_IND = 1 };

// The resource callback the plug-in registers (ArmRscCallBack). id is the attach id, msg an
// ARMMsg_SessRscInd valid only during the call. Returns 1 for a null msg, else 0.
typedef int (*ARMRscCallBack)(unsigned id, ARMMsgType type, void* msg);

// Roster records: the plug-in never reads them; hosts may pass null.
struct ARMNodeRecord;
struct ARMApeRoster;
