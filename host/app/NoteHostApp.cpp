// notehost's windows, the start dialog's loop and the demo.
#include "app/NoteHostApp.h"

#include "app/ParticipantWindow.h"
#include "app/StartDialog.h"

#include <QGuiApplication>
#include <QScreen>

#include <algorithm>

namespace {

const char kDemoMeetingId[] = "demo";

}  // namespace

CNoteHostApp::CNoteHostApp(CNotePlugin& plugin) : m_rPlugin(plugin) {}

CNoteHostApp::~CNoteHostApp()
{
    for (CParticipantWindow* window : Windows()) delete window;
    RemoveInProcessAutoSaves();
}

QList<CParticipantWindow*> CNoteHostApp::Windows() const
{
    QList<CParticipantWindow*> windows;
    for (const QPointer<CParticipantWindow>& window : m_listWindows)
        if (window) windows << window.data();
    return windows;
}

CParticipantWindow* CNoteHostApp::Open(const SSessionSettings& settings, QString& error)
{
    std::string reason;
    std::shared_ptr<IMeeting> meeting = m_meetings.Open(settings, reason);
    if (!meeting) {
        error = QString::fromStdString(reason);
        return nullptr;
    }
    auto* window = new CParticipantWindow(m_rPlugin, std::move(meeting), settings);
    connect(window, &CParticipantWindow::newParticipantRequested, this, [this] { AskAndOpen(); });
    m_listWindows.removeAll(nullptr);
    m_listWindows << window;
    m_lastSettings = settings;
    window->show();
    return window;
}

CParticipantWindow* CNoteHostApp::AskAndOpen()
{
    SSessionSettings initial = m_lastSettings;
    // The first person opens a meeting and writes in it; the next one most likely reads.
    if (m_listWindows.isEmpty()) {
        initial.role = ERole::kCaptioner;
    } else {
        ++initial.nUserId;
        initial.role = ERole::kReader;
    }
    CStartDialog dialog(initial);
    while (dialog.exec() == QDialog::Accepted) {
        QString error;
        if (CParticipantWindow* window = Open(dialog.Settings(), error)) return window;
        dialog.ShowError(tr("Cannot open the meeting: %1").arg(error));
    }
    return nullptr;
}

QList<CParticipantWindow*> CNoteHostApp::OpenDemo(QString& error)
{
    struct SSeat {
        unsigned nUserId;
        ERole role;
    };
    const SSeat seats[] = {{1, ERole::kCaptioner}, {2, ERole::kReader}, {3, ERole::kReader}};
    const QRect screen = QGuiApplication::primaryScreen() ? QGuiApplication::primaryScreen()->availableGeometry()
                                                          : QRect(0, 0, 1600, 900);
    const int width = std::max(360, std::min(520, screen.width() / 3 - 12));
    QList<CParticipantWindow*> windows;
    int column = 0;
    for (const SSeat& seat : seats) {
        SSessionSettings settings;
        settings.strMeetingId = kDemoMeetingId;
        settings.nUserId = seat.nUserId;
        settings.role = seat.role;
        settings.notepadType = NOTETAKER_CLOSED_CAPTIONS;
        CParticipantWindow* window = Open(settings, error);
        if (!window) return windows;
        window->setGeometry(screen.x() + 8 + column++ * (width + 8), screen.y() + 40, width,
                            std::min(560, screen.height() - 80));
        windows << window;
    }
    // The person at the demo types captions: the captioner's window has the keyboard.
    windows.first()->activateWindow();
    windows.first()->raise();
    return windows;
}
