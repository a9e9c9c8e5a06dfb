// What the host hands the plug-in when it initialises an instance, and what the plug-in tells
// the host back through the host sink.
#pragma once

#include <cstddef>
#include <cstdint>

class IArmService;

// The notepad's kind.
enum NOTETAKERTYPE : std::uint32_t {
    NOTETAKER_ALL_PARTICIPANTS = 1,  // every participant keeps private notes
    NOTETAKER_SINGLE = 2,            // one note taker writes and publishes for everybody
    NOTETAKER_CLOSED_CAPTIONS = 3    // a captioner types captions every participant sees
};

// User types: the writer (note taker or captioner) and everybody else.
enum : std::uint32_t { NOTE_USER_READER = 0, NOTE_USER_WRITER = 1 };

// The plug-in's calls back into the host, in slot order. Called on the main loop only.
class INoteHostSink {
public:
    // The document's need-save state changed (1: unsaved changes).
    virtual void NeedSaveChanged(signed char needSave) = 0;
    // Whether saving is worth offering (text present, or a saved note was emptied).
    virtual void SaveEnabledChanged(int enabled) = 0;
    // Whether the note holds any text.
    virtual void HasContentChanged(int hasContent) = 0;
    // A remote change was applied.
    virtual void RemoteChangeApplied() = 0;
    // A remote change carrying text was applied (always called with 0).
    virtual void RemoteTextApplied(int reserved) = 0;

protected:
    // Not virtual: the table holds the five operations only. Never deleted by the plug-in.
    ~INoteHostSink() = default;
};

// The initialisation record. REQUIRES: every pointer stays valid for the instance's life
// (the strings are copied).
struct _tagNoteData {
    INoteHostSink* pHostSink;       // may be null
    void* pParentView;              // a QWidget* for the Qt panel, null for a headless panel
    IArmService* pArmService;       // the participant's conference service
    std::uint32_t conferenceHandle;
    std::uint32_t sessionHandle;
    const char* pszHostText1;       // kept for the session; may be null
    const char* pszHostText2;
    std::uint32_t nUserId;          // the local participant's user id
    std::uint8_t reserved[20];      // not read by the plug-in
    std::uint32_t nNotepadType;     // NOTETAKERTYPE
    std::uint32_t nUserType;        // NOTE_USER_READER or NOTE_USER_WRITER
};
static_assert(offsetof(_tagNoteData, pHostSink) == 0, "host sink at 0");
static_assert(offsetof(_tagNoteData, pParentView) == 8, "parent view at 8");
static_assert(offsetof(_tagNoteData, pArmService) == 16, "service at 16");
static_assert(offsetof(_tagNoteData, conferenceHandle) == 24, "conference handle at 24");
static_assert(offsetof(_tagNoteData, sessionHandle) == 28, "session handle at 28");
static_assert(offsetof(_tagNoteData, pszHostText1) == 32, "host text 1 at 32");
static_assert(offsetof(_tagNoteData, pszHostText2) == 40, "host text 2 at 40");
static_assert(offsetof(_tagNoteData, nUserId) == 48, "user id at 48");
static_assert(offsetof(_tagNoteData, reserved) == 52, "unread words at 52");
static_assert(offsetof(_tagNoteData, nNotepadType) == 72, "notepad type at 72");
static_assert(offsetof(_tagNoteData, nUserType) == 76, "user type at 76");
static_assert(sizeof(_tagNoteData) == 80, "record size");
