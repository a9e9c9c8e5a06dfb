// Localised user texts. Every text the plug-in shows is looked up in the plug-in's own catalogue
// with its English text as key, so a text without translation comes back unchanged.
// The language follows the process locale, which the host sets from the environment
// (setlocale(LC_ALL, ""), as QApplication does); LANGUAGE is honoured as usual.
// Main thread only, like everything that speaks to the user.
#pragma once

#include <string>

// The plug-in's bundle identifier; the plug-in passes it to every lookup. Its catalogue is the
// text domain of the same name.
constexpr char kTessarinNoteBundleId[] = "com.zentor.tessarinnote";

// Returns the translation of key (UTF-8) in the catalogue of bundleId, or key itself when the
// catalogue has none. A null bundleId looks in the host program's own catalogue (its current
// text domain). table names a strings table of the bundle: null (or "Localizable") is its only
// one; any other name finds nothing, so key comes back. Also key for an empty key and for a
// bundle other than the plug-in's. A null key gives "".
std::string GetLocalizedString(const char* key, const char* bundleId, const char* table);

// The plug-in's own text for key: what every user-facing text of the plug-in goes through.
inline std::string NoteLocalized(const char* key)
{
    return GetLocalizedString(key, kTessarinNoteBundleId, nullptr);
}

// The same lookup as a new zero-terminated UTF-8 string, which the caller owns and frees with
// delete[]. Returns null for a null key, for a bundleId other than the plug-in's (that bundle is
// not loaded in this process) and when memory runs out.
char* GetLocalizedCFString(const char* key, const char* bundleId, const char* table);
