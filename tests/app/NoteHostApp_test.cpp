// notehost's windows in one process on the in-process conference: what its menus, status bar
// and auto-save folder add to the plug-in's panel, driven with real key events.
#include "app/NoteHostApp.h"
#include "app/ParticipantWindow.h"
#include "app/StartDialog.h"
#include "loader/NotePlugin.h"
#include "tessarinnote/notehostui.h"

#include "RedisTestServer.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include <stdlib.h>
#include <unistd.h>

namespace {

// One QApplication for the run, over a data folder of its own (the auto-save files go there).
int g_argc = 1;
char g_name[] = "notehost_app_tests";
char* g_argv[] = {g_name, nullptr};
std::unique_ptr<QApplication> g_app;
char g_dataHome[] = "/tmp/notehostappXXXXXX";

struct SApplicationEnd : ::testing::Environment {
    void TearDown() override
    {
        g_app.reset();
        QDir(g_dataHome).removeRecursively();
    }
};
const auto* const g_end = ::testing::AddGlobalTestEnvironment(new SApplicationEnd);

bool PumpUntil(const std::function<bool()>& done) { return QTest::qWaitFor(done, 5000); }
// A person acts a moment after their window opens, when the plug-in has joined the meeting.
void Settle() { QTest::qWait(300); }
QString Shown(CParticipantWindow* w) { return w->PanelText() ? w->PanelText()->toPlainText() : QString("(no panel)"); }
QString Status(CParticipantWindow* w, const char* label) { return w->findChild<QLabel*>(label)->text(); }

// Keyboard focus in the window's text, as a click into it gives.
void Focus(CParticipantWindow* w)
{
    w->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(w));
    w->PanelText()->setFocus();
    ASSERT_TRUE(PumpUntil([&] { return w->PanelText()->hasFocus(); }));
}

class NoteHostApp : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!g_app) {
            ASSERT_TRUE(mkdtemp(g_dataHome));
            setenv("XDG_DATA_HOME", g_dataHome, 1);
            g_app = std::make_unique<QApplication>(g_argc, g_argv);
            QApplication::setApplicationName("notehost");
        }
        std::string error;
        ASSERT_TRUE(m_plugin.Load(CNotePlugin::BuiltPath(), error)) << error;
        NoteHostUI_SetTraceCallback([](void*, const char*, const char*) {}, nullptr);
        m_pHost = std::make_unique<CNoteHostApp>(m_plugin);
    }
    void TearDown() override
    {
        m_pHost.reset();
        NoteHostUI_SetTraceCallback(nullptr, nullptr);
    }

    CParticipantWindow* Open(const char* meeting, unsigned user, ERole role, NOTETAKERTYPE type)
    {
        SSessionSettings settings;
        settings.strMeetingId = meeting;
        settings.nUserId = user;
        settings.role = role;
        settings.notepadType = type;
        return Open(settings);
    }
    CParticipantWindow* Open(const SSessionSettings& settings)
    {
        QString error;
        CParticipantWindow* w = m_pHost->Open(settings, error);
        EXPECT_TRUE(w) << error.toStdString();
        Settle();
        return w;
    }
    static void Say(CParticipantWindow* w, const char* line)
    {
        Focus(w);
        QTest::keyClicks(w->PanelText(), line);
        QTest::keyClick(w->PanelText(), Qt::Key_Return);
    }

    CNotePlugin m_plugin;
    std::unique_ptr<CNoteHostApp> m_pHost;
};

TEST_F(NoteHostApp, TheDemoCaptionerTypesAndBothReaderWindowsShowTheLine)
{
    QString error;
    const QList<CParticipantWindow*> demo = m_pHost->OpenDemo(error);
    ASSERT_EQ(3, demo.size()) << error.toStdString();
    Settle();
    EXPECT_EQ("Captioner", Status(demo[0], "RoleStatus"));
    Say(demo[0], "Hello");
    for (CParticipantWindow* reader : {demo[1], demo[2]}) {
        EXPECT_EQ("Reader", Status(reader, "RoleStatus"));
        EXPECT_TRUE(PumpUntil([&] { return Shown(reader) == "Hello\n"; })) << Shown(reader).toStdString();
        EXPECT_EQ("6 / 409600", Status(reader, "LengthStatus").remove(QLocale().groupSeparator()).toStdString());
    }
}

TEST_F(NoteHostApp, MeetingPublishSendsTheNoteTakersTextToTheReaders)
{
    CParticipantWindow* taker = Open("notes", 1, ERole::kNoteTaker, NOTETAKER_SINGLE);
    CParticipantWindow* reader = Open("notes", 2, ERole::kReader, NOTETAKER_SINGLE);
    auto* publish = taker->findChild<QAction*>("PublishAction");
    EXPECT_FALSE(publish->isEnabled());
    Focus(taker);
    QTest::keyClicks(taker->PanelText(), "Agenda");
    EXPECT_TRUE(PumpUntil([&] { return publish->isEnabled(); }));
    EXPECT_EQ("", Shown(reader));
    QTest::keyClick(taker->PanelText(), Qt::Key_P, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_TRUE(PumpUntil([&] { return Shown(reader) == "Agenda"; })) << Shown(reader).toStdString();
    EXPECT_FALSE(publish->isEnabled());
    EXPECT_FALSE(reader->findChild<QAction*>("PublishAction")->isEnabled());
}

TEST_F(NoteHostApp, ZoomAndContrastLastThroughARejoinAndAConnectionLossShowsLostThenBack)
{
    CParticipantWindow* captioner = Open("zoom", 1, ERole::kCaptioner, NOTETAKER_CLOSED_CAPTIONS);
    CParticipantWindow* reader = Open("zoom", 2, ERole::kReader, NOTETAKER_CLOSED_CAPTIONS);
    Say(captioner, "Big");
    ASSERT_TRUE(PumpUntil([&] { return Shown(reader) == "Big\n"; }));
    Focus(reader);
    const qreal base = reader->PanelText()->font().pointSizeF();
    const struct {
        Qt::Key key;
        qreal points;  // the size after the key, from the base
    } steps[] = {{Qt::Key_Plus, 2}, {Qt::Key_Equal, 4}, {Qt::Key_Minus, 2}, {Qt::Key_0, 0}, {Qt::Key_Minus, -2}};
    for (const auto& step : steps) {
        QTest::keyClick(reader->PanelText(), step.key, Qt::ControlModifier);
        EXPECT_EQ(base + step.points, reader->PanelText()->font().pointSizeF()) << step.key;
        EXPECT_EQ("Big\n", Shown(reader));
    }
    EXPECT_EQ(base, captioner->PanelText()->font().pointSizeF());
    QTest::keyClick(reader->PanelText(), Qt::Key_H, Qt::ControlModifier | Qt::ShiftModifier);
    reader->Rejoin();
    ASSERT_TRUE(PumpUntil([&] { return Shown(reader) == "Big\n"; })) << Shown(reader).toStdString();
    EXPECT_EQ(base - 2, reader->PanelText()->font().pointSizeF());
    const QImage panel = reader->PanelView()->grab().toImage();
    EXPECT_EQ(0u, panel.pixel(5, panel.height() - 2) & 0xFFFFFF);  // still high contrast

    EXPECT_EQ("Connected", Status(reader, "ConnectionStatus"));
    reader->SetOutageMilliseconds(600);
    reader->SimulateConnectionLoss();
    EXPECT_TRUE(PumpUntil([&] { return Status(reader, "ConnectionStatus") == "Connection lost"; }));
    EXPECT_TRUE(Shown(reader).contains("currently unavailable")) << Shown(reader).toStdString();
    Say(captioner, "Missed");
    EXPECT_TRUE(PumpUntil([&] { return Status(reader, "ConnectionStatus") == "Connection back"; }));
    EXPECT_TRUE(PumpUntil([&] { return Shown(reader).contains("Missed\n"); })) << Shown(reader).toStdString();
    EXPECT_EQ("Connected", Status(captioner, "ConnectionStatus"));
}

TEST_F(NoteHostApp, LeaveThenRejoinRestoresPrivateNotesFromTheAutoSaveFolder)
{
    CParticipantWindow* w = Open("private", 7, ERole::kNoteTaker, NOTETAKER_ALL_PARTICIPANTS);
    Focus(w);
    QTest::keyClicks(w->PanelText(), "my notes");
    // At once: the plug-in takes typing in on its next tick, which leaving waits for.
    QTest::keyClick(w, Qt::Key_L, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_FALSE(w->IsJoined());
    EXPECT_EQ("Not in the meeting", Status(w, "ConnectionStatus"));
    const QString folder = QString("%1/notehost/autosave/in-process-%2").arg(g_dataHome).arg(getpid());
    EXPECT_EQ(QStringList{"private-user7-notepad1.xml"}, QDir(folder).entryList(QDir::Files));

    QTest::keyClick(w, Qt::Key_J, Qt::ControlModifier | Qt::ShiftModifier);
    ASSERT_TRUE(w->IsJoined());
    EXPECT_TRUE(PumpUntil([&] { return Shown(w) == "my notes"; })) << Shown(w).toStdString();
    EXPECT_EQ("Connected", Status(w, "ConnectionStatus"));

    m_pHost.reset();  // this process's in-process meetings end with it
    EXPECT_FALSE(QDir(folder).exists());
}

// Over Redis the handshake takes a while: a captioner who typed at once would lose the line.
// Once the meeting is deleted with its users, the windows stop retrying and say why.
TEST_F(NoteHostApp, ARedisWindowTakesTypingOnceJoinedAndItsFirstLineReachesAReader)
{
    CRedisTestServer server;
    CRedisMeetingCredentials users;
    std::string failure;
    ASSERT_TRUE(CreateRedisMeeting(server.Options("joining"), users, failure)) << failure;
    SSessionSettings settings;
    settings.conference = EConference::kRedis;
    settings.strRedisUrl = "unix://" + server.Options("").strUnixSocket;
    settings.strMeetingId = "joining";
    settings.strRedisUser = users.strWriterUser;
    settings.strRedisPassword = users.strWriterPassword;
    settings.role = ERole::kCaptioner;
    QString error;
    CParticipantWindow* captioner = m_pHost->Open(settings, error);
    ASSERT_TRUE(captioner) << error.toStdString();
    EXPECT_EQ("Joining...", Status(captioner, "ConnectionStatus"));
    EXPECT_FALSE(captioner->PanelText()->isEnabled());
    settings.nUserId = 2;
    settings.role = ERole::kReader;
    settings.strRedisUser = users.strReaderUser;
    settings.strRedisPassword = users.strReaderPassword;
    CParticipantWindow* reader = Open(settings);
    ASSERT_TRUE(reader);
    for (CParticipantWindow* w : {captioner, reader})
        ASSERT_TRUE(PumpUntil([&] { return Status(w, "ConnectionStatus") == "Connected"; }));
    Say(captioner, "First");
    EXPECT_TRUE(PumpUntil([&] { return Shown(reader) == "First\n"; })) << Shown(reader).toStdString();

    ASSERT_TRUE(DeleteRedisMeeting(server.Options("joining"), failure)) << failure;
    for (CParticipantWindow* w : {captioner, reader}) {
        EXPECT_TRUE(PumpUntil([&] { return w->Connection() == CParticipantWindow::kShutOut; }));
        EXPECT_FALSE(w->IsJoined());
        EXPECT_EQ("Shut out: was the meeting deleted?", Status(w, "ConnectionStatus"));
    }
}

TEST_F(NoteHostApp, TheStartDialogAsksAgainWhenTheMeetingCannotBeOpened)
{
    QString shownError;
    QTimer::singleShot(0, [&] {
        auto* dialog = qobject_cast<CStartDialog*>(QApplication::activeModalWidget());
        ASSERT_TRUE(dialog);
        auto* conference = dialog->findChild<QComboBox*>("Conference");
        conference->setCurrentIndex(conference->findData(static_cast<int>(EConference::kRedis)));
        dialog->findChild<QLineEdit*>("RedisUrl")->setText("redis://127.0.0.1:1");  // nobody listens
        dialog->accept();
        // The same dialog again, now with the reason; the person goes back to in-process.
        QTimer::singleShot(0, [&, dialog, conference] {
            shownError = dialog->findChild<QLabel*>("StartError")->text();
            conference->setCurrentIndex(conference->findData(static_cast<int>(EConference::kInProcess)));
            dialog->findChild<QComboBox*>("Role")->setCurrentIndex(1);  // a note taker publishes
            dialog->accept();
        });
    });
    CParticipantWindow* w = m_pHost->AskAndOpen();
    ASSERT_TRUE(w);
    EXPECT_TRUE(shownError.contains("127.0.0.1:1")) << shownError.toStdString();
    EXPECT_EQ(ERole::kNoteTaker, w->Settings().role);
    EXPECT_EQ(NOTETAKER_SINGLE, w->Settings().notepadType);
}

}  // namespace
