// A note client for the fuzz targets: on a scripted service (tests/client) that also holds one
// memory handle with the bytes of a cache item, with a recording host sink and a headless
// panel, on a manual run loop. Trace lines go nowhere.
//
// A fresh client zeroes a work buffer of half a megabyte (2.4 MB for captions), and an item
// that announces a long text makes it grow to twice that; under the sanitizer each costs
// milliseconds of page faults. So each configuration keeps one client for the whole process,
// and every input gets it back with an empty document and the state of a client that has just
// joined (Reset), so that each input still runs alone. Its work buffer is the grown one of a
// client that has taken in such an item before; with NOTE_FUZZ_FRESH_BUFFER=1 in the
// environment every input starts with the buffer of a new client instead (slower).
#pragma once

#include "FuzzTarget.h"
#include "ScriptedArmService.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <tuple>

class CFuzzService : public CScriptedArmService {
public:
    static constexpr unsigned kItemHandle = 1;
    std::string m_strItem;  // the bytes of memory handle kItemHandle

    int ArmService_GetMemHandleSize(unsigned handle, unsigned* size) override
    {
        if (handle != kItemHandle) return 1;
        *size = static_cast<unsigned>(m_strItem.size());
        return 0;
    }
    int ArmService_ReadMemHandle(unsigned handle, unsigned offset, void* out, unsigned* size) override
    {
        if (handle != kItemHandle || offset > m_strItem.size()) return 1;
        *size = static_cast<unsigned>(std::min<size_t>(*size, m_strItem.size() - offset));
        std::memcpy(out, m_strItem.data() + offset, *size);
        return 0;
    }
};

class CFuzzClient {
public:
    // The client of this notepad, role and conference, reset for the next input.
    static CFuzzClient& Get(NOTETAKERTYPE notepadType, unsigned userType, std::uint64_t conferenceFlags = 0)
    {
        // Kept until the process ends, never destroyed: the loop must outlive the clients.
        static CManualRunLoop* loop = [] {
            FuzzQuietTrace();
            CManualRunLoop* l = new CManualRunLoop(1000.0);
            SetCurrentRunLoop(l);
            return l;
        }();
        static auto* clients = new std::map<std::tuple<int, unsigned, std::uint64_t>, CFuzzClient*>;
        CFuzzClient*& entry = (*clients)[std::make_tuple(int(notepadType), userType, conferenceFlags)];
        if (!entry) {
            // Gone before the plug-in's globals (the instance registry) at exit.
            if (clients->size() == 1) std::atexit([] {
                for (auto& kept : *clients) delete kept.second;
                clients->clear();
            });
            entry = new CFuzzClient(notepadType, userType, conferenceFlags);
        }
        entry->Reset();
        while (loop->RunPending() > 0) {
        }
        return *entry;
    }

    CNoteClient& Client() { return *m_pClient; }
    CFuzzService& Service() { return m_service; }

private:
    CFuzzClient(NOTETAKERTYPE notepadType, unsigned userType, std::uint64_t conferenceFlags)
    {
        m_service.m_nConferenceFlags = conferenceFlags;
        m_pClient = NewScriptedClient(m_service, &m_sink);
        m_pClient->SetNotepadType(notepadType);
        m_pClient->SetUserType(static_cast<int>(userType));
    }

    // The values a newly constructed client starts with, but for what identifies it (service,
    // ids, panel, notepad type, role) and the work buffer, kept when it has its starting size.
    void Reset()
    {
        CNoteClient& c = *m_pClient;
        c.m_SaveInfo.Clear();
        c.m_SaveInfo.ClearPdu();
        c.ResetNetInfo();
        c.m_bFileLoaded = c.m_bNeedSendAll = false;
        c.m_nLastCacheId = c.m_nCacheCount = c.m_nSaveCacheHandle = 0;
        c.m_bSelfChange = c.m_bStopSubscribe = 0;
        c.m_nNBRStatus = 0;
        c.m_bContentNotified = 0;
        c.m_strRecvMsg.clear();
        c.m_nScrolltoEnd = 0;
        c.m_strLastFileSaveContent.clear();
        c.m_bModifiedSinceFileSave = 0;
        c.m_bNoFileSaveYet = 1;
        c.m_bFileNeedSave = 0;
        c.m_strSaveFileName.clear();
        c.m_strOldMsg.clear();
        c.m_strShowMsg.clear();
        c.m_strPublishMsg.clear();
        c.m_bLastWasChange = 1;
        c.m_bSavedBefore = 0;
        static const bool fresh = std::getenv("NOTE_FUZZ_FRESH_BUFFER") != nullptr;
        const unsigned start = CNoteClient::BufSizeFor(c.m_nMaxTextLen);
        const unsigned size = fresh ? start : start * 2 + 1;  // as DecompressPdu grows it
        if (c.m_nTextBufSize != size) {
            delete[] c.m_pTextBuf;
            c.m_nTextBufSize = size;
            c.m_pTextBuf = new char[size]();
            c.m_nTextBufDirty = 0;
        }
        c.ClearTextBuf();
        c.SetNoteTextData(std::string());  // an empty panel, nothing of it committed
        c.m_bTextChanged = 0;
        c.m_bHasContent = 0;
        c.m_bNeedAutoSave = 0;
        m_service.m_vecCalls.clear();
        m_service.m_vecOpened.clear();
        m_service.m_strItem.clear();
        m_sink.m_vecCalls.clear();
    }

    CFuzzService m_service;
    CRecordingHostSink m_sink;
    std::unique_ptr<CNoteClient> m_pClient;
};
