// Where the message catalogues of the plug-in's text domain lie at run time, so that the
// plug-in finds its translations wherever it was built or installed.
#pragma once

#include <string>

// Environment variable that names the catalogue directory outright (tests, relocated installs).
constexpr char kNoteLocaleDirEnv[] = "NOTE_LOCALEDIR";

// The directory holding <language>/LC_MESSAGES/<text domain>.mo, the first of:
// 1. the value of NOTE_LOCALEDIR, when set and not empty;
// 2. "locale" beside the file this code was loaded from (the plug-in, or the program that
//    links the platform utilities statically), when that directory exists;
// 3. the install prefix's catalogue directory (share/locale unless configured otherwise).
// Reads the environment on every call.
std::string NoteLocaleDirectory();
