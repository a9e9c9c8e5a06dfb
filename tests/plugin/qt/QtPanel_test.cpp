// The Qt panel through the loaded plug-in: several participants' windows in one process on the
// in-process conference, driven with real key and mouse events.
#include "conference/LocalConference.h"
#include "loader/PluginParticipant.h"
#include "panel/NoteView.h"
#include "tessarinnote/notehostui.h"

#include <QAccessible>
#include <QApplication>
#include <QClipboard>
#include <QFileDialog>
#include <QFileInfo>
#include <QMenu>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

// One QApplication for the whole run, made on first use and gone before the process ends.
int g_argc = 1;
char g_name[] = "plugin_qtpanel_tests";
char* g_argv[] = {g_name, nullptr};
std::unique_ptr<QApplication> g_app;

struct SApplicationEnd : ::testing::Environment {
    void TearDown() override { g_app.reset(); }
};
const auto* const g_end = ::testing::AddGlobalTestEnvironment(new SApplicationEnd);

QApplication& App()
{
    if (!g_app) g_app = std::make_unique<QApplication>(g_argc, g_argv);
    return *g_app;
}

bool PumpUntil(const std::function<bool()>& done, int timeoutMs = 5000) { return QTest::qWaitFor(done, timeoutMs); }
void Pump(int ms) { QTest::qWait(ms); }

// One person: a window of the test host with the plug-in's panel in it.
struct SWindow {
    std::unique_ptr<QWidget> window = std::make_unique<QWidget>();
    std::unique_ptr<CPluginParticipant> participant;

    ~SWindow() { participant.reset(); }  // the instance goes before its window
    QPlainTextEdit* Text() const { return window->findChild<QPlainTextEdit*>("NoteTextView"); }
    QPushButton* Button(const char* name) const { return window->findChild<QPushButton*>(name); }
    QString Shown() const { return Text()->toPlainText(); }
    void Type(const QString& keys) { QTest::keyClicks(Text(), keys); }
    void Key(int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QTest::keyClick(Text(), static_cast<Qt::Key>(key), modifiers);
    }
};

class QtPanel : public ::testing::Test {
protected:
    void SetUp() override
    {
        App();
        std::string error;
        ASSERT_TRUE(m_plugin.Load(CNotePlugin::BuiltPath(), error)) << error;
        NoteHostUI_SetTraceCallback([](void*, const char*, const char*) {}, nullptr);
    }
    void TearDown() override
    {
        m_vecWindows.clear();
        QGuiApplication::clipboard()->clear();
        NoteHostUI_SetTraceCallback(nullptr, nullptr);
    }

    SWindow& Join(unsigned userId, NOTETAKERTYPE type, unsigned userType, int width = 480,
                  int height = 320)
    {
        m_vecWindows.push_back(std::make_unique<SWindow>());
        SWindow& w = *m_vecWindows.back();
        w.window->resize(width, height);
        w.window->show();
        SParticipantSetup setup;
        setup.nUserId = userId;
        setup.notepadType = type;
        setup.nUserType = userType;
        setup.pParentView = w.window.get();
        w.participant = std::make_unique<CPluginParticipant>(m_plugin, *m_pMeeting, setup);
        Pump(100);
        return w;
    }

    // Keyboard focus in the window's text, as a person clicking into it gives.
    static void Focus(SWindow& w)
    {
        w.window->activateWindow();
        EXPECT_TRUE(QTest::qWaitForWindowActive(w.window.get()));
        w.Text()->setFocus();
        EXPECT_TRUE(PumpUntil([&] { return w.Text()->hasFocus(); }));
    }

    CNotePlugin m_plugin;
    std::unique_ptr<IMeeting> m_pMeeting = NewLocalMeeting(CMeetingOptions());
    std::vector<std::unique_ptr<SWindow>> m_vecWindows;
};

TEST_F(QtPanel, CaptionsReachTheReadersWhoFollowUnlessScrolledUpAndZoomWithoutChangingText)
{
    SWindow& captioner = Join(1, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_WRITER);
    SWindow& reader = Join(2, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_READER, 400, 200);
    // What the reader's panel announces to assistive technology, as it announces it.
    QSignalSpy announced(reader.Text(), SIGNAL(textArrived(int, QString)));
    Focus(captioner);
    captioner.Type("Good morning");
    captioner.Key(Qt::Key_Return);
    ASSERT_TRUE(PumpUntil([&] { return reader.Shown() == "Good morning\n"; })) << reader.Shown().toStdString();
    ASSERT_EQ(1, announced.count());
    EXPECT_EQ((QVariantList{0, QString("Good morning\n")}), announced.first());

    for (int line = 0; line < 40; ++line) {
        captioner.Type(QString("line %1").arg(line));
        captioner.Key(Qt::Key_Return);
    }
    QScrollBar* bar = reader.Text()->verticalScrollBar();
    ASSERT_TRUE(PumpUntil([&] { return reader.Shown().endsWith("line 39\n"); }));
    Pump(400);  // the meeting's own scroll to the end, five ticks later
    EXPECT_GT(bar->maximum(), 0);
    EXPECT_EQ(bar->maximum(), bar->value());
    bar->setValue(3);  // the reader goes back to reread
    captioner.Type("one more");
    captioner.Key(Qt::Key_Return);
    ASSERT_TRUE(PumpUntil([&] { return reader.Shown().endsWith("one more\n"); }));
    Pump(400);
    EXPECT_EQ(3, bar->value());

    const QString text = reader.Shown();
    const qreal points = reader.Text()->font().pointSizeF();
    QMetaObject::invokeMethod(reader.Text(), "zoomIn", Q_ARG(int, 4));
    EXPECT_GT(reader.Text()->font().pointSizeF(), points);
    QMetaObject::invokeMethod(reader.Text(), "zoomReset");
    EXPECT_EQ(points, reader.Text()->font().pointSizeF());
    EXPECT_EQ(text, reader.Shown());
    EXPECT_EQ(text, captioner.Shown());
}

TEST_F(QtPanel, APasteLongerThanTheRoomWarnsInAMessageBoxAndChangesNothing)
{
    SWindow& w = Join(1, NOTETAKER_ALL_PARTICIPANTS, NOTE_USER_WRITER);
    Focus(w);
    w.Type("ab");
    QString warning;
    QTimer::singleShot(0, [&] {
        PumpUntil([] { return qobject_cast<QMessageBox*>(QApplication::activeModalWidget()); }, 2000);
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            warning = box->windowTitle() + "|" + box->text();
            box->accept();
        }
    });
    QGuiApplication::clipboard()->setText(QString(81920 - 1, 'x'));
    w.Key(Qt::Key_V, Qt::ControlModifier);
    EXPECT_EQ("Velmar Zentor Notes|Unable to paste all of the selected text into the Notes panel. "
              "Please delete some text and try again.", warning);
    EXPECT_EQ("ab", w.Shown());
}

// The enabled items of the context menu a right click opens, by tag.
std::string MenuState(SWindow& w)
{
    QContextMenuEvent click(QContextMenuEvent::Mouse, QPoint(10, 10), w.Text()->mapToGlobal(QPoint(10, 10)));
    QApplication::sendEvent(w.Text()->viewport(), &click);
    QMenu* menu = w.Text()->findChild<QMenu*>("NoteContextMenu");
    if (!menu) return "no menu";
    std::ostringstream state;
    for (QAction* action : menu->actions())
        if (!action->isSeparator()) state << action->data().toInt() << (action->isEnabled() ? "+ " : "- ");
    menu->close();
    delete menu;
    return state.str();
}

TEST_F(QtPanel, TheContextMenuEnablesItemsByRoleAndSelectionAndPublishIsAButton)
{
    QGuiApplication::clipboard()->setText("z");
    SWindow& taker = Join(1, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    SWindow& reader = Join(2, NOTETAKER_SINGLE, NOTE_USER_READER);
    Focus(taker);
    taker.Type("draft");
    taker.Key(Qt::Key_A, Qt::ControlModifier);
    EXPECT_EQ("10+ 11+ 12+ 13+ 14+ ", MenuState(taker).substr(0, 20));
    ASSERT_TRUE(PumpUntil([&] { return taker.Button("PublishButton")->isEnabled(); }));
    QTest::mouseClick(taker.Button("PublishButton"), Qt::LeftButton);
    ASSERT_TRUE(PumpUntil([&] { return reader.Shown() == "draft"; }));
    Focus(reader);
    reader.Key(Qt::Key_A, Qt::ControlModifier);
    const std::string readerMenu = MenuState(reader);
    EXPECT_EQ("10+ 11+ 12- 13+ 14+ ", readerMenu.substr(0, 20));
    EXPECT_NE(std::string::npos, readerMenu.find("16-"));
}

// Answers the next save dialog with answer (run inside the dialog's own loop).
void AnswerSaveDialog(const std::function<void(QFileDialog&)>& answer, QString* title = nullptr,
                      QString* defaultName = nullptr)
{
    QTimer::singleShot(0, [=] {
        PumpUntil([] { return qobject_cast<QFileDialog*>(QApplication::activeModalWidget()); }, 2000);
        auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
        if (!dialog) return;
        if (title) *title = dialog->windowTitle();
        if (defaultName && !dialog->selectedFiles().isEmpty())
            *defaultName = QFileInfo(dialog->selectedFiles().first()).fileName();
        answer(*dialog);
    });
}

TEST_F(QtPanel, TheSaveDialogIsChosenCancelledOrAbortedWithTheInstance)
{
    char folder[] = "/tmp/qtpanelXXXXXX";
    ASSERT_TRUE(mkdtemp(folder));
    const QString path = QString(folder) + "/minutes.txt";
    SWindow& w = Join(1, NOTETAKER_ALL_PARTICIPANTS, NOTE_USER_WRITER);
    Focus(w);
    w.Type("Minutes");
    void* instance = w.participant->Instance();

    QString title, defaultName;
    AnswerSaveDialog([&](QFileDialog& d) { d.selectFile(path); static_cast<QDialog&>(d).accept(); }, &title, &defaultName);
    EXPECT_EQ(0, m_plugin.NoteFileSaveAs(instance));
    EXPECT_EQ("Save Notes As", title);
    EXPECT_EQ("Notes.txt", defaultName);
    std::ifstream saved(path.toStdString());
    EXPECT_EQ("Minutes", std::string(std::istreambuf_iterator<char>(saved), {}));
    unlink(path.toStdString().c_str());

    AnswerSaveDialog([](QFileDialog& d) { d.reject(); });
    EXPECT_EQ(-1, m_plugin.NoteFileSaveAs(instance));
    EXPECT_NE(0, access(path.toStdString().c_str(), F_OK));

    // The instance ends while its dialog runs: the dialog closes and nothing is written.
    AnswerSaveDialog([&](QFileDialog& d) {
        d.selectFile(path);
        w.participant.reset();
    });
    EXPECT_EQ(-1, m_plugin.NoteFileSaveAs(instance));
    EXPECT_FALSE(QApplication::activeModalWidget());
    EXPECT_NE(0, access(path.toStdString().c_str(), F_OK));
    rmdir(folder);
}

TEST_F(QtPanel, TheLayoutFollowsResizesAndTheSeparatorIsDrawnAboveTheButtons)
{
    SWindow& w = Join(1, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    w.window->resize(520, 300);
    Pump(50);
    QPushButton* publish = w.Button("PublishButton");
    QPushButton* save = w.Button("SaveButton");
    QWidget* view = w.window->findChild<QWidget*>("NoteView");
    ASSERT_TRUE(publish && save && view);
    EXPECT_EQ(QRect(0, 0, 520, 300), view->geometry());
    EXPECT_EQ(QRect(520 - 10 - save->width(), 300 - 28, save->width(), 24), save->geometry());
    EXPECT_EQ(QRect(520 - 14 - save->width() - publish->width(), 300 - 28, publish->width(), 24),
              publish->geometry());
    EXPECT_EQ(QRect(0, 0, 520, 300 - 33), w.Text()->geometry());

    const QImage image = view->grab().toImage();
    const QRgb separator = image.pixel(5, 300 - 33);
    EXPECT_EQ(kNoteViewSeparatorRGB, separator & 0xFFFFFF);
    EXPECT_EQ(kNoteViewBackgroundRGB, image.pixel(5, 300 - 32) & 0xFFFFFF);
    EXPECT_EQ(kNoteViewBackgroundRGB, image.pixel(5, 300 - 2) & 0xFFFFFF);
    EXPECT_EQ(kNoteViewBackgroundRGB, image.pixel(300, 150) & 0xFFFFFF);  // the empty text

    for (QWidget* part : std::initializer_list<QWidget*>{view, w.Text(), publish, save})
        EXPECT_FALSE(QAccessible::queryAccessibleInterface(part)->text(QAccessible::Name).isEmpty())
            << part->objectName().toStdString();
    EXPECT_EQ("Publish", publish->toolTip());
    EXPECT_EQ("Save", save->toolTip());
}

}  // namespace
