// CHostSinkLog: a host sink that writes down what an instance tells its host, one line per
// call ("NeedSave 1", "RemoteChange", ...). Main thread only.
#pragma once

#include "tessarinnote/notedata.h"

#include <string>
#include <vector>

class CHostSinkLog final : public INoteHostSink {
public:
    void NeedSaveChanged(signed char needSave) override { Add("NeedSave", needSave); }
    void SaveEnabledChanged(int enabled) override { Add("SaveEnabled", enabled); }
    void HasContentChanged(int hasContent) override { Add("HasContent", hasContent); }
    void RemoteChangeApplied() override { m_vecCalls.push_back("RemoteChange"); }
    void RemoteTextApplied(int reserved) override { Add("RemoteText", reserved); }

    std::vector<std::string> m_vecCalls;

private:
    void Add(const char* what, int value) { m_vecCalls.push_back(what + (" " + std::to_string(value))); }
};
