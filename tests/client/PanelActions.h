// What client tests do with a client's headless panel beyond the harness: read the text as the
// client reads it, set the length limit, and press Return in the captions notepad.
#pragma once

#include "ClientHarness.h"

#include "panel/NoteViewController.h"
#include "tessarinnote/uiinterface.h"

#include <string>

// The panel text with CR LF line ends, as the client reads it (2002).
inline std::string CrLfText(CNoteClient& client)
{
    std::string text;
    NotifyCocoaUI(client.GetPanel(), NOTEUI_GET_TEXT_CRLF, nullptr, &text, nullptr);
    return text;
}

inline void SetPanelMaxLength(CNoteClient& client, int maxLength)
{
    NotifyCocoaUI(client.GetPanel(), NOTEUI_SET_MAX_LENGTH, &maxLength, nullptr, nullptr);
}

// The captioner presses Return with the caret at the end of the text: the panel commits the
// text typed so far and sends it with bPressEnter set, then the view takes the line end, which
// is committed at once. The controller has no key handling of its own, so the commits are
// made by setting the same text again (2005 commits a caption's whole text).
inline void PressReturnAtEnd(CClientHarness& harness, CNoteClient& client)
{
    auto* panel = static_cast<NoteViewController*>(client.GetPanel());
    std::string text = panel->View().Text();
    NotifyCocoaUI(panel, NOTEUI_SET_TEXT, const_cast<char*>(text.c_str()), nullptr, nullptr);
    harness.Publish(client, true);
    text = panel->View().Text() + "\n";
    NotifyCocoaUI(panel, NOTEUI_SET_TEXT, const_cast<char*>(text.c_str()), nullptr, nullptr);
    client.HandleUIMessage(NOTEUI_TEXT_CHANGED, nullptr, nullptr);
    harness.Settle();
}

// The captioner types line at the end of the text and presses Return.
inline void TypeLine(CClientHarness& harness, CNoteClient& client, const std::string& line)
{
    harness.Type(client, harness.PanelText(client) + line);
    PressReturnAtEnd(harness, client);
}
