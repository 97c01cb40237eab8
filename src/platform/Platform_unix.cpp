#include "Platform.h"

#include <QDir>
#include <QFile>
#include <QSettings>
#include <QStandardPaths>

#include <cerrno>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Velmora::WorkflowCore::Platform {

QString ApplicationDataFolder()
{
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (folder.isEmpty())
        return QString();
    QDir().mkpath(folder);
    return QDir::cleanPath(folder);
}

std::unique_ptr<QSettings> MachineSettings(const QString& key)
{
    return std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::SystemScope,
                                       QStringLiteral("Velmora"), key);
}

bool IsProcessAlive(qint64 processId)
{
    if (processId <= 0)
        return false;
    if (::kill(static_cast<pid_t>(processId), 0) == 0)
        return true;
    return errno == EPERM;
}

qint64 CurrentProcessId()
{
    return static_cast<qint64>(::getpid());
}

QString RuntimeFolder()
{
    QString folder = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (folder.isEmpty())
        return QString();
    if (!QDir().mkpath(folder))
        return QString();
    // The runtime folder holds endpoints and segments that only this user may reach.
    if (::chmod(QFile::encodeName(folder).constData(), S_IRWXU) != 0)
        return QString();
    return QDir::cleanPath(folder);
}

} // namespace Velmora::WorkflowCore::Platform
