// The panel by parent view.
#include "panel/PanelFactory.h"

#include "panel/HeadlessTextView.h"
#include "panel/NoteViewController.h"
#include "panel/QtTextViewPort.h"

#include <QApplication>
#include <QWidget>

#include <memory>

NoteViewController* CreateNotePanel(void* parent)
{
    // Widgets need a QApplication; a parent handed over without one gets the headless panel
    // rather than a crash.
    if (parent && qobject_cast<QApplication*>(QCoreApplication::instance())) {
        auto* view = new CQtTextViewPort(static_cast<QWidget*>(parent));
        auto* controller = new NoteViewController(std::unique_ptr<INoteTextViewPort>(view));
        view->Attach(*controller);
        return controller;
    }
    auto* view = new CHeadlessTextView;
    auto* controller = new NoteViewController(std::unique_ptr<INoteTextViewPort>(view));
    view->Attach(*controller);
    return controller;
}
