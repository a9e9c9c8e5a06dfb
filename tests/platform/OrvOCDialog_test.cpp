// The alert: with a QApplication a modal QMessageBox (warning icon, title as its text, message
// as its informative text, one localised OK button) that returns once closed; without one, or
// with only a QCoreApplication, the host's warning hook.
#include "platform/OrvOCDialog.h"

#include "platform/LoadLocalizedString.h"

#include "HostUICapture.h"

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QApplication>
#include <QCoreApplication>
#include <QMessageBox>
#include <QTimer>

namespace {

const char kTitle[] = "Velmar Zentor Notes";
const char kMessage[] =
    "You cannot replace \"Notes.txt\" because you do not have the right privileges.";

char g_name[] = "platform_dialog_tests";
char* g_argv[] = {g_name, nullptr};

TEST(OrvOCDialog, WithoutWidgetsGoesToTheWarningHook)
{
    CHostUICapture capture;
    OrvOCDialog().popupDialog(nullptr, nullptr);
    {
        int argc = 1;
        QCoreApplication app(argc, g_argv);  // cannot show widgets either
        OrvOCDialog().popupDialog(kTitle, kMessage);
    }
    ASSERT_EQ(capture.m_vecAlerts.size(), 2u);
    EXPECT_EQ(capture.m_vecAlerts[0].title, "");
    EXPECT_EQ(capture.m_vecAlerts[0].text, "");
    EXPECT_EQ(capture.m_vecAlerts[1].title, kTitle);
    EXPECT_EQ(capture.m_vecAlerts[1].text, kMessage);
}

struct SSeenBox {
    bool found = false;
    bool modal = false;
    QString title, text, informative;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    QStringList buttons;
};

TEST(OrvOCDialog, WithApplicationRunsAModalMessageBox)
{
    int argc = 1;
    QApplication app(argc, g_argv);
    CHostUICapture capture;

    // Polls for the box from inside its modal loop, records it and presses its button.
    SSeenBox seen;
    int polls = 0;
    QTimer timer;
    timer.setInterval(10);
    QObject::connect(&timer, &QTimer::timeout, [&] {
        QMessageBox* box = nullptr;
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            if (auto* candidate = qobject_cast<QMessageBox*>(widget); candidate && candidate->isVisible())
                box = candidate;
        }
        if (!box) {
            if (++polls > 500) {  // never shown as expected: end whatever runs modally
                timer.stop();
                if (QWidget* modal = QApplication::activeModalWidget()) modal->close();
            }
            return;
        }
        timer.stop();
        seen.found = true;
        seen.modal = box == QApplication::activeModalWidget();
        seen.title = box->windowTitle();
        seen.text = box->text();
        seen.informative = box->informativeText();
        seen.icon = box->icon();
        for (QAbstractButton* button : box->buttons()) seen.buttons << button->text();
        if (!box->buttons().isEmpty()) box->buttons().first()->click();
        else box->close();
    });
    timer.start();

    OrvOCDialog().popupDialog(kTitle, kMessage);  // returns only once the box is closed

    ASSERT_TRUE(seen.found);
    EXPECT_TRUE(seen.modal);
    EXPECT_EQ(seen.text, QString::fromUtf8(kTitle));
    EXPECT_EQ(seen.title, QString::fromUtf8(kTitle));
    EXPECT_EQ(seen.informative, QString::fromUtf8(kMessage));
    EXPECT_EQ(seen.icon, QMessageBox::Warning);
    const QString ok =
        QString::fromStdString(GetLocalizedString("OK", kTessarinNoteBundleId, nullptr));
    EXPECT_EQ(seen.buttons, QStringList{ok});
    EXPECT_TRUE(capture.m_vecAlerts.empty());  // the hook is for hosts without widgets
}

}  // namespace
