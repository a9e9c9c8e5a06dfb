// CNoteHostApp: notehost's windows and what they share: the loaded plug-in and the meetings.
// It opens a participant's window from settings (the start dialog's, or the demo's) and keeps
// the windows that are open; the demo is one in-process closed-captions meeting with a
// captioner's window and two readers' windows side by side. Main thread only; needs a
// QApplication.
#pragma once

#include "app/MeetingDirectory.h"
#include "app/SessionSettings.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

class CNotePlugin;
class CParticipantWindow;

class CNoteHostApp : public QObject {
    Q_OBJECT
public:
    // REQUIRES: plugin is loaded and outlives the application object.
    explicit CNoteHostApp(CNotePlugin& plugin);
    // Closes every window (each instance leaves), then deletes this process's in-process
    // auto-save files.
    ~CNoteHostApp() override;

    // A shown window of a participant with these settings; null, with the reason in error,
    // when the meeting cannot be opened.
    CParticipantWindow* Open(const SSessionSettings& settings, QString& error);
    // Asks for settings with the start dialog (again after a meeting that cannot be opened)
    // and opens the window; null when the person cancels.
    CParticipantWindow* AskAndOpen();
    // The demo meeting's windows: the captioner's first, then the two readers'.
    QList<CParticipantWindow*> OpenDemo(QString& error);

    QList<CParticipantWindow*> Windows() const;

private:
    CNotePlugin& m_rPlugin;
    CMeetingDirectory m_meetings;
    QList<QPointer<CParticipantWindow>> m_listWindows;
    SSessionSettings m_lastSettings;
};
