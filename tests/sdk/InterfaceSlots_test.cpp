// A host built from the stated tables calls the panel sink and the host sink by slot number.
// Calling each slot of a real implementation's table must reach the operation of that slot.
#include "tessarinnote/notedata.h"
#include "tessarinnote/uiinterface.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// The table a host sees: the object's first word points at slot 0.
template <typename Fn, typename Interface>
Fn Slot(Interface* object, int index)
{
    void** table = *reinterpret_cast<void***>(object);
    return reinterpret_cast<Fn>(table[index]);
}

class CUISink final : public INoteCommSinkForNoteUI {
public:
    int HandleUIMessage(int nMsg, void*, void*) override
    {
        m_nLast = nMsg;
        return 7;
    }
    int m_nLast = 0;
};

class CHostSink final : public INoteHostSink {
public:
    void NeedSaveChanged(signed char v) override { m_calls.push_back("need-save " + std::to_string(v)); }
    void SaveEnabledChanged(int v) override { m_calls.push_back("save-enabled " + std::to_string(v)); }
    void HasContentChanged(int v) override { m_calls.push_back("has-content " + std::to_string(v)); }
    void RemoteChangeApplied() override { m_calls.push_back("remote-change"); }
    void RemoteTextApplied(int v) override { m_calls.push_back("remote-text " + std::to_string(v)); }
    std::vector<std::string> m_calls;
};

TEST(InterfaceSlots, EachSlotReachesItsOperation)
{
    CUISink ui;
    INoteCommSinkForNoteUI* uiSink = &ui;
    EXPECT_EQ(7, (Slot<int (*)(INoteCommSinkForNoteUI*, int, void*, void*)>(uiSink, 0))(uiSink, 2021, nullptr, nullptr));
    EXPECT_EQ(2021, ui.m_nLast);

    CHostSink host;
    INoteHostSink* sink = &host;
    Slot<void (*)(INoteHostSink*, signed char)>(sink, 0)(sink, 1);
    Slot<void (*)(INoteHostSink*, int)>(sink, 1)(sink, 2);
    Slot<void (*)(INoteHostSink*, int)>(sink, 2)(sink, 3);
    Slot<void (*)(INoteHostSink*)>(sink, 3)(sink);
    Slot<void (*)(INoteHostSink*, int)>(sink, 4)(sink, 0);
    EXPECT_EQ(host.m_calls, (std::vector<std::string>{"need-save 1", "save-enabled 2", "has-content 3",
                                                       "remote-change", "remote-text 0"}));
}

}  // namespace
