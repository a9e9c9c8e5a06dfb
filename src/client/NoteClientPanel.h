// How the client speaks to its panel: the numbered messages of uiinterface.h through
// NotifyCocoaUI, with the argument types the panel expects ("bool" is one byte). A null panel
// answers 3 and does nothing, so callers need no check of their own. Main thread only.
#pragma once

#include "tessarinnote/uiinterface.h"

#include <string>

namespace notepanel {

inline long Send(void* panel, ENoteUIMessage message, void* in = nullptr, void* out = nullptr)
{
    return NotifyCocoaUI(panel, message, in, out, nullptr);
}

// Messages 2006 to 2009 and 2017's answer: one flag byte.
inline void SendFlag(void* panel, ENoteUIMessage message, bool flag)
{
    unsigned char value = flag ? 1 : 0;
    Send(panel, message, &value);
}

// Messages 2000, 2001 and 2015: one int.
inline void SendInt(void* panel, ENoteUIMessage message, int number)
{
    Send(panel, message, &number);
}

// Messages 2002 and 2003: the panel's text; "" without a panel.
inline std::string Text(void* panel, ENoteUIMessage message)
{
    std::string text;
    Send(panel, message, nullptr, &text);
    return text;
}

}  // namespace notepanel
