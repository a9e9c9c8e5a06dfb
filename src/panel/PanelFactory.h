// Builds a panel controller with the port for its parent view: the Qt panel inside a QWidget*
// parent, the headless panel (announced to the host) for a null parent.
#pragma once

class NoteViewController;

NoteViewController* CreateNotePanel(void* parent);
