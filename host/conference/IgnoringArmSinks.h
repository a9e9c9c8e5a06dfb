// CIgnoringArmSinks: the five conference sinks with every operation doing nothing and answering
// 0, for the host's own participants (a replaying putter, benchmark readers, test recorders),
// which override only the few callbacks they listen to.
#pragma once

#include "tessarinnote/armsinks.h"

class CIgnoringArmSinks : public IArmNodeControllerSink,
                          public IArmConferenceSink,
                          public IArmApeSink,
                          public IArmSharedDataSink,
                          public IArmAllocHandleSink {
public:
    int ConnectConfirm(short, unsigned) override { return 0; }
    int DisconnectIndication(short) override { return 0; }
    int DisconnectConfirm(short) override { return 0; }
    int TransportStatusIndication(short, unsigned) override { return 0; }

    int ConferenceJoinConfirm(unsigned short, char*, short, unsigned) override { return 0; }
    int ConferenceLeaveIndication(unsigned short, char*, short) override { return 0; }
    int ConferenceRosterConfirm(unsigned short, short, short, ARMNodeRecord*) override { return 0; }
    int ConferenceRosterChanged(unsigned short, short, short, short, ARMNodeRecord*) override { return 0; }
    int ApeRosterConfirm(unsigned short, short, short, ARMApeRoster*) override { return 0; }
    int ApeRosterChanged(unsigned short, short, short, short, ARMApeRoster*) override { return 0; }

    int ApeAttachConfirm(unsigned, short, unsigned) override { return 0; }
    int ApeEnrollConfirm(unsigned, short, short, ARMSessionResource*) override { return 0; }
    int ApeRosterConfirm(unsigned, unsigned short, short, short, ARMApeRoster*) override { return 0; }
    int ApeRosterChanged(unsigned, unsigned short, short, short, short, ARMApeRoster*) override { return 0; }
    int ApeDataIndication(unsigned, unsigned, unsigned, short, unsigned char*, unsigned) override { return 0; }
    int ApeTokenGrabConfirm(unsigned, short, unsigned short) override { return 0; }
    int ApeTokenInhibitConfirm(unsigned, short, unsigned short) override { return 0; }
    int ApeTokenGiveConfirm(unsigned, short, unsigned short) override { return 0; }
    int ApeTokenGiveIndication(unsigned, unsigned, unsigned short) override { return 0; }
    int ApeTokenPleaseIndication(unsigned, unsigned, unsigned short) override { return 0; }
    int ApeTokenReleaseConfirm(unsigned, short, unsigned short) override { return 0; }
    int ApeTokenTestConfirm(unsigned, short, unsigned short) override { return 0; }
    int ApeDetachIndication(unsigned, short) override { return 0; }
    int ConferenceRosterConfirm(unsigned, unsigned short, short, short, ARMNodeRecord*) override { return 0; }
    int ConferenceRosterChanged(unsigned, unsigned short, short, short, short, ARMNodeRecord*) override { return 0; }
    int ApeCacheActionConfirmEx(unsigned, unsigned, tagCacheAction, unsigned, unsigned, short) override { return 0; }

    int SharedDataReceivedEx(unsigned, unsigned, unsigned, unsigned, short, tagCacheAction, unsigned, unsigned,
                             short) override
    {
        return 0;
    }

    int AllocNameHandleConfirm(unsigned, unsigned, NameHandles*, unsigned) override { return 0; }

protected:
    ~CIgnoringArmSinks() = default;
};
