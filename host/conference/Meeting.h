// A meeting that any number of participants join, each through its own conference service
// object. The conference behind it is in-process (CLocalConference) or Redis-backed; the
// contract tests and the host applications drive it through this interface only.
//
// Threads: everything runs on the main loop of the participants (the IRunLoop each service
// was created with); service callbacks are posted to that loop, never made from inside a
// service call.
#pragma once

#include "tessarinnote/armservice.h"
#include "transport/RunLoop.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

// How a whole-text data unit reaches its receivers.
enum class EDataRoute {
    kDirect,           // IArmApeSink::ApeDataIndication
    kResourceCallback  // the registered ARMRscCallBack, with an ARMMsg_SessRscInd
};

// One cache item put with the recording flags (CACHE_FLAG_RECORD_A / _B).
struct CRecordedItem {
    unsigned nCacheHandle;
    unsigned nCacheId;
    unsigned nPutterAttachId;
    double dArrivalTime;  // the loop's clock (reference-date seconds) when the put arrived
    std::string strBytes;
};

class IMeeting {
public:
    virtual ~IMeeting() = default;

    // A new participant's service, posting its callbacks to loop. The meeting owns it until
    // the participant calls ArmService_Release (after which the pointer is invalid).
    // REQUIRES: loop outlives the service.
    virtual IArmService* NewService(IRunLoop& loop) = 0;

    // The values a host puts into _tagNoteData for this meeting.
    virtual unsigned ConferenceHandle() const = 0;
    virtual unsigned SessionHandle() const = 0;
    virtual bool IsPki() const = 0;

    // Fault injection. SetConnected(service, false) takes the participant's connection down:
    // its lost-meeting handler is called with 1, its puts are queued, deliveries to it are
    // held. SetConnected(service, true) calls the handler with 0, sends the queued puts in
    // order and delivers what it missed in order, as it would have live.
    virtual void SetConnected(IArmService* service, bool connected) = 0;
    // handler(1) when the participant's connection is lost, handler(0) when it is back.
    virtual void SetMeetingLostHandler(IArmService* service, std::function<void(int)> handler) = 0;

    // Sends payload as one CDataPdu envelope (modified flag, sender = from's attach id) to the
    // participant attached as toAttachId, or to every other participant when toAttachId is 0.
    // kResourceCallback goes through the receivers' registered resource callbacks under
    // resourceName with kind; in a PKI meeting the envelope travels as sealed records.
    virtual void SendDataUnit(IArmService* from, unsigned toAttachId, short modifiedFlag,
                              const std::string& payload, EDataRoute route,
                              const char* resourceName, unsigned kind) = 0;

    // The meeting closes the notepad: every subscriber of every cache gets
    // CACHE_ACTION_CLOSED with result 0.
    virtual void CloseNotepad() = 0;

    // Items put with the recording flags, in arrival order.
    virtual std::vector<CRecordedItem> Recording() const = 0;
};

// Settings of a new meeting.
struct CMeetingOptions {
    unsigned nConferenceHandle = 1;
    unsigned nSessionHandle = 1;
    bool bPki = false;
};

// PKI sealed records as the plug-in reads them from a resource message: for each record,
// its length in decimal followed at once by the record's bytes (printable text, never NUL).
// ArmService_Decrypt opens one record's bytes. The message's length covers the sequence, a
// NUL and as many zero bytes again: the plug-in checks each record against the room after
// the text and reads nothing from a message whose text fills its length.
//
// Sealed record bytes are "S" followed by the base64 (standard alphabet, padded) of a 24-byte
// nonce and the secretbox of the envelope, keyed per meeting. The leading letter ends the
// decimal length before it.
