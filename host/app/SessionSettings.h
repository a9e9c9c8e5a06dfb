// SSessionSettings: what a person chooses before a window joins a meeting (the conference, the
// meeting, who they are and the notepad), and what follows from it: the plug-in's user type
// and the auto-save file in the user's data folder.
#pragma once

#include "tessarinnote/notedata.h"

#include <QString>

#include <string>

enum class EConference { kInProcess, kRedis };

// The roles a window's person can take.
enum class ERole { kCaptioner, kNoteTaker, kReader };

struct SSessionSettings {
    EConference conference = EConference::kInProcess;
    std::string strRedisUrl = "redis://127.0.0.1:6379";
    std::string strRedisUser;      // empty: the server's default user
    std::string strRedisPassword;  // empty: none
    std::string strMeetingId = "meeting-1";
    unsigned nUserId = 1;
    ERole role = ERole::kReader;
    NOTETAKERTYPE notepadType = NOTETAKER_CLOSED_CAPTIONS;
};

// The plug-in's user type: captioners and note takers write, readers read.
unsigned UserTypeOf(ERole role);
// "Captioner", "Note taker", "Reader".
QString RoleName(ERole role);
// The notepad a role usually holds: captions for a captioner, published notes for a note taker.
NOTETAKERTYPE UsualNotepadOf(ERole role, NOTETAKERTYPE current);
// The largest text of a notepad in characters: 409,600 for captions, else 81,920.
int MaxTextLengthOf(NOTETAKERTYPE type);
// The auto-save file of this person in this meeting and notepad, under the user's data folder
// ($XDG_DATA_HOME/notehost/autosave, by default ~/.local/share/notehost/autosave). A Redis
// meeting outlives this program, so its files stay for a later run; an in-process meeting lives
// only in this process, so its files go in a folder of the process that
// RemoveInProcessAutoSaves deletes at exit. The folder is made when missing; empty when it
// cannot be.
std::string AutoSavePathFor(const SSessionSettings& settings);
void RemoveInProcessAutoSaves();
