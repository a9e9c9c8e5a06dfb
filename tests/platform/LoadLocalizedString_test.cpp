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

std::string Localized(const char* key) { return GetLocalizedString(key, kTessarinNoteBundleId, nullptr); }

TEST(LocalizedString, TranslatesPerLanguage)
{
    struct Case {
        const char *language, *key, *text;
    } cases[] = {
        {"en", "Closed Captions.txt", "Closed Captions.txt"},
        {"de", "Save", "Speichern"},
        {"de", kPrivilegeFormat,
         "\xe2\x80\x9e%s\xe2\x80\x9c kann nicht ersetzt werden, da Sie nicht \xc3\xbc"
         "ber die erforderlichen Berechtigungen verf\xc3\xbcgen."},
        {"fr", "Save", "Enregistrer"},
        {"fr", "Velmar Zentor Closed Captions", "Velmar Zentor Sous-titres"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.language) + ": " + c.key);
        CScopedLanguage language(c.language);
        EXPECT_EQ(Localized(c.key), c.text);
        std::unique_ptr<char[]> owned(GetLocalizedCFString(c.key, kTessarinNoteBundleId, nullptr));
        ASSERT_NE(owned, nullptr);
        EXPECT_STREQ(owned.get(), c.text);
    }
}

TEST(LocalizedString, MissingEmptyAndNullKeys)
{
    CScopedLanguage german("de");
    EXPECT_EQ(Localized("No such text in any catalogue"), "No such text in any catalogue");
    // The empty msgid is the catalogue's header, which must never be shown as a text.
    EXPECT_EQ(Localized(""), "");
    std::unique_ptr<char[]> empty(GetLocalizedCFString("", kTessarinNoteBundleId, nullptr));
    ASSERT_NE(empty, nullptr);
    EXPECT_STREQ(empty.get(), "");
    EXPECT_EQ(GetLocalizedString(nullptr, kTessarinNoteBundleId, nullptr), "");
    EXPECT_EQ(GetLocalizedCFString(nullptr, kTessarinNoteBundleId, nullptr), nullptr);
}

TEST(LocalizedString, OtherBundlesAndTables)
{
    CScopedLanguage german("de");
    // A bundle that is not loaded: no owned string at all; the plain lookup gives the key.
    EXPECT_EQ(GetLocalizedCFString("Save", "com.example.other", nullptr), nullptr);
    EXPECT_EQ(GetLocalizedString("Save", "com.example.other", nullptr), "Save");
    // The program's own catalogue (no bundle named) is not the plug-in's.
    EXPECT_EQ(GetLocalizedString("Save", nullptr, nullptr), "Save");
    // The plug-in has only its default table.
    EXPECT_EQ(GetLocalizedString("Save", kTessarinNoteBundleId, "Localizable"), "Speichern");
    EXPECT_EQ(GetLocalizedString("Save", kTessarinNoteBundleId, "Other"), "Save");
}

TEST(LocalizedString, EnvironmentLanguageListComesFirst)
{
    CScopedLanguage german("de");
    if (!german.RealLocale()) GTEST_SKIP() << "de_DE.UTF-8 missing; run scripts/setup.sh";
    setenv("LANGUAGE", "fr:de", 1);
    ++_nl_msg_cat_cntr;
    EXPECT_EQ(Localized("Publish"), "Publier");
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
