// CStartDialog: what a person picks before their window joins a meeting: the conference (this
// program's in-process meetings, or a Redis server for meetings across machines), the meeting
// id, their user id, their role and the notepad. Choosing a role picks its usual notepad; the
// person may still change it. Main thread only.
#pragma once

#include "app/SessionSettings.h"

#include <QDialog>

class QComboBox;
class QLabel;
class QLineEdit;
class QSpinBox;

class CStartDialog : public QDialog {
    Q_OBJECT
public:
    explicit CStartDialog(const SSessionSettings& initial, QWidget* parent = nullptr);

    SSessionSettings Settings() const;
    // Shows why the last choice could not be opened, for the person to change it.
    void ShowError(const QString& error);

private:
    void OnConferenceChanged();
    void OnRoleChanged();

    QComboBox* m_pConference = nullptr;
    QLineEdit* m_pRedisUrl = nullptr;
    QLineEdit* m_pRedisUser = nullptr;
    QLineEdit* m_pRedisPassword = nullptr;
    QLineEdit* m_pMeetingId = nullptr;
    QSpinBox* m_pUserId = nullptr;
    QComboBox* m_pRole = nullptr;
    QComboBox* m_pNotepad = nullptr;
    QLabel* m_pError = nullptr;
};
