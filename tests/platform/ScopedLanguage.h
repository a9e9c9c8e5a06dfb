// Test helper: selects the language of localised texts the way a host does, through the
// environment and setlocale(LC_ALL, ""), and goes back to the "C" locale afterwards.
#pragma once

#include <locale.h>
#include <stdlib.h>

#include <string>

// gettext keeps translations it found; bumping this counter makes it look again.
extern "C" int _nl_msg_cat_cntr;

class CScopedLanguage {
public:
    // language: "en", "de" or "fr". Uses the language's UTF-8 locale (de_DE.UTF-8, fr_FR.UTF-8,
    // which scripts/setup.sh generates); where that locale is missing, C.UTF-8 with LANGUAGE
    // set, which gettext honours just the same.
    explicit CScopedLanguage(const std::string& language)
    {
        const std::string locale = language == "de"   ? "de_DE.UTF-8"
                                   : language == "fr" ? "fr_FR.UTF-8"
                                                      : "C.UTF-8";
        unsetenv("LANGUAGE");
        setenv("LC_ALL", locale.c_str(), 1);
        m_bRealLocale = setlocale(LC_ALL, "") != nullptr;
        if (!m_bRealLocale) {
            setenv("LC_ALL", "C.UTF-8", 1);
            setenv("LANGUAGE", language.c_str(), 1);
            setlocale(LC_ALL, "");
        }
        ++_nl_msg_cat_cntr;
    }

    ~CScopedLanguage()
    {
        unsetenv("LANGUAGE");
        unsetenv("LC_ALL");
        setlocale(LC_ALL, "C");
        ++_nl_msg_cat_cntr;
    }

    CScopedLanguage(const CScopedLanguage&) = delete;
    CScopedLanguage& operator=(const CScopedLanguage&) = delete;

    // Whether the language's own locale exists on this machine.
    bool RealLocale() const { return m_bRealLocale; }

private:
    bool m_bRealLocale = false;
};
