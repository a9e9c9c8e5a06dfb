// The start dialog.
#include "app/StartDialog.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpressionValidator>
#include <QSpinBox>
#include <QVBoxLayout>

namespace {

// A combo box of (label, value) items with an accessible name.
QComboBox* NewChoice(QWidget* parent, const char* name, std::initializer_list<std::pair<QString, int>> items)
{
    auto* box = new QComboBox(parent);
    box->setObjectName(QString::fromLatin1(name));
    for (const auto& item : items) box->addItem(item.first, item.second);
    return box;
}

void SelectData(QComboBox* box, int value)
{
    const int index = box->findData(value);
    if (index >= 0) box->setCurrentIndex(index);
}

}  // namespace

CStartDialog::CStartDialog(const SSessionSettings& initial, QWidget* parent) : QDialog(parent)
{
    setWindowTitle(tr("Join a meeting"));
    setObjectName(QStringLiteral("StartDialog"));

    m_pConference = NewChoice(this, "Conference",
                              {{tr("In-process (windows of this program)"), static_cast<int>(EConference::kInProcess)},
                               {tr("Redis server (across machines)"), static_cast<int>(EConference::kRedis)}});
    m_pRedisUrl = new QLineEdit(QString::fromStdString(initial.strRedisUrl), this);
    m_pRedisUrl->setObjectName(QStringLiteral("RedisUrl"));
    m_pRedisUrl->setPlaceholderText(QStringLiteral("redis://host:6379 or unix:///path/to/socket"));
    m_pRedisUser = new QLineEdit(QString::fromStdString(initial.strRedisUser), this);
    m_pRedisPassword = new QLineEdit(QString::fromStdString(initial.strRedisPassword), this);
    m_pRedisPassword->setEchoMode(QLineEdit::Password);
    m_pMeetingId = new QLineEdit(QString::fromStdString(initial.strMeetingId), this);
    m_pMeetingId->setObjectName(QStringLiteral("MeetingId"));
    m_pMeetingId->setValidator(
        new QRegularExpressionValidator(QRegularExpression(QStringLiteral("[A-Za-z0-9._-]{1,64}")), this));
    m_pUserId = new QSpinBox(this);
    m_pUserId->setObjectName(QStringLiteral("UserId"));
    m_pUserId->setRange(1, 999999);
    m_pUserId->setValue(static_cast<int>(initial.nUserId));
    m_pRole = NewChoice(this, "Role",
                        {{RoleName(ERole::kCaptioner), static_cast<int>(ERole::kCaptioner)},
                         {RoleName(ERole::kNoteTaker), static_cast<int>(ERole::kNoteTaker)},
                         {RoleName(ERole::kReader), static_cast<int>(ERole::kReader)}});
    m_pNotepad = NewChoice(this, "Notepad",
                           {{tr("Private notes (every participant)"), NOTETAKER_ALL_PARTICIPANTS},
                            {tr("Published notes (one note taker)"), NOTETAKER_SINGLE},
                            {tr("Closed captions"), NOTETAKER_CLOSED_CAPTIONS}});
    SelectData(m_pConference, static_cast<int>(initial.conference));
    SelectData(m_pRole, static_cast<int>(initial.role));
    SelectData(m_pNotepad, static_cast<int>(initial.notepadType));

    auto* form = new QFormLayout;
    form->addRow(tr("&Conference:"), m_pConference);
    form->addRow(tr("Redis &URL:"), m_pRedisUrl);
    form->addRow(tr("Redis u&ser:"), m_pRedisUser);
    form->addRow(tr("Redis pass&word:"), m_pRedisPassword);
    form->addRow(tr("&Meeting id:"), m_pMeetingId);
    form->addRow(tr("User &id:"), m_pUserId);
    form->addRow(tr("&Role:"), m_pRole);
    form->addRow(tr("&Notepad:"), m_pNotepad);
    m_pError = new QLabel(this);
    m_pError->setObjectName(QStringLiteral("StartError"));
    m_pError->setWordWrap(true);
    m_pError->setStyleSheet(QStringLiteral("color: #B00020"));
    m_pError->hide();
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttons->button(QDialogButtonBox::Ok)->setText(tr("&Join"));
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(m_pError);
    layout->addWidget(buttons);

    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_pConference, &QComboBox::currentIndexChanged, this, &CStartDialog::OnConferenceChanged);
    connect(m_pRole, &QComboBox::currentIndexChanged, this, &CStartDialog::OnRoleChanged);
    OnConferenceChanged();
}

void CStartDialog::OnConferenceChanged()
{
    const bool redis = m_pConference->currentData().toInt() == static_cast<int>(EConference::kRedis);
    for (QLineEdit* field : {m_pRedisUrl, m_pRedisUser, m_pRedisPassword}) field->setEnabled(redis);
}

void CStartDialog::OnRoleChanged()
{
    const ERole role = static_cast<ERole>(m_pRole->currentData().toInt());
    const auto current = static_cast<NOTETAKERTYPE>(m_pNotepad->currentData().toInt());
    SelectData(m_pNotepad, static_cast<int>(UsualNotepadOf(role, current)));
}

SSessionSettings CStartDialog::Settings() const
{
    SSessionSettings settings;
    settings.conference = static_cast<EConference>(m_pConference->currentData().toInt());
    settings.strRedisUrl = m_pRedisUrl->text().trimmed().toStdString();
    settings.strRedisUser = m_pRedisUser->text().toStdString();
    settings.strRedisPassword = m_pRedisPassword->text().toStdString();
    settings.strMeetingId = m_pMeetingId->text().trimmed().toStdString();
    settings.nUserId = static_cast<unsigned>(m_pUserId->value());
    settings.role = static_cast<ERole>(m_pRole->currentData().toInt());
    settings.notepadType = static_cast<NOTETAKERTYPE>(m_pNotepad->currentData().toInt());
    return settings;
}

void CStartDialog::ShowError(const QString& error)
{
    m_pError->setText(error);
    m_pError->setVisible(!error.isEmpty());
}
