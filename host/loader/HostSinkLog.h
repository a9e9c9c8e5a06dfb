// CHostSinkLog: a host sink that writes down what an instance tells its host, one line per
// call ("NeedSave 1", "RemoteChange", ...). It keeps the recent calls only (at least the last
// kKeep), so a participant that runs for hours does not grow. Main thread only.
#pragma once

#include "tessarinnote/notedata.h"

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

class CHostSinkLog final : public INoteHostSink {
public:
    void NeedSaveChanged(signed char needSave) override { Add("NeedSave", needSave); }
    void SaveEnabledChanged(int enabled) override { Add("SaveEnabled", enabled); }
    void HasContentChanged(int hasContent) override { Add("HasContent", hasContent); }
    void RemoteChangeApplied() override { Keep("RemoteChange"); }
    void RemoteTextApplied(int reserved) override { Add("RemoteText", reserved); }

    static constexpr std::size_t kKeep = 4096;
    std::vector<std::string> m_vecCalls;

private:
    void Add(const char* what, int value) { Keep(what + (" " + std::to_string(value))); }
    void Keep(std::string call)
    {
        if (m_vecCalls.size() >= 2 * kKeep) m_vecCalls.erase(m_vecCalls.begin(), m_vecCalls.end() - kKeep);
        m_vecCalls.push_back(std::move(call));
    }
};
