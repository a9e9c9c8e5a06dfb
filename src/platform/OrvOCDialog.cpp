// The alert as a QMessageBox run modally, or the host's warning hook when no QApplication exists
// (a QCoreApplication cannot show widgets).
#include "platform/OrvOCDialog.h"

#include "platform/LoadLocalizedString.h"
#include "tessarinnote/notehostui.h"

#include <QApplication>
#include <QMessageBox>
#include <QString>

void OrvOCDialog::popupDialog(const char* title, const char* message)
{
    if (!title) title = "";
    if (!message) message = "";
    if (!qobject_cast<QApplication*>(QCoreApplication::instance())) {
        ShowWarningWindow2(title, message);
        return;
    }
    QMessageBox box;
    box.setIcon(QMessageBox::Warning);
    box.setWindowTitle(QString::fromUtf8(title));
    box.setText(QString::fromUtf8(title));
    box.setInformativeText(QString::fromUtf8(message));
    const std::string ok = GetLocalizedString("OK", kTessarinNoteBundleId, nullptr);
    box.addButton(QString::fromStdString(ok), QMessageBox::AcceptRole);
    box.exec();
}
