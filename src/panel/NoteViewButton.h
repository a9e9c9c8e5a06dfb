// NoteViewButton: the panel's Publish and Save buttons, the host's colour button as it is.
#pragma once

#include "tessarinnote/notehostuiwidgets.h"

class NoteViewButton : public TessarinColorButton {
public:
    using TessarinColorButton::TessarinColorButton;
};
