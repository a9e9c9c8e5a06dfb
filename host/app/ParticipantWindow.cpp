// One person's window: joining and leaving, menus, status bar, reading comfort.
#include "app/ParticipantWindow.h"

#include "conference/RedisConference.h"
#include "loader/PluginParticipant.h"

#include <QAction>
#include <QCloseEvent>
#include <QEventLoop>
#include <QFileDialog>
#include <QLabel>
#include <QLocale>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QStackedWidget>
#include <QStandardPaths>
#include <QStatusBar>
#include <QTimer>

#include <algorithm>
#include <cstdlib>

namespace {

// Points added or taken per zoom step, and how far zoom goes either way.
const int kZoomPoints = 2;
const int kZoomStepsMin = -4;
const int kZoomStepsMax = 20;
// The plug-in's tick: it takes the panel's typing in (and marks it for the auto-save) once a tick.
const qint64 kPluginTickMs = 50;

QString ConnectionText(CParticipantWindow::EConnection state)
{
    switch (state) {
    case CParticipantWindow::kJoining: return QObject::tr("Joining...");
    case CParticipantWindow::kConnected: return QObject::tr("Connected");
    case CParticipantWindow::kLost: return QObject::tr("Connection lost");
    case CParticipantWindow::kBack: return QObject::tr("Connection back");
    case CParticipantWindow::kShutOut: return QObject::tr("Shut out: was the meeting deleted?");
    default: return QObject::tr("Not in the meeting");
    }
}

QString NotepadText(NOTETAKERTYPE type)
{
    switch (type) {
    case NOTETAKER_ALL_PARTICIPANTS: return QObject::tr("private notes");
    case NOTETAKER_SINGLE: return QObject::tr("published notes");
    default: return QObject::tr("closed captions");
    }
}

QLabel* NewStatusLabel(QWidget* parent, const char* name, const QString& accessibleName)
{
    auto* label = new QLabel(parent);
    label->setObjectName(QString::fromLatin1(name));
    label->setAccessibleName(accessibleName);
    label->setContentsMargins(6, 0, 6, 0);
    return label;
}

}  // namespace

CParticipantWindow::CParticipantWindow(CNotePlugin& plugin, std::shared_ptr<IMeeting> meeting,
                                       const SSessionSettings& settings, QWidget* parent)
    : QMainWindow(parent), m_rPlugin(plugin), m_pMeeting(std::move(meeting)), m_settings(settings),
      m_strAutoSavePath(AutoSavePathFor(settings))
{
    setAttribute(Qt::WA_DeleteOnClose);
    const QString title = tr("%1 (user %2) in %3 - notehost")
                              .arg(RoleName(settings.role))
                              .arg(settings.nUserId)
                              .arg(QString::fromStdString(settings.strMeetingId));
    setWindowTitle(title);
    setAccessibleName(title);
    resize(520, 420);

    m_pPages = new QStackedWidget(this);
    m_pPanelHost = new QWidget(m_pPages);
    m_pPanelHost->setObjectName(QStringLiteral("PanelHost"));
    auto* leftPage = new QLabel(tr("You are not in the meeting.\nMeeting > Rejoin joins it again."), m_pPages);
    leftPage->setAlignment(Qt::AlignCenter);
    m_pPages->addWidget(m_pPanelHost);
    m_pPages->addWidget(leftPage);
    setCentralWidget(m_pPages);

    BuildMenus();
    BuildStatusBar();
    Join();
}

CParticipantWindow::~CParticipantWindow()
{
    // The instance goes before the panel area it was built in. No loop may run here.
    LeaveAfterTyping(false);
}

void CParticipantWindow::BuildMenus()
{
    QMenu* file = menuBar()->addMenu(tr("&File"));
    file->addAction(tr("&New Participant..."), QKeySequence::New, this,
                    &CParticipantWindow::newParticipantRequested);
    file->addSeparator();
    m_listPanelActions << file->addAction(tr("&Save"), QKeySequence::Save, this, &CParticipantWindow::Save);
    m_listPanelActions << file->addAction(tr("Save &As..."), QKeySequence::SaveAs, this,
                                          &CParticipantWindow::SaveAs);
    m_listPanelActions << file->addAction(tr("&Export to Folder..."), QKeySequence(tr("Ctrl+E")), this,
                                          &CParticipantWindow::ExportToFolder);
    file->addSeparator();
    file->addAction(tr("&Close Window"), QKeySequence::Close, this, &QWidget::close);

    QMenu* meeting = menuBar()->addMenu(tr("&Meeting"));
    m_pPublishAction = meeting->addAction(tr("&Publish"), QKeySequence(tr("Ctrl+Shift+P")), this,
                                          &CParticipantWindow::Publish);
    m_pPublishAction->setObjectName(QStringLiteral("PublishAction"));
    meeting->addSeparator();
    m_pLeaveAction = meeting->addAction(tr("&Leave"), QKeySequence(tr("Ctrl+Shift+L")), this,
                                        &CParticipantWindow::Leave);
    meeting->addAction(tr("&Rejoin"), QKeySequence(tr("Ctrl+Shift+J")), this, &CParticipantWindow::Rejoin);
    m_pLossAction = meeting->addAction(tr("Simulate &Connection Loss"), this,
                                       &CParticipantWindow::SimulateConnectionLoss);
    connect(meeting, &QMenu::aboutToShow, this, &CParticipantWindow::UpdateActions);

    QMenu* view = menuBar()->addMenu(tr("&View"));
    QAction* zoomIn = view->addAction(tr("Zoom &In"), this, &CParticipantWindow::ZoomIn);
    zoomIn->setShortcuts({QKeySequence::ZoomIn, QKeySequence(tr("Ctrl+="))});
    view->addAction(tr("Zoom &Out"), QKeySequence::ZoomOut, this, &CParticipantWindow::ZoomOut);
    view->addAction(tr("&Actual Size"), QKeySequence(tr("Ctrl+0")), this, &CParticipantWindow::ZoomReset);
    view->addSeparator();
    QAction* contrast = view->addAction(tr("&High Contrast"), QKeySequence(tr("Ctrl+Shift+H")), this,
                                        &CParticipantWindow::SetHighContrast);
    contrast->setCheckable(true);
    contrast->setObjectName(QStringLiteral("HighContrastAction"));
}

void CParticipantWindow::BuildStatusBar()
{
    m_pMeetingLabel = NewStatusLabel(this, "MeetingStatus", tr("Meeting"));
    m_pRoleLabel = NewStatusLabel(this, "RoleStatus", tr("Role"));
    m_pConnectionLabel = NewStatusLabel(this, "ConnectionStatus", tr("Connection"));
    m_pLengthLabel = NewStatusLabel(this, "LengthStatus", tr("Text length"));
    const QString conference =
        m_settings.conference == EConference::kRedis ? tr("Redis") : tr("in-process");
    // Short texts, so that a narrow window still shows all four; the rest is in the tool tips.
    m_pMeetingLabel->setText(tr("Meeting %1").arg(QString::fromStdString(m_settings.strMeetingId)));
    m_pMeetingLabel->setToolTip(tr("The %1 conference").arg(conference));
    m_pRoleLabel->setText(RoleName(m_settings.role));
    m_pRoleLabel->setToolTip(tr("Notepad: %1").arg(NotepadText(m_settings.notepadType)));
    statusBar()->addWidget(m_pMeetingLabel);
    statusBar()->addWidget(m_pRoleLabel);
    statusBar()->addWidget(m_pConnectionLabel);
    statusBar()->addPermanentWidget(m_pLengthLabel);
}

void* CParticipantWindow::Instance() const
{
    return m_pParticipant ? m_pParticipant->Instance() : nullptr;
}

void CParticipantWindow::FindPanel()
{
    m_pView = nullptr;
    m_pText = nullptr;
    // A panel of an earlier join may linger until the loop deletes it; it is hidden by then.
    for (QWidget* view : m_pPanelHost->findChildren<QWidget*>(QStringLiteral("NoteView"), Qt::FindDirectChildrenOnly))
        if (!view->isHidden()) m_pView = view;
    if (m_pView) m_pText = m_pView->findChild<QPlainTextEdit*>(QStringLiteral("NoteTextView"));
    if (!m_pText) return;
    connect(m_pText, &QPlainTextEdit::textChanged, this, &CParticipantWindow::UpdateLength);
    connect(m_pText, &QPlainTextEdit::textChanged, this, [this] { m_lastTyping.start(); });
}

void CParticipantWindow::Join()
{
    if (m_pParticipant) return;
    const unsigned generation = ++m_nGeneration;
    m_pPages->setCurrentWidget(m_pPanelHost);
    SParticipantSetup setup;
    setup.nUserId = m_settings.nUserId;
    setup.notepadType = m_settings.notepadType;
    setup.nUserType = UserTypeOf(m_settings.role);
    setup.strAutoSavePath = m_strAutoSavePath;
    setup.pParentView = m_pPanelHost;
    m_pParticipant = std::make_unique<CPluginParticipant>(m_rPlugin, *m_pMeeting, setup);
    // The conference calls this on the main loop; a window gone or rejoined since ignores it.
    QPointer<CParticipantWindow> self(this);
    m_pMeeting->SetMeetingLostHandler(m_pParticipant->Service(), [self, generation](int kind) {
        if (self && self->m_nGeneration == generation) self->OnMeetingLost(kind);
    });

    FindPanel();
    const int zoom = m_nZoomSteps;
    m_nZoomSteps = 0;
    Zoom(zoom);
    if (m_bHighContrast) SetHighContrast(true);
    UpdateLength();
    if (m_settings.conference == EConference::kRedis) {
        WaitUntilLive();
        WatchForShutOut();
        return;
    }
    // In process, the handshake is done within a few turns of the loop, before anyone types.
    SetConnection(kConnected);
    if (m_pText) m_pText->setFocus();
}

// The connections retry a refused password for ever; nobody gets in again without an
// administrator, so the window leaves (auto-saving notes) and says why.
void CParticipantWindow::WatchForShutOut()
{
    if (!m_pShutOutTimer) {
        m_pShutOutTimer = new QTimer(this);
        m_pShutOutTimer->setInterval(250);
        connect(m_pShutOutTimer, &QTimer::timeout, this, [this] {
            std::string reason;
            if (!m_pParticipant || !RedisMeetingRefusesUs(*m_pMeeting, &reason)) return;
            Leave();
            SetConnection(kShutOut);
            m_pConnectionLabel->setToolTip(QString::fromStdString(reason));
        });
    }
    m_pShutOutTimer->start();
}

void CParticipantWindow::WaitUntilLive()
{
    SetConnection(kJoining);
    m_pPanelHost->setEnabled(false);
    m_bLiveSeen = false;
    if (!m_pJoinTimer) {
        m_pJoinTimer = new QTimer(this);
        m_pJoinTimer->setInterval(20);
        connect(m_pJoinTimer, &QTimer::timeout, this, [this] {
            if (!m_pParticipant) return m_pJoinTimer->stop();
            const bool live = IsRedisParticipantLive(*m_pMeeting, m_pParticipant->Service());
            if (!live || !m_bLiveSeen) {
                m_bLiveSeen = live;
                return;
            }
            m_pJoinTimer->stop();
            m_pPanelHost->setEnabled(true);
            if (m_eConnection == kJoining) SetConnection(kConnected);
            if (m_pText) m_pText->setFocus();
        });
    }
    m_pJoinTimer->start();
}

void CParticipantWindow::Leave()
{
    LeaveAfterTyping(true);
}

void CParticipantWindow::LeaveAfterTyping(bool waitForTick)
{
    if (!m_pParticipant || m_bLeaving) return;
    // Told of the loss before a tick has seen the last typing, the plug-in would auto-save
    // without it (or not at all). Two ticks after the typing, one has run: its timer is due
    // before ours. No user input meanwhile, so nothing more is typed and Leave is not asked again.
    const qint64 sinceTyping = m_lastTyping.isValid() ? m_lastTyping.elapsed() : 2 * kPluginTickMs;
    if (waitForTick && sinceTyping < 2 * kPluginTickMs) {
        m_bLeaving = true;
        QEventLoop tick;
        QTimer::singleShot(int(2 * kPluginTickMs - sinceTyping), &tick, &QEventLoop::quit);
        tick.exec(QEventLoop::ExcludeUserInputEvents);
        m_bLeaving = false;
        if (!m_pParticipant) return;
    }
    ++m_nGeneration;
    m_pMeeting->SetMeetingLostHandler(m_pParticipant->Service(), nullptr);
    // Notes may hold text only this person has (private notes, a note taker's unpublished
    // draft): leaving tells the plug-in the meeting is lost, so it auto-saves them for Rejoin.
    // Captions are all in the meeting, which gives them back on Rejoin; a loss notice there
    // would stay in this person's captions alone. A connection already down has told it.
    if (m_settings.notepadType != NOTETAKER_CLOSED_CAPTIONS && m_eConnection != kLost)
        m_rPlugin.NoteMeetingLost(Instance(), 1);
    if (m_pText) disconnect(m_pText, nullptr, this, nullptr);
    m_pText = nullptr;
    m_pView = nullptr;
    m_pParticipant.reset();
    if (m_pJoinTimer) m_pJoinTimer->stop();
    if (m_pShutOutTimer) m_pShutOutTimer->stop();
    m_pPanelHost->setEnabled(true);
    m_pPages->setCurrentIndex(1);
    SetConnection(kLeft);
    UpdateLength();
}

void CParticipantWindow::Rejoin()
{
    Leave();
    Join();
}

void CParticipantWindow::SimulateConnectionLoss()
{
    if (!m_pParticipant || m_eConnection == kLost) return;
    IArmService* service = m_pParticipant->Service();
    m_pMeeting->SetConnected(service, false);
    const unsigned generation = m_nGeneration;
    QTimer::singleShot(m_nOutageMs, this, [this, generation, service] {
        if (m_nGeneration == generation) m_pMeeting->SetConnected(service, true);
    });
}

void CParticipantWindow::OnMeetingLost(int kind)
{
    // As the conference contract asks: the plug-in first, then the window.
    m_rPlugin.NoteMeetingLost(Instance(), kind);
    SetConnection(kind == 1 ? kLost : kBack);
}

void CParticipantWindow::SetConnection(EConnection state)
{
    m_eConnection = state;
    m_pConnectionLabel->setText(ConnectionText(state));
    m_pConnectionLabel->setToolTip(QString());
    UpdateActions();
}

void CParticipantWindow::UpdateLength()
{
    const int maximum = m_pText && m_pText->property("maxLength").toInt() > 0
                            ? m_pText->property("maxLength").toInt()
                            : MaxTextLengthOf(m_settings.notepadType);
    // The document counts the paragraph end after the last line as a character too.
    const int length = m_pText ? m_pText->document()->characterCount() - 1 : 0;
    const QLocale locale;
    m_pLengthLabel->setText(tr("%1 / %2").arg(locale.toString(length), locale.toString(maximum)));
    if (m_settings.notepadType == NOTETAKER_SINGLE && m_settings.role != ERole::kReader) UpdateActions();
}

void CParticipantWindow::UpdateActions()
{
    const bool joined = m_pParticipant != nullptr;
    for (QAction* action : m_listPanelActions) action->setEnabled(joined);
    m_pLeaveAction->setEnabled(joined);
    m_pLossAction->setEnabled(joined && m_eConnection != kLost);
    // Publishing by hand is the note taker's; captions publish line by line.
    m_pPublishAction->setEnabled(joined && m_settings.notepadType == NOTETAKER_SINGLE &&
                                 m_rPlugin.NoteConfig(Instance(), 2, 0, 0, nullptr) != 0);
}

void CParticipantWindow::Save()
{
    if (m_pParticipant) m_rPlugin.NoteFileSave(Instance());
}

void CParticipantWindow::SaveAs()
{
    if (m_pParticipant) m_rPlugin.NoteFileSaveAs(Instance());
}

void CParticipantWindow::ExportToFolder()
{
    if (!m_pParticipant) return;
    const QString folder = QFileDialog::getExistingDirectory(
        this, tr("Export to Folder"), QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation));
    // The dialog's loop may have seen the window leave.
    if (!folder.isEmpty() && m_pParticipant)
        m_rPlugin.NoteSaveFileToFolder(Instance(), folder.toUtf8().constData());
}

void CParticipantWindow::Publish()
{
    if (!m_pParticipant) return;
    m_rPlugin.NoteConfig(Instance(), 3, 0, 0, nullptr);
    UpdateActions();
}

void CParticipantWindow::Zoom(int steps)
{
    const int target = std::clamp(m_nZoomSteps + steps, kZoomStepsMin, kZoomStepsMax);
    if (m_pText && target != m_nZoomSteps) {
        const char* slot = target > m_nZoomSteps ? "zoomIn" : "zoomOut";
        QMetaObject::invokeMethod(m_pText, slot, Q_ARG(int, kZoomPoints * std::abs(target - m_nZoomSteps)));
    }
    m_nZoomSteps = target;
}

void CParticipantWindow::ZoomIn()
{
    Zoom(1);
}

void CParticipantWindow::ZoomOut()
{
    Zoom(-1);
}

void CParticipantWindow::ZoomReset()
{
    if (m_pText) QMetaObject::invokeMethod(m_pText, "zoomReset");
    m_nZoomSteps = 0;
}

void CParticipantWindow::SetHighContrast(bool on)
{
    m_bHighContrast = on;
    if (m_pView) QMetaObject::invokeMethod(m_pView, "setHighContrast", Q_ARG(bool, on));
    statusBar()->setStyleSheet(on ? QStringLiteral("QStatusBar, QStatusBar QLabel { background: black; color: #FFFF66; }")
                                  : QString());
}

void CParticipantWindow::closeEvent(QCloseEvent* event)
{
    Leave();
    event->accept();
}
