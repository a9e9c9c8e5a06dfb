// Answers headless panels' save dialogs for as long as it lives: with a path, or cancelled
// (the default). Records the titles and default names the dialogs showed.
#pragma once

#include "tessarinnote/notehostui.h"

#include <string>
#include <vector>

class CScopedSaveChooser {
public:
    explicit CScopedSaveChooser(bool confirm = false, const std::string& path = "")
    {
        Answer(confirm, path);
        NoteHostUI_SetSaveChooser(&Choose, this);
    }
    ~CScopedSaveChooser() { NoteHostUI_SetSaveChooser(nullptr, nullptr); }
    CScopedSaveChooser(const CScopedSaveChooser&) = delete;
    CScopedSaveChooser& operator=(const CScopedSaveChooser&) = delete;

    void Answer(bool confirm, const std::string& path)
    {
        m_bConfirm = confirm;
        m_strPath = path;
    }

    std::vector<std::string> m_vecTitles;
    std::vector<std::string> m_vecDefaultNames;

private:
    static const char* Choose(void* context, const char* title, const char* defaultName)
    {
        auto* self = static_cast<CScopedSaveChooser*>(context);
        self->m_vecTitles.push_back(title);
        self->m_vecDefaultNames.push_back(defaultName);
        return self->m_bConfirm ? self->m_strPath.c_str() : nullptr;
    }

    bool m_bConfirm = false;
    std::string m_strPath;
};
