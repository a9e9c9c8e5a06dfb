// Localised texts through gettext: the bundle identifier is the text domain, the English text
// the msgid. The domain is bound once, on first use, to the directory NoteLocaleDirectory()
// finds, with UTF-8 output whatever the locale's codeset.
#include "platform/LoadLocalizedString.h"

#include "boundscheck/boundscheck.h"
#include "platform/LocaleDirectory.h"

#include <libintl.h>
#include <string.h>

#include <new>

namespace {

void BindNoteTextDomain()
{
    static const bool bound = [] {
        const std::string dir = NoteLocaleDirectory();
        bindtextdomain(kTessarinNoteBundleId, dir.c_str());
        bind_textdomain_codeset(kTessarinNoteBundleId, "UTF-8");
        return true;
    }();
    (void)bound;
}

bool IsNoteBundle(const char* bundleId) { return strcmp(bundleId, kTessarinNoteBundleId) == 0; }

bool IsDefaultTable(const char* table) { return !table || strcmp(table, "Localizable") == 0; }

// REQUIRES: key not null; bundleId null or the plug-in's.
const char* Lookup(const char* key, const char* bundleId, const char* table)
{
    // The empty msgid is a catalogue's header, never a text.
    if (key[0] == '\0' || !IsDefaultTable(table)) return key;
    if (!bundleId) return gettext(key);
    BindNoteTextDomain();
    return dgettext(kTessarinNoteBundleId, key);
}

}  // namespace

std::string GetLocalizedString(const char* key, const char* bundleId, const char* table)
{
    if (!key) return std::string();
    if (bundleId && !IsNoteBundle(bundleId)) return key;
    return Lookup(key, bundleId, table);
}

char* GetLocalizedCFString(const char* key, const char* bundleId, const char* table)
{
    if (!key || (bundleId && !IsNoteBundle(bundleId))) return nullptr;
    const char* text = Lookup(key, bundleId, table);
    const size_t size = strlen(text) + 1;
    char* copy = new (std::nothrow) char[size];
    if (copy) memcpy_s(copy, size, text, size);
    return copy;
}
