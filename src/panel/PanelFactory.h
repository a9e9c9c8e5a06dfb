// Chooses the panel's text-view port: the Qt panel inside a QWidget* parent, the headless
// panel for a null parent.
#pragma once

#include "panel/NoteTextViewPort.h"

#include <memory>

std::unique_ptr<INoteTextViewPort> CreatePanelView(void* parent);
