// Localised texts: lookups per language, what comes back for texts, bundles and tables the
// catalogue does not have, and where the catalogues are looked for. (That every text of the
// template is translated is checked when the catalogues are built.)
#include "platform/LoadLocalizedString.h"
#include "platform/LocaleDirectory.h"

#include "ScopedLanguage.h"

#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>

namespace {

const char kPrivilegeFormat[] =
    "You cannot replace \"%s\" because you do not have the right privileges.";


// Lookups per language. Keys the catalogue lacks come back as they are (the empty msgid is the
// catalogue's header, never a text); other bundles have no owned string at all, and the
// program's own catalogue (no bundle named) and tables other than the default are not the
// plug-in's. The environment's language list comes first.
TEST(LocalizedString, LanguagesMissingKeysOtherBundlesAndTables)
{
    const char* note = kTessarinNoteBundleId;
    const struct { const char *language, *key, *bundle, *table, *text; bool owned; } cases[] = {
        {"en", "Closed Captions.txt", note, nullptr, "Closed Captions.txt", true},
        {"de", kPrivilegeFormat, note, nullptr, "\xe2\x80\x9e%s\xe2\x80\x9c kann nicht ersetzt werden, da Sie nicht \xc3\xbc"
         "ber die erforderlichen Berechtigungen verf\xc3\xbcgen.", true},
        {"fr", "Save", note, nullptr, "Enregistrer", true},
        {"fr", "Velmar Zentor Closed Captions", note, nullptr, "Velmar Zentor Sous-titres", true},
        {"de", "No such text in any catalogue", note, nullptr, "No such text in any catalogue", true},
        {"de", "", note, nullptr, "", true}, {"de", nullptr, note, nullptr, "", false},
        {"de", "Save", "com.example.other", nullptr, "Save", false}, {"de", "Save", nullptr, nullptr, "Save", true},
        {"de", "Save", note, "Localizable", "Speichern", true}, {"de", "Save", note, "Other", "Save", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.language) + " " + (c.key ? c.key : "(null)") + " " + (c.bundle ? c.bundle : "(null)") + " " + (c.table ? c.table : ""));
        CScopedLanguage language(c.language);
        EXPECT_EQ(GetLocalizedString(c.key, c.bundle, c.table), c.text);
        std::unique_ptr<char[]> owned(GetLocalizedCFString(c.key, c.bundle, c.table));
        EXPECT_EQ(owned != nullptr, c.owned);
        if (owned) {
            EXPECT_STREQ(owned.get(), c.text);
        }
    }
    CScopedLanguage german("de");
    if (!german.RealLocale()) GTEST_SKIP() << "de_DE.UTF-8 missing; run scripts/setup.sh";
    setenv("LANGUAGE", "fr:de", 1);
    ++_nl_msg_cat_cntr;
    EXPECT_EQ(GetLocalizedString("Publish", note, nullptr), "Publier");
}

// ---- Catalogue directory ----

std::string RealPath(const std::string& path)
{
    char* real = realpath(path.c_str(), nullptr);
    const std::string result = real ? real : "<" + path + " not found>";
    free(real);
    return result;
}

TEST(LocaleDirectory, EnvironmentOverridesAndBesideTheProgramFollows)
{
    setenv(kNoteLocaleDirEnv, "/some/where/locale", 1);
    EXPECT_EQ(NoteLocaleDirectory(), "/some/where/locale");
    setenv(kNoteLocaleDirEnv, "", 1);  // empty counts as unset

    char exe[4096];
    const ssize_t len = readlink("/proc/self/exe", exe, sizeof exe - 1);
    ASSERT_GT(len, 0);
    std::string beside(exe, size_t(len));
    beside = beside.substr(0, beside.rfind('/') + 1) + "locale";
    EXPECT_EQ(RealPath(NoteLocaleDirectory()), beside);
    unsetenv(kNoteLocaleDirEnv);
    EXPECT_EQ(RealPath(NoteLocaleDirectory()), beside);

    // The build put the compiled catalogues there.
    struct stat st;
    for (const char* lang : {"de", "fr"}) {
        const std::string mo = beside + "/" + lang + "/LC_MESSAGES/com.zentor.tessarinnote.mo";
        EXPECT_EQ(stat(mo.c_str(), &st), 0) << mo;
    }
}

}  // namespace
