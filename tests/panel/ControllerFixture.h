// A panel controller on a headless view, with a sink that records what the panel sends to the
// client, for the panel's rule tests.
#pragma once

#include "panel/HeadlessTextView.h"
#include "panel/NoteViewController.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

// Records what the panel sends to the client.
class CRecordingUISink final : public INoteCommSinkForNoteUI {
public:
    struct SCall {
        int nMsg;
        int nPressEnter;  // -1 without an in byte
    };
    int HandleUIMessage(int nMsg, void* pIn, void* pOut) override
    {
        m_vecCalls.push_back({nMsg, pIn ? *static_cast<unsigned char*>(pIn) : -1});
        if (nMsg == NOTEUI_QUERY_NEED_SAVE && pOut) *static_cast<unsigned char*>(pOut) = m_nNeedSave;
        return 0;
    }
    std::vector<SCall> m_vecCalls;
    unsigned char m_nNeedSave = 0;  // the answer to 2019
};

class ControllerTest : public ::testing::Test {
protected:
    ControllerTest() : m_controller(std::unique_ptr<INoteTextViewPort>(m_view = new CHeadlessTextView))
    {
        m_view->Attach(m_controller);
    }

    long Send(unsigned message, void* in = nullptr, void* out = nullptr)
    {
        return m_controller.OnReceiveMessage(message, in, out, nullptr);
    }
    void SetInt(unsigned message, int value) { Send(message, &value); }
    void SetFlag(unsigned message, bool value)
    {
        unsigned char flag = value ? 1 : 0;
        Send(message, &flag);
    }
    std::string Get(unsigned message)
    {
        std::string text = "stale";
        Send(message, nullptr, &text);
        return text;
    }
    // The caption notepad with a limit, its text committed by the client.
    void Captions(int maxLen, const char* committed)
    {
        SetInt(NOTEUI_SET_NOTEPAD_TYPE, 3);
        SetInt(NOTEUI_SET_MAX_LENGTH, maxLen);
        Send(NOTEUI_SET_TEXT, const_cast<char*>(committed));
    }

    CHeadlessTextView* m_view;
    NoteViewController m_controller;
    CRecordingUISink m_sink;
};
