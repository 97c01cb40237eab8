#include "Platform.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
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
    // Like the shell's folder call with creation allowed: a folder that cannot be made is none.
    if (!QDir().mkpath(folder))
        return QString();
    return QDir::cleanPath(folder);
}

std::unique_ptr<QSettings> MachineSettings(const QString& key)
{
    // The store reads Velmora/<key>.conf and Velmora.conf below every configuration folder; one
    // that is there but is no regular file (a pipe, a device) would block the read: read none.
    QString folders = qEnvironmentVariable("XDG_CONFIG_DIRS");
    if (folders.isEmpty())
        folders = QStringLiteral("/etc/xdg");
    for (const QString& folder : folders.split(QLatin1Char(':'), Qt::SkipEmptyParts))
    {
        for (const QString& name : {QStringLiteral("%1/Velmora/%2.conf").arg(folder, key),
                                    QStringLiteral("%1/Velmora.conf").arg(folder)})
        {
            struct stat info;
            if (::stat(QFile::encodeName(name).constData(), &info) == 0 && !S_ISREG(info.st_mode))
                return std::make_unique<QSettings>(QString(), QSettings::IniFormat);
        }
    }
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

FileIdentity IdentifyFile(const QString& path)
{
    FileIdentity identity;
    struct stat info;
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        return identity;
    identity.exists = true;
    identity.device = static_cast<quint64>(info.st_dev);
    identity.inode = static_cast<quint64>(info.st_ino);
    identity.size = static_cast<qint64>(info.st_size);
    identity.modifiedNs = static_cast<qint64>(info.st_mtim.tv_sec) * 1000000000LL + info.st_mtim.tv_nsec;
    return identity;
}

QString RuntimeFolder()
{
    struct stat info;
    // Without XDG_RUNTIME_DIR this is the per-user folder Qt itself would choose, named here so
    // that Qt does not warn about the missing variable on every start.
    QString folder = qEnvironmentVariableIsEmpty("XDG_RUNTIME_DIR")
                         ? QStringLiteral("%1/runtime-uid%2").arg(QDir::tempPath()).arg(::getuid())
                         : QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (folder.isEmpty())
        return QString();
    if (::lstat(QFile::encodeName(folder).constData(), &info) == 0 && info.st_uid != ::getuid())
        return QString(); // someone else's folder is never ours to use
    if (!QDir().mkpath(folder))
        return QString();
    // The runtime folder holds endpoints and segments that only this user may reach.
    if (::chmod(QFile::encodeName(folder).constData(), S_IRWXU) != 0)
        return QString();
    return QDir::cleanPath(folder);
}

QString ExecutableFolder()
{
    const QFileInfo program(QStringLiteral("/proc/self/exe"));
    const QString target = program.canonicalFilePath();
    return target.isEmpty() ? QString() : QFileInfo(target).absolutePath();
}

} // namespace Velmora::WorkflowCore::Platform
