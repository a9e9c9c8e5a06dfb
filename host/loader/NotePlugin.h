// CNotePlugin: the note plug-in loaded with dlopen, as a host loads it, and its exported
// functions. Nothing of the plug-in is linked in: a host reaches it only through these.
#pragma once

#include "tessarinnote/noteinterface.h"
#include "tessarinnote/uiinterface.h"

#include <string>

// Every function the plug-in exports.
#define NOTE_PLUGIN_FUNCTIONS(X) \
    X(NoteNewInstance) X(NoteDeleteInstance) X(NoteInitialize) \
    X(NoteSetUserType) X(NoteSetNotepadType) X(NoteMeetingLost) \
    X(NoteFileSave) X(NoteFileSaveAs) X(NoteSaveFileToFolder) \
    X(NoteGetFileSaveState) X(NoteConfig) X(NoteSetAutoSavePath) \
    X(NoteGetPasteStatus) X(SetNBR2Status) X(CreateUI) \
    X(DestoryUI) X(NotifyCocoaUI) X(CancelSink)

class CNotePlugin {
public:
    CNotePlugin() = default;
    ~CNotePlugin();
    CNotePlugin(const CNotePlugin&) = delete;
    CNotePlugin& operator=(const CNotePlugin&) = delete;

    // Loads the plug-in file; false, with the reason in error, when it cannot be loaded or
    // lacks one of its functions (then nothing stays loaded).
    bool Load(const std::string& path, std::string& error);
    bool IsLoaded() const { return m_pLibrary != nullptr; }

    // The path of the plug-in built with this host, for hosts that are given none.
    static std::string BuiltPath();

    // The exported functions, null until loaded.
#define NOTE_PLUGIN_DECLARE(name) decltype(&::name) name = nullptr;
    NOTE_PLUGIN_FUNCTIONS(NOTE_PLUGIN_DECLARE)
#undef NOTE_PLUGIN_DECLARE

private:
    void Unload();

    void* m_pLibrary = nullptr;
};
