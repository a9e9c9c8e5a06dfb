// The plug-in's entry functions: each traces, tests the handle and forwards to one operation
// of the instance. The host calls them on its main thread.
#include "tessarinnote/noteinterface.h"

#include "client/CNoteClient.h"
#include "tessarinnote/notehostui.h"
#include "tessarinnote/uiinterface.h"

#include <cstdint>

namespace {

const long kNullInstance = -1;

CNoteClient* Client(void* instance) { return static_cast<CNoteClient*>(instance); }

// Handles are traced as the host's logs have always shown them: the low 32 bits as a number.
int HandleNumber(const void* instance)
{
    return static_cast<int>(reinterpret_cast<std::uintptr_t>(instance));
}

void Trace(const char* line) { MacInfoTrace2("note", "%s", line); }

}  // namespace

void* NoteNewInstance(void)
{
    Trace("NoteNewInstance Begine");
    CNoteClient* client = new CNoteClient;
    MacInfoTrace2("note", "NoteNewInstance %d End", HandleNumber(client));
    return client;
}

long NoteDeleteInstance(void* instance)
{
    MacInfoTrace2("note", "NoteDeleteInstance %d Begine", HandleNumber(instance));
    if (!instance) return kNullInstance;
    delete Client(instance);
    Trace("NoteDeleteInstance  End");
    return 0;
}

long NoteInitialize(void* instance, _tagNoteData* data)
{
    Trace("NoteInitialize Begine");
    // Without a record there is nothing to initialise from.
    if (!instance || !data) return kNullInstance;
    CNoteClient* client = Client(instance);
    client->Initialize(*data);
    void* panel = nullptr;
    CreateUI(&panel, client->GetParentView(), client);
    client->SetPanel(panel);
    // The notepad type first: it sets the limits the user type's controls then show.
    client->SetNotepadType(static_cast<NOTETAKERTYPE>(data->nNotepadType));
    client->SetUserType(static_cast<int>(data->nUserType));
    Trace("NoteInitialize End");
    return 0;
}

long NoteSetUserType(void* instance, int userType)
{
    Trace("NoteSetUserType Begine");
    if (!instance) return kNullInstance;
    Client(instance)->SetUserType(userType);
    Trace("NoteSetUserType End");
    return 0;
}

long NoteSetNotepadType(void* instance, NOTETAKERTYPE type)
{
    Trace("NoteSetNotepadType Begine");
    if (!instance) return kNullInstance;
    Client(instance)->SetNotepadType(type);
    Trace("NoteSetNotepadType End");
    return 0;
}

long NoteMeetingLost(void* instance, int reason)
{
    Trace("NoteMeetingLost Begine");
    if (!instance) return kNullInstance;
    Client(instance)->MeetingLost(reason);
    Trace("NoteMeetingLost End");
    return 0;
}

long NoteFileSave(void* instance)
{
    Trace("NoteFileSave Begine");
    if (!instance) return kNullInstance;
    // Failures reach the user as alerts, not as a result.
    Client(instance)->OnSave();
    Trace("NoteFileSave End");
    return 0;
}

long NoteFileSaveAs(void* instance)
{
    Trace("NoteFileSaveAs Begine");
    if (!instance) return kNullInstance;
    const long result = Client(instance)->OnSaveAs();
    Trace("NoteFileSaveAs End");
    return result;
}

long NoteSaveFileToFolder(void* instance, const char* folder)
{
    Trace("NoteSaveFileToFolder Begine");
    if (!instance) return kNullInstance;
    Client(instance)->WriteNoteFileToFolder(folder);
    Trace("NoteSaveFileToFolder End");
    return 0;
}

long NoteGetFileSaveState(void* instance)
{
    Trace("NoteGetFileSaveState Begine");
    if (!instance) return 0;
    return Client(instance)->GetFileSaveState();
}

long NoteConfig(void* instance, long selector, long, long, const char* text)
{
    // The same trace text as NoteGetFileSaveState, as hosts' logs have always had it.
    Trace("NoteGetFileSaveState Begine");
    if (!instance) return 0;
    switch (selector) {
    case 1: Client(instance)->SetAutoSaveFilePath(text); return 0;
    case 2: return Client(instance)->GetPublishStatus();
    case 3: Client(instance)->ToPublish(); return 0;
    default: return 0;
    }
}

long NoteSetAutoSavePath(void* instance, const char* path)
{
    if (!instance) return kNullInstance;
    Client(instance)->SetAutoSaveFilePath(path);
    return 0;
}

long NoteGetPasteStatus(void* instance)
{
    if (!instance) return kNullInstance;
    return Client(instance)->GetPasteStatus();
}

unsigned int SetNBR2Status(void* instance, unsigned long status)
{
    if (!instance) return 0xFFFFFFFFu;
    Client(instance)->SetNBRStatus(status);
    return 0;
}
