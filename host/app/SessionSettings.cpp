// Session settings: roles, limits and the auto-save file.
#include "app/SessionSettings.h"

#include <QCoreApplication>
#include <QDir>
#include <QStandardPaths>

unsigned UserTypeOf(ERole role)
{
    return role == ERole::kReader ? NOTE_USER_READER : NOTE_USER_WRITER;
}

QString RoleName(ERole role)
{
    switch (role) {
    case ERole::kCaptioner: return QStringLiteral("Captioner");
    case ERole::kNoteTaker: return QStringLiteral("Note taker");
    default: return QStringLiteral("Reader");
    }
}

NOTETAKERTYPE UsualNotepadOf(ERole role, NOTETAKERTYPE current)
{
    switch (role) {
    case ERole::kCaptioner: return NOTETAKER_CLOSED_CAPTIONS;
    case ERole::kNoteTaker: return NOTETAKER_SINGLE;
    default: return current;
    }
}

int MaxTextLengthOf(NOTETAKERTYPE type)
{
    return type == NOTETAKER_CLOSED_CAPTIONS ? 409600 : 81920;
}

namespace {

QString AutoSaveFolder(EConference conference)
{
    const QString data = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
    if (data.isEmpty()) return QString();
    if (conference == EConference::kRedis) return data + QStringLiteral("/autosave/redis");
    return data + QStringLiteral("/autosave/in-process-%1").arg(QCoreApplication::applicationPid());
}

}  // namespace

void RemoveInProcessAutoSaves()
{
    const QString folder = AutoSaveFolder(EConference::kInProcess);
    if (!folder.isEmpty()) QDir(folder).removeRecursively();
}

std::string AutoSavePathFor(const SSessionSettings& settings)
{
    const QString folder = AutoSaveFolder(settings.conference);
    if (folder.isEmpty()) return std::string();
    if (!QDir().mkpath(folder)) return std::string();
    // The meeting id comes from a person or a server: only safe characters reach the name.
    QString meeting = QString::fromStdString(settings.strMeetingId);
    for (QChar& c : meeting)
        if (!c.isLetterOrNumber() && c != QLatin1Char('-') && c != QLatin1Char('_')) c = QLatin1Char('_');
    const QString name = QStringLiteral("%1-user%2-notepad%3.xml")
                             .arg(meeting.left(64))
                             .arg(settings.nUserId)
                             .arg(static_cast<unsigned>(settings.notepadType));
    return (folder + QLatin1Char('/') + name).toStdString();
}
