// CParticipantWindow: one person in one meeting: a main window with the plug-in's panel in it,
// the person's menus and a status bar. The plug-in instance is created with the window's panel
// area as its parent view, so the plug-in builds its Qt panel there; the window reaches the
// panel only through the plug-in's exported functions and the panel widgets' object names and
// slots (NoteView, NoteTextView, zoomIn, zoomOut, zoomReset, setHighContrast).
//
// Leaving notes ends the instance as a lost meeting would end it (the plug-in auto-saves into
// the session's auto-save file), so Rejoin, a new instance with the same file, gets the notes
// back; captions come back from the meeting itself.
// Everything runs on the main loop, which the plug-in and the conference share with Qt.
#pragma once

#include "app/SessionSettings.h"

#include <QElapsedTimer>
#include <QMainWindow>
#include <QPlainTextEdit>
#include <QPointer>

#include <memory>

class CNotePlugin;
class CPluginParticipant;
class IMeeting;
class QAction;
class QLabel;
class QStackedWidget;
class QTimer;

class CParticipantWindow : public QMainWindow {
    Q_OBJECT
public:
    // kJoining: a Redis meeting's handshake is under way; the panel takes no typing until the
    // plug-in receives what is put into the meeting, or the first lines would be dropped.
    // kShutOut: the server refuses our credentials (the meeting was deleted); the window left.
    enum EConnection { kJoining, kConnected, kLost, kBack, kLeft, kShutOut };

    // Joins at once. REQUIRES: plugin outlives the window.
    CParticipantWindow(CNotePlugin& plugin, std::shared_ptr<IMeeting> meeting,
                       const SSessionSettings& settings, QWidget* parent = nullptr);
    ~CParticipantWindow() override;

    const SSessionSettings& Settings() const { return m_settings; }
    bool IsJoined() const { return m_pParticipant != nullptr; }
    EConnection Connection() const { return m_eConnection; }
    // The plug-in's text widget and container while joined, else null.
    QPlainTextEdit* PanelText() const { return m_pText; }
    QWidget* PanelView() const { return m_pView; }
    // How long Simulate connection loss keeps the connection down.
    void SetOutageMilliseconds(int ms) { m_nOutageMs = ms; }

public slots:
    void Join();
    void Leave();
    void Rejoin();
    void SimulateConnectionLoss();
    void Save();
    void SaveAs();
    void ExportToFolder();
    void Publish();
    void ZoomIn();
    void ZoomOut();
    void ZoomReset();
    void SetHighContrast(bool on);

signals:
    // File > New participant: the application asks for another window's settings.
    void newParticipantRequested();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void BuildMenus();
    void BuildStatusBar();
    void FindPanel();
    void OnMeetingLost(int kind);
    void WaitUntilLive();
    void WatchForShutOut();
    void SetConnection(EConnection state);
    void UpdateLength();
    // Leave, optionally after the plug-in's next tick has seen the last typing.
    void LeaveAfterTyping(bool waitForTick);
    void UpdateActions();
    void Zoom(int steps);
    void* Instance() const;

    CNotePlugin& m_rPlugin;
    std::shared_ptr<IMeeting> m_pMeeting;
    SSessionSettings m_settings;
    std::string m_strAutoSavePath;
    std::unique_ptr<CPluginParticipant> m_pParticipant;
    // Each join and leave starts a new generation; callbacks of an older one are stale.
    unsigned m_nGeneration = 0;
    EConnection m_eConnection = kLeft;
    int m_nOutageMs = 3000;
    QTimer* m_pJoinTimer = nullptr;
    QTimer* m_pShutOutTimer = nullptr;
    bool m_bLiveSeen = false;  // live at the last look: what the conference posted has run since
    int m_nZoomSteps = 0;
    bool m_bHighContrast = false;
    bool m_bLeaving = false;
    QElapsedTimer m_lastTyping;  // since the panel's text last changed

    QStackedWidget* m_pPages = nullptr;
    QWidget* m_pPanelHost = nullptr;
    QPointer<QWidget> m_pView;
    QPointer<QPlainTextEdit> m_pText;
    QLabel* m_pMeetingLabel = nullptr;
    QLabel* m_pRoleLabel = nullptr;
    QLabel* m_pConnectionLabel = nullptr;
    QLabel* m_pLengthLabel = nullptr;
    QAction* m_pLeaveAction = nullptr;
    QAction* m_pPublishAction = nullptr;
    QAction* m_pLossAction = nullptr;
    QList<QAction*> m_listPanelActions;  // need a joined panel
};
