// The plug-in's exported functions (C linkage, unmangled). The host owns an instance handle
// from NoteNewInstance to NoteDeleteInstance and calls everything on its main thread, in the
// order: NoteNewInstance, NoteInitialize, any other calls, NoteDeleteInstance. A null handle
// gives the result noted; a stale or foreign handle is undefined behaviour.
#pragma once

#include "tessarinnote/notedata.h"

#if defined(TESSARINNOTE_BUILD)
#define TESSARINNOTE_API extern "C" __attribute__((visibility("default")))
#else
#define TESSARINNOTE_API extern "C"
#endif

// Creates an instance (and its 50 ms tick on the calling thread's main loop).
TESSARINNOTE_API void* NoteNewInstance(void);
// Destroys the instance: leaves the meeting and releases the service. -1 for null, else 0.
TESSARINNOTE_API long NoteDeleteInstance(void* instance);
// Connects to the conference in data, builds the panel in data->pParentView (a null parent
// gives a headless panel, see headlesspanel.h), applies the notepad type and then the user
// type. -1 for a null instance or record, else 0.
TESSARINNOTE_API long NoteInitialize(void* instance, _tagNoteData* data);
TESSARINNOTE_API long NoteSetUserType(void* instance, int userType);
TESSARINNOTE_API long NoteSetNotepadType(void* instance, NOTETAKERTYPE type);
// reason 1: the meeting was lost (the document is auto-saved); 0: it came back.
TESSARINNOTE_API long NoteMeetingLost(void* instance, int reason);
TESSARINNOTE_API long NoteFileSave(void* instance);
// -1 for null, else the save-as result.
TESSARINNOTE_API long NoteFileSaveAs(void* instance);
// Writes the note under its localised file name into folder (UTF-8 path).
TESSARINNOTE_API long NoteSaveFileToFolder(void* instance, const char* folder);
// 0 for null, else the file-save state byte, sign-extended.
TESSARINNOTE_API long NoteGetFileSaveState(void* instance);
// selector 1: set the auto-save path to text; 2: the publish status; 3: publish now.
// 0 for null, for selectors 1 and 3 and unknown ones; the publish status for 2.
TESSARINNOTE_API long NoteConfig(void* instance, long selector, long unused1, long unused2,
                                 const char* text);
TESSARINNOTE_API long NoteSetAutoSavePath(void* instance, const char* path);
// -1 (64-bit) for null, else the paste status.
TESSARINNOTE_API long NoteGetPasteStatus(void* instance);
// The meeting recording status. 0xFFFFFFFF for null, else 0.
TESSARINNOTE_API unsigned int SetNBR2Status(void* instance, unsigned long status);
