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

TEST(OrvOCDialog, WithApplicationRunsAModalMessageBox)
{
    int argc = 1;
    QApplication app(argc, g_argv);
    CHostUICapture capture;

    // Polls for the box from inside its modal loop, records it and presses its button; a box
    // never shown ends whatever runs modally.
    QString seen;
    int polls = 0;
    QTimer timer;
    timer.setInterval(10);
    QObject::connect(&timer, &QTimer::timeout, [&] {
        QMessageBox* box = nullptr;
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            if (auto* candidate = qobject_cast<QMessageBox*>(widget); candidate && candidate->isVisible()) box = candidate;
        }
        if (!box && ++polls > 500 && QApplication::activeModalWidget()) QApplication::activeModalWidget()->close();
        if (!box) return;
        timer.stop();
        QStringList buttons;
        for (QAbstractButton* button : box->buttons()) buttons << button->text();
        seen = QStringList{box == QApplication::activeModalWidget() ? "modal" : "modeless", box->windowTitle(), box->text(),
                           box->informativeText(), box->icon() == QMessageBox::Warning ? "warning" : "other", buttons.join(",")}.join("|");
        box->buttons().isEmpty() ? void(box->close()) : box->buttons().first()->click();
    });
    timer.start();
    OrvOCDialog().popupDialog(kTitle, kMessage);  // returns only once the box is closed

    const QString ok = QString::fromStdString(GetLocalizedString("OK", kTessarinNoteBundleId, nullptr));
    EXPECT_EQ(seen, QStringList({"modal", kTitle, kTitle, QString::fromUtf8(kMessage), "warning", ok}).join("|"));
    EXPECT_TRUE(capture.m_vecAlerts.empty());  // the hook is for hosts without widgets
}

}  // namespace
